// Remaps a number through a drawn curve.
#include "velto/graphnodes.h"
#include "velto/node.h"
#include "velto/splinemapper.h"

namespace velto::pattern
{

VELTO_INTERNED_ID(kLinear, "linear");
VELTO_INTERNED_ID(kCubic, "cubic");

static SplineInterpolation ToInterpolation(const InternedId& id)
{
    return id == kCubic    ? SplineInterpolation::Cubic
           : id == kLinear ? SplineInterpolation::Linear
                           : SplineInterpolation::Bezier;
}

static Vector2d operator-(const Vector2d& v)
{
    return {-v.x, -v.y};
}

// A knot's value in a group; a group may hold fewer than there are knots.
template <class T, FixedString Name>
static T At(const Variadic<Name, T>& group, Int knot)
{
    return knot < group.Count() ? group[knot] : T{};
}

static Result Spline(In<"input", Float> input, In<"tension", Float> tension, In<"min", Vector2d> min,
    In<"max", Vector2d> max, In<"linkendtangents", Bool> linkEndTangents, In<"linkendpositions", Bool> linkEndPositions,
    Out<"result", Float> result, Variadic<"positionx", Float> x, Variadic<"positiony", Float> y,
    Variadic<"lockx", Bool>, Variadic<"locky", Bool> lockY, Variadic<"interpolation", InternedId> interpolation,
    Variadic<"tangentleft", Vector2d> tangentLeft, Variadic<"tangentright", Vector2d> tangentRight,
    Variadic<"breaktangent", Bool> breakTangent, Variadic<"keepvisualangle", Bool>,
    Variadic<"lockangle", Bool> lockAngle, Variadic<"locklength", Bool> lockLength)
{
    const auto& mappers = Bound<SplineMapperInterface>();
    Ref<SplineMapper> mapper;
    VELTO_TRY(mappers.Alloc(mapper.Receive()));
    mappers.SetTension(mapper.Get(), tension);
    mappers.SetRange(mapper.Get(), min, max);
    BaseArray<SplineKnot>* lent = nullptr;
    VELTO_TRY(mappers.GetKnotsRW(mapper.Get(), &lent));
    BaseArray<SplineKnot>& knots = *lent;

    const Int count = x.Count();
    VELTO_TRY(knots.Resize(count));
    for (Int i = 0; i < count; ++i)
    {
        const Vector2d left = At(tangentLeft, i);
        knots[i].position = mappers.ClampPosition(mapper.Get(), {x[i], At(y, i)});
        knots[i].interpolation = ToInterpolation(At(interpolation, i));
        knots[i].tangentLeft = left;
        knots[i].tangentRight = At(breakTangent, i) ? At(tangentRight, i) : -left;
    }
    mappers.SortKnots(mapper.Get());

    if (count >= 2)
    {
        const SplineKnot& first = knots[0];
        SplineKnot& last = knots.Last();
        // The locks are those of the last port, whichever knot came out last.
        const Int port = count - 1;
        if (linkEndTangents && !At(lockAngle, port) && !At(lockLength, port))
        {
            last.tangentLeft = -first.tangentRight;
            if (!At(breakTangent, port))
                last.tangentRight = -first.tangentLeft;
        }
        if (linkEndPositions && !At(lockY, port))
            last.position.y = first.position.y;
    }
    result = mappers.GetPoint(mapper.Get(), input).y;
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.spline", Spline);

template <class T>
static Result SetDefault(const MutablePort& knot, const Id& name, const T& value)
{
    MutablePort child;
    VELTO_TRY(knot.FindPort(name, child));
    return child.SetValue(port_attribute::kDefaultValue, value);
}

// The curve runs from the origin to (1, 1).
static Result FinalizeSpline(const MutableRoot& root)
{
    MutablePort inputs;
    MutablePort spline;
    MutablePort points;
    VELTO_TRY(root.GetInputs(inputs));
    VELTO_TRY(inputs.FindPort("spline", spline));
    VELTO_TRY(spline.FindPort("points", points));
    for (const Id& name : {Id("_0"), Id("_1")})
    {
        MutablePort knot;
        VELTO_TRY(points.FindPort(name, knot));
        VELTO_TRY(SetDefault(knot, "tangentleft", Vector2d{-0.2, -0.2}));
        VELTO_TRY(SetDefault(knot, "tangentright", Vector2d{0.2, 0.2}));
        if (name == Id("_0"))
            continue;
        VELTO_TRY(SetDefault(knot, "positionx", 1.0));
        VELTO_TRY(SetDefault(knot, "positiony", 1.0));
    }
    return {};
}

VELTO_DESCRIPTION_FINALIZER("net.velto.pattern.node.generator.spline", &FinalizeSpline);

} // namespace velto::pattern
