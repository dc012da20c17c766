// Curves through knots that map a number to a height.
#pragma once

#include "velto/array.h"

namespace velto
{

struct SplineMapper : Object
{
};

// How the curve runs from a knot to the next.
enum class SplineInterpolation : Int32
{
    Bezier = 0,
    Linear = 1,
    Cubic = 2,
};

struct SplineKnot
{
    Vector2d position;
    SplineInterpolation interpolation = SplineInterpolation::Bezier;
    // From the knot's position to the control points beside it.
    Vector2d tangentLeft;
    Vector2d tangentRight;
    UInt own = 0;
};

static_assert(sizeof(SplineKnot) == 64 && offsetof(SplineKnot, tangentLeft) == 24);

struct SplineMapperInterface
{
    static constexpr Id kId{"net.velto.interface.splinemapper"};
    static constexpr Id kFramework{"net.velto.math.framework"};

    // [any thread] A mapper without knots, tension 0, range (0, 0) to (1, 1); the caller owns the reference. A mapper
    // belongs to one thread at a time.
    VELTO_METHOD(Alloc, Result(SplineMapper** mapper));
    // How stiff cubic segments are: 0 is a Catmull-Rom curve, 1 has level tangents, below 0 is looser.
    VELTO_METHOD(SetTension, void(SplineMapper* mapper, Float tension));
    // Two opposite corners of the area that positions are held to.
    VELTO_METHOD(SetRange, void(SplineMapper* mapper, const Vector2d& min, const Vector2d& max));
    // Lends the knots for changing, valid as long as the mapper is held.
    VELTO_METHOD(GetKnotsRW, Result(SplineMapper* mapper, BaseArray<SplineKnot>** knots));
    // `position`, or the nearest one in the range.
    VELTO_METHOD(ClampPosition, Vector2d(const SplineMapper* mapper, const Vector2d& position));
    // Puts the knots in order of x; those of equal x keep their order, and knots without a number go last.
    VELTO_METHOD(SortKnots, void(SplineMapper* mapper));
    // The point of the curve at `x`, the knots being in order. Before the first knot and after the last the curve is
    // level. With one knot it is level everywhere, without knots it is y = x.
    VELTO_METHOD(GetPoint, Vector2d(const SplineMapper* mapper, Float x));
};
VELTO_USED_BY_INCLUDERS("velto/splinemapper.h", SplineMapperInterface);

} // namespace velto
