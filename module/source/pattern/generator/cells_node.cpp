// A Voronoi diagram over points that the pre node scatters in the unit square, by a density map if there is one.
#include "../limits.h"
#include "velto/node.h"
#include "velto/random.h"

#include <cmath>

namespace velto::pattern
{

struct PointArray : Object
{
    BaseArray<Vector2d> points;
};

using PointDistribution = Ref<PointArray>;

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::PointDistribution, "net.velto.render.datatype.pointdistribution");

namespace velto::pattern
{

VELTO_INTERNED_ID(kMode0, "0"); // as a strategy: random
VELTO_INTERNED_ID(kMode2, "2");
VELTO_INTERNED_ID(kMode3, "3");
VELTO_INTERNED_ID(kMode4, "4");
VELTO_INTERNED_ID(kMode5, "5");
VELTO_INTERNED_ID(kMode6, "6");

static constexpr Int kMostPoints = 1'000'000;
static constexpr Float kLargest = std::numeric_limits<Float>::max();

template <UInt32 Base>
static Float RadicalInverse(UInt32 k)
{
    constexpr Float kInverse = Base == 2 ? 0.5 : Base == 3 ? 0.3333333333333333 : 0.2;
    Float sum = 0.0;
    Float f = kInverse;
    for (; k != 0; k /= Base)
    {
        sum += static_cast<Float>(k % Base) * f;
        f *= kInverse;
    }
    return sum;
}

// The candidates, each with the threshold that the density at its place must reach.
class CandidateSource
{
public:
    CandidateSource(UInt32 hash, bool isRandom) : stream_(RandomStream::FromState(hash)), next_(hash), random_(isRandom)
    {
    }

