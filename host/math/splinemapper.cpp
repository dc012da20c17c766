#include "splinemapper.h"

#include "host/system/guard.h"

#include <algorithm>
#include <cmath>

namespace velto::host
{

namespace
{

struct HostSplineMapper : SplineMapper
{
    BaseArray<SplineKnot> knots;
    Float tension = 0.0;
    Vector2d min;
    Vector2d max{1.0, 1.0};
    HostSplineMapper* nextIdle = nullptr;
};

// Mappers live for one sample. A thread keeps those that it dropped, with the room of their knots, for the next one.
class IdleMappers
{
public:
    ~IdleMappers()
    {
        while (HostSplineMapper* const mapper = Take())
            delete mapper;
    }

    HostSplineMapper* Take()
    {
        HostSplineMapper* const mapper = first_;
        if (mapper)
        {
            first_ = mapper->nextIdle;
            --count_;
        }
        return mapper;
    }

    void Put(HostSplineMapper* mapper)
    {
        constexpr Int kMostKnots = 4096; // a larger room goes back
        if (count_ == 4 || mapper->knots.Capacity() > kMostKnots)
        {
            delete mapper;
            return;
        }
        mapper->nextIdle = first_;
        first_ = mapper;
        ++count_;
    }

private:
    HostSplineMapper* first_ = nullptr;
    Int count_ = 0;
};

thread_local IdleMappers idleMappers;

HostSplineMapper& AsHost(SplineMapper* mapper)
{
    return *static_cast<HostSplineMapper*>(mapper);
}

const HostSplineMapper& AsHost(const SplineMapper* mapper)
{
    return *static_cast<const HostSplineMapper*>(mapper);
}

Result Alloc(SplineMapper** mapper)
{
    HostSplineMapper* made = idleMappers.Take();
    if (made)
    {
        made->references.store(1, std::memory_order_relaxed);
        made->knots.Clear();
        made->tension = 0.0;
        made->min = {};
        made->max = {1.0, 1.0};
    }
    else
    {
        made = NewObject<HostSplineMapper>();
        if (!made)
            return OutOfMemory();
        made->destroy = [](Object* self) { idleMappers.Put(static_cast<HostSplineMapper*>(self)); };
    }
    *mapper = made;
    return {};
}

void SetRange(SplineMapper* mapper, const Vector2d& min, const Vector2d& max)
{
    AsHost(mapper).min = {Min(min.x, max.x), Min(min.y, max.y)};
    AsHost(mapper).max = {Max(max.x, min.x), Max(max.y, min.y)};
}

Vector2d ClampPosition(const SplineMapper* mapper, const Vector2d& position)
{
    const auto& [min, max] = std::tie(AsHost(mapper).min, AsHost(mapper).max);
    return {Min(Max(position.x, min.x), max.x), Min(Max(position.y, min.y), max.y)};
}

bool LiesBefore(const SplineKnot& a, const SplineKnot& b)
{
    return a.position.x < b.position.x || (std::isnan(b.position.x) && !std::isnan(a.position.x));
}

void SortKnots(SplineMapper* mapper)
{
    BaseArray<SplineKnot>& knots = AsHost(mapper).knots;
    if (knots.Count() > 64)
    {
        std::stable_sort(knots.begin(), knots.end(), &LiesBefore);
        return;
    }
    for (Int i = 1; i < knots.Count(); ++i)
    {
        const SplineKnot knot = knots[i];
        Int place = i;
        for (; place > 0 && LiesBefore(knot, knots[place - 1]); --place)
            knots[place] = knots[place - 1];
        knots[place] = knot;
    }
}

// A tangent as it counts in a segment that is `width` wide: never against the segment's direction, never beyond it.
Vector2d WithinSegment(const Vector2d& tangent, Float width)
{
    if (!(tangent.x > 0.0))
        return {0.0, tangent.y};
    return tangent.x > width ? Vector2d{width, tangent.y * (width / tangent.x)} : tangent;
}

// The height of the Bézier curve from (0, 0) to `end` at `x`.
Float BezierHeight(const Vector2d& first, const Vector2d& second, const Vector2d& end, Float x)
{
    // As polynomials; x(t) does not fall over [0, 1].
    const Float cx = 3.0 * first.x;
    const Float bx = 3.0 * (second.x - first.x) - cx;
    const Float ax = end.x - cx - bx;
    Float low = 0.0;
    Float high = 1.0;
    Float t = x / end.x;
    for (int i = 0; i < 32; ++i)
    {
        const Float error = ((ax * t + bx) * t + cx) * t - x;
        if (std::abs(error) <= 1e-14 * end.x)
            break;
        (error < 0.0 ? low : high) = t;
        const Float slope = (3.0 * ax * t + 2.0 * bx) * t + cx;
        const Float next = t - error / slope;
        // Newton's step where it stays in the bracket, else half of the bracket.
        t = next > low && next < high ? next : 0.5 * (low + high);
    }
    const Float s = 1.0 - t;
    return t * (3.0 * s * (s * first.y + t * second.y) + t * t * end.y);
}

// The slope of a cubic segment at a knot.
Float SlopeAt(const HostSplineMapper& mapper, Int knot)
{
    const Vector2d before = mapper.knots[Max<Int>(knot - 1, 0)].position;
    Vector2d behind = mapper.knots[Min<Int>(knot + 1, mapper.knots.Count() - 1)].position;
    if (std::isnan(behind.x))
        behind = mapper.knots[knot].position;
    const Float width = behind.x - before.x;
    return width > 0.0 ? (1.0 - mapper.tension) * (behind.y - before.y) / width : 0.0;
}

Float CubicHeight(const HostSplineMapper& mapper, Int left, Float x, const Vector2d& end)
{
    const Float t = x / end.x;
    const Float m0 = SlopeAt(mapper, left) * end.x;
    const Float m1 = SlopeAt(mapper, left + 1) * end.x;
    return t * (m0 + t * ((3.0 * end.y - 2.0 * m0 - m1) + t * (m0 + m1 - 2.0 * end.y)));
}

Vector2d GetPoint(const SplineMapper* self, Float x)
{
    const HostSplineMapper& mapper = AsHost(self);
    const BaseArray<SplineKnot>& knots = mapper.knots;
    if (knots.IsEmpty())
        return {x, x};
    const SplineKnot* const behind =
        std::partition_point(knots.begin(), knots.end(), [x](const SplineKnot& knot) { return knot.position.x <= x; });
    if (behind == knots.begin())
        return {x, knots[0].position.y};
    const SplineKnot& left = behind[-1];
    if (behind == knots.end() || left.position.x == x || std::isnan(behind->position.x))
        return {x, left.position.y};
    const Vector2d end{behind->position.x - left.position.x, behind->position.y - left.position.y};
    const Float along = x - left.position.x;
    switch (left.interpolation)
    {
    case SplineInterpolation::Linear:
        return {x, left.position.y + end.y * (along / end.x)};
    case SplineInterpolation::Cubic:
        return {x, left.position.y + CubicHeight(mapper, behind - knots.begin() - 1, along, end)};
    case SplineInterpolation::Bezier:
        break;
    }
    const Vector2d first = WithinSegment(left.tangentRight, end.x);
    const Vector2d back = WithinSegment({-behind->tangentLeft.x, behind->tangentLeft.y}, end.x);
    return {x, left.position.y + BezierHeight(first, {end.x - back.x, end.y + back.y}, end, along)};
}

} // namespace

const SplineMapperInterface& SplineMapperService()
{
    static constexpr SplineMapperInterface service{
        .Alloc = {&Alloc},
        .SetTension = {+[](SplineMapper* mapper, Float tension) { AsHost(mapper).tension = tension; }},
        .SetRange = {&SetRange},
        .GetKnotsRW = {+[](SplineMapper* mapper, BaseArray<SplineKnot>** knots) -> Result {
            *knots = &AsHost(mapper).knots;
            return {};
        }},
        .ClampPosition = {&ClampPosition},
        .SortKnots = {&SortKnots},
        .GetPoint = {&GetPoint},
    };
    return service;
}

} // namespace velto::host