    Vector2d NextPlace()
    {
        if (random_)
        {
            const Float x = stream_.Next01();
            return {x, stream_.Next01()};
        }
        current_ = next_++;
        return {RadicalInverse<2>(current_), RadicalInverse<3>(current_)};
    }
    // Of the last place; once at most.
    Float Threshold() { return random_ ? stream_.Next01() : RadicalInverse<5>(current_); }

private:
    RandomStream stream_;
    UInt32 next_;
    UInt32 current_ = 0;
    bool random_;
};

static Result PointGenerator(Connected<"distribution", FloatFunction> distribution, In<"points", Int32> count,
    In<"seed", Int32> seed, In<"strategy", InternedId> strategy, In<"searchPaths", SearchPathsType> searchPaths,
    Once<"pointDistribution", PointDistribution> result)
{
    if (!*result)
    {
        result = MakeShared<PointArray>();
        if (!*result)
            return OutOfMemory();
    }
    BaseArray<Vector2d>& points = (*result)->points;
    if (!points.IsEmpty())
        return {};
    VELTO_TRY(CheckLimit("points", *count, kMostPoints));

    CandidateSource candidates(IntegerHash32(static_cast<UInt32>(*seed)), *strategy == kMode0);
    ShadingContext context;
    context.uvwValid = true;
    context.searchPaths = &*searchPaths;
    for (Int32 i = 0; i < count; ++i)
    {
        const Vector2d place = candidates.NextPlace();
        if (distribution.IsConnected())
        {
            const Float threshold = candidates.Threshold();
            context.uvw = {place.x, place.y, 0.0};
            context.uvwPlusDeltaU = context.uvw;
            context.uvwPlusDeltaV = context.uvw;
            Float density = 0.0;
            VELTO_TRY(distribution->Invoke(density, context));
            if (!(density >= threshold))
                continue;
        }
        VELTO_TRY(points.Append(place));
    }
    return {};
}

// --- Metrics: a number that is cheap to get, and the measure, which rises with it for an exponent above 0 and, but for
// Minkowski's, falls with it for one below. ---

struct PowerOf
{
    static Float Measure(Float base, Float, Float, Float exponent) { return std::pow(base, exponent); }
};
struct Euclidean
{
    static Float Base(Float dx, Float dy) { return dx * dx + dy * dy; }
    static Float Measure(Float base, Float, Float, Float exponent) { return std::pow(std::sqrt(base), exponent); }
};
struct EuclideanSquare : PowerOf
{
    static Float Base(Float dx, Float dy) { return dx * dx + dy * dy; }
};
struct SkewedUp : PowerOf
{
    static Float Base(Float dx, Float dy) { return dx * dx + dx * dy + dy * dy; }
};
struct SkewedDown : PowerOf
{
    static Float Base(Float dx, Float dy) { return dx * dx - dx * dy + dy * dy; }
};
struct Manhattan : PowerOf
{
    static Float Base(Float dx, Float dy) { return std::abs(dx) + std::abs(dy); }
};
struct Chebyshev : PowerOf
{
    static Float Base(Float dx, Float dy) { return Max(std::abs(dx), std::abs(dy)); }
};
struct Minkowski
{
    static Float Base(Float dx, Float dy) { return Max(std::abs(dx), std::abs(dy)); }
    static Float Measure(Float, Float dx, Float dy, Float exponent)
    {
        return std::pow(std::pow(std::abs(dx), exponent) + std::pow(std::abs(dy), exponent), 1.0 / exponent);
    }
};

struct NearestPoints
{
    Float nearest = kLargest;
    Float first = kLargest;
    Float second = kLargest;
    Int index = -1;
};

// A base above which, or below which where the measure falls, no measure is below `second`, which has the base `base`.
// A power costs as much as ten distances; with this all but the few points that matter are told by their distance
// alone.
//
// The margin is far above the rounding of the powers. It does not hold where a power leaves the range of normal
// numbers.
template <class Metric, bool kFalls>
static Float BaseLimit(Float second, Float base, Float exponent)
{
    constexpr Float kTiny = 1e-290;
    constexpr Float kRounding = 0x1p-46;
    constexpr Float kNone = std::numeric_limits<Float>::infinity() * (kFalls ? -1.0 : 1.0);
    if (exponent == 0.0 || !(second > kTiny) || !(second < kLargest))
        return kNone;
    const Float margin = 1.0 + kRounding * (1.0 + 1.0 / std::abs(exponent));
    if constexpr (std::is_same_v<Metric, Minkowski>)
    {
        if (kFalls)
            return kNone;
        // No measure is below the larger of its two differences.
        const Float power = std::pow(second, exponent);
        return power > kTiny && power < kLargest * 0.25 ? second * margin : kNone;
    }
    return kFalls ? base / margin : base * margin;
}

template <class Metric, bool kFalls>
static NearestPoints Search(const BaseArray<Vector2d>& points, Vector2d at, Float exponent)
{
    NearestPoints found;
    Float firstBase = kLargest;
    Float secondBase = kLargest;
    Float limit = BaseLimit<Metric, kFalls>(found.second, secondBase, exponent);
    for (Int j = 0; j < points.Count(); ++j)
    {
        const Float dx = points[j].x - at.x;
        const Float dy = points[j].y - at.y;
        const Float base = Metric::Base(dx, dy);
        if (kFalls ? base < limit : base > limit)
            continue;
        const Float d = Metric::Measure(base, dx, dy, exponent);
        if (d < found.nearest)
        {
            found.nearest = d;
            found.index = j;
        }
        if (d < found.first)
        {
            found.second = found.first;
            secondBase = firstBase;
            found.first = d;
            firstBase = base;
        }
        else
        {
            if (d < found.second)
                secondBase = base;
            found.second = Min(d, found.second);
        }
        limit = BaseLimit<Metric, kFalls>(found.second, secondBase, exponent);
    }
    return found;
}

template <class Metric>
static NearestPoints FindNearest(const BaseArray<Vector2d>& points, Vector2d at, Float exponent)
{
    return exponent < 0.0 ? Search<Metric, true>(points, at, exponent) : Search<Metric, false>(points, at, exponent);
}

static NearestPoints FindNearest(const BaseArray<Vector2d>& points, Vector2d at, const InternedId& mode, Float exponent)
{
    if (mode == kMode0)
        return FindNearest<Euclidean>(points, at, exponent);
    if (mode == kMode2)
        return FindNearest<SkewedUp>(points, at, exponent);
    if (mode == kMode3)
        return FindNearest<SkewedDown>(points, at, exponent);
    if (mode == kMode4)
        return FindNearest<Manhattan>(points, at, exponent);
    if (mode == kMode5)
        return FindNearest<Chebyshev>(points, at, exponent);
    if (mode == kMode6)
        return FindNearest<Minkowski>(points, at, exponent);
    return FindNearest<EuclideanSquare>(points, at, exponent);
}

static void Cells(In<"context", ShadingContext> context, In<"pointDistribution", PointDistribution> distribution,
    In<"distanceMode", InternedId> mode, In<"exponent", Float> exponent, Out<"distance", Float> distance,
    Out<"direction", Vector2d> direction, Out<"center", Vector2d> center, Out<"f1", Float> f1, Out<"f2", Float> f2,
    Out<"index", Int> index)
{
    distance = 0.0;
    direction = Vector2d();
    center = Vector2d();
    f1 = 0.0;
    f2 = 0.0;
    index = 0;
    const PointArray* const array = distribution->Get();
    if (!array || array->points.IsEmpty())
        return;

    const Vector2d at{context->uvw.x, context->uvw.y};
    const NearestPoints found = FindNearest(array->points, at, *mode, exponent);
    distance = found.nearest;
    f1 = found.second - found.first;
    f2 = found.second;
    if (found.index < 0)
        return; // no distance is a number
    const Vector2d nearest = array->points[found.index];
    const Vector2d toSample{at.x - nearest.x, at.y - nearest.y};
    const Float length = std::sqrt(toSample.x * toSample.x + toSample.y * toSample.y);
    if (length != 0.0)
        direction = Vector2d{toSample.x / length, toSample.y / length};
    center = nearest;
    index = found.index;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.2d.pointgenerator", PointGenerator);
VELTO_CORE_NODE("net.velto.pattern.corenode.generator.cells", Cells);

} // namespace velto::pattern
