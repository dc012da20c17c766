// Places turned and scaled square items at random on the unit tile, and moves the coordinate into the one that lies
// under the sample.
#include "../limits.h"
#include "velto/node.h"
#include "velto/random.h"

#include <cmath>

namespace velto::pattern
{

struct ScatterBox
{
    Float minX = 0.0;
    Float minY = 0.0;
    Float maxX = 0.0;
    Float maxY = 0.0;

    // A box that is not ordered counts as the origin.
    ScatterBox Ordered() const { return maxX >= minX && maxY >= minY ? *this : ScatterBox(); }
    ScatterBox Moved(Float x, Float y) const { return {minX + x, minY + y, maxX + x, maxY + y}; }
};

// Touching is overlapping.
static bool Overlaps(const ScatterBox& first, const ScatterBox& second)
{
    const ScatterBox a = first.Ordered();
    const ScatterBox b = second.Ordered();
    return b.maxX >= a.minX && a.minY <= b.maxY && a.maxX >= b.minX && b.minY <= a.maxY;
}

// One placed item, or the copy of one that reappears at the opposite edge.
struct ScatterCachedBucketData
{
    Vector2d position;
    Float rotation = 0.0;
    Vector2d inverseScale;
    Int32 index = 0; // of the item; its copies have the same
    ScatterBox box;
};

using ScatterBuckets = BaseArray<BaseArray<Int>>; // places in the splats
using ScatterSplats = BaseArray<ScatterCachedBucketData>;

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::ScatterCachedBucketData, "net.velto.datatype.scattercachedbucketdata");
VELTO_DATA_TYPE(velto::pattern::ScatterBuckets, "net.velto.datatype.scatterbuckets");
VELTO_DATA_TYPE(velto::pattern::ScatterSplats, "net.velto.datatype.scattersplats");

namespace velto::pattern
{

VELTO_PUBLISH_DATA_TYPE(ScatterCachedBucketData);

static constexpr Int kMostItems = 100'000;
static constexpr Int kGrid = 16; // buckets along an axis
static constexpr Float kBucketSize = 0.0625;
static constexpr ScatterBox kUnitBox{0.0, 0.0, 1.0, 1.0};

static void SetPoint(ShadingContext& context, const Vector& at)
{
    context.uvw = at;
    context.uvwPlusDeltaU = at;
    context.uvwPlusDeltaV = at;
}

template <class T>
static Result Call(const FunctionOf<T>& function, const ShadingContext& context, T& value)
{
    value = T{};
    return function.Invoke(value, context);
}

// What decides over an item, evaluated at its place.
struct ScatterFunctions
{
    const FloatFunction* skipProbability; // null: none is skipped
    const FloatFunction& rotation;
    const FloatFunction& randomRotation;
    const Vector2dFunction& scale;
    const Vector2dFunction& randomScale;
    const FloatFunction& randomScaleUniform;
    const BoolFunction& uniformScale;
};

// Makes the items and files them in the buckets, once.
class ScatterBuild
{
public:
    ScatterBuild(UInt32 seed, Bool tile, Bool removeOverlaps, const ShadingContext& context, ScatterBuckets& buckets,
        ScatterSplats& splats)
        : random_(seed), tile_(tile), removeOverlaps_(removeOverlaps), buckets_(buckets), splats_(splats),
          copy_(context), context_(*copy_)
    {
        static constexpr Vector kUp{0.0, 1.0, 0.0};
        context_.samplePosition = {};
        context_.geometricNormal = kUp;
        context_.secondNormal = kUp;
        context_.shadingNormal = kUp;
    }

    Result Run(UInt32 count, const ScatterFunctions& functions)
    {
        VELTO_TRY(splats_.EnsureCapacity(count));
        VELTO_TRY(buckets_.Resize(kGrid * kGrid));
        for (BaseArray<Int>& bucket : buckets_)
            VELTO_TRY(bucket.EnsureCapacity(Int(count) * (tile_ ? 5 : 1)));
        for (UInt32 number = 0; number < count; ++number)
            VELTO_TRY(Add(number, functions));
        for (BaseArray<Int>& bucket : buckets_)
            VELTO_TRY(bucket.Shrink());
        return splats_.Shrink();
    }

private:
    Result Add(UInt32 number, const ScatterFunctions& functions)
    {
        const Float px = random_.Next01();
        const Float py = random_.Next01();
        // The widths carry over from item to item.
        const Float dx = std::abs(context_.uvw.x - context_.uvwPlusDeltaU.x);
        const Float dy = std::abs(context_.uvw.y - context_.uvwPlusDeltaV.y);
        context_.uvw = {px, py, 0.0};
        context_.uvwPlusDeltaU = {px + dx, py, 0.0};
        context_.uvwPlusDeltaV = {px, py + dy, 0.0};

        if (functions.skipProbability)
        {
            Float probability = 0.0;
            VELTO_TRY(Call(*functions.skipProbability, context_, probability));
            if (probability > random_.Next01())
                return {};
        }
        Float rotation = 0.0;
        Float randomRotation = 0.0;
        Vector2d scale;
        Bool uniform = false;
        Vector2d randomScale;
        Float randomScaleUniform = 0.0;
        VELTO_TRY(Call(functions.rotation, context_, rotation));
        VELTO_TRY(Call(functions.randomRotation, context_, randomRotation));
        VELTO_TRY(Call(functions.scale, context_, scale));
        VELTO_TRY(Call(functions.uniformScale, context_, uniform));
        VELTO_TRY(Call(functions.randomScale, context_, randomScale));
        VELTO_TRY(Call(functions.randomScaleUniform, context_, randomScaleUniform));

        const Float angle = -(rotation + randomRotation * (2.0 * random_.Next01() - 1.0));
        if (uniform)
            randomScale = {randomScaleUniform, randomScaleUniform};
        const Float t1 = 2.0 * random_.Next01() - 1.0;
        const Float t2 = uniform ? t1 : 2.0 * random_.Next01() - 1.0;
        const Vector2d size{scale.x + randomScale.x * t1 * 2.0, scale.y + randomScale.y * t2 * 2.0};
        if (size.x == 0.0 || size.y == 0.0)
            return {};

        const ScatterBox box = BoxOf(px, py, angle, size);
        if (!Overlaps(box, kUnitBox))
            return {};
        placed_ = 0;
        const ScatterCachedBucketData item{
            {px, py}, -angle, {1.0 / size.x, 1.0 / size.y}, static_cast<Int32>(number), box};
        Place(item);
        if (tile_ && (box.minX < 0.0 || box.minY < 0.0 || box.maxX > 1.0 || box.maxY > 1.0))
            PlaceCopies(item);
        File();
        return {};
    }

    // The smallest box around an item; scaled after it is turned.
    static ScatterBox BoxOf(Float px, Float py, Float angle, const Vector2d& size)
    {
        const Float c = std::cos(angle);
        const Float s = std::sin(angle);
        const auto corner = [&](Float cx, Float cy) {
            return Vector2d{(cx * c - cy * s) * size.x + px, (cx * s + cy * c) * size.y + py};
        };
        const Vector2d corners[] = {corner(-0.5, -0.5), corner(0.5, -0.5), corner(-0.5, 0.5), corner(0.5, 0.5)};
        ScatterBox box{corners[0].x, corners[0].y, corners[0].x, corners[0].y};
        for (const Vector2d& at : corners)
        {
            box = {at.x < box.minX ? at.x : box.minX, at.y < box.minY ? at.y : box.minY,
                at.x > box.maxX ? at.x : box.maxX, at.y > box.maxY ? at.y : box.maxY};
        }
        return box;
    }

    void Place(const ScatterCachedBucketData& record)
    {
        if (removeOverlaps_ && OverlapsAnother(record))
            return;
        if (splats_.Append(record).IsOk())
            places_[placed_++] = splats_.Count() - 1;
    }

    void PlaceCopies(const ScatterCachedBucketData& item)
    {
        for (int x = -1; x <= 1; ++x)
        {
            for (int y = -1; y <= 1; ++y)
            {
                if (x == 0 && y == 0)
                    continue;
                ScatterCachedBucketData copy = item;
                copy.position = {item.position.x + x, item.position.y + y};
                copy.box = item.box.Moved(x, y);
                if (Overlaps(copy.box, kUnitBox))
                    Place(copy);
            }
        }
    }

    bool OverlapsAnother(const ScatterCachedBucketData& record) const
    {
        for (const ScatterCachedBucketData& other : splats_)
        {
            if (other.index != record.index && Overlaps(record.box, other.box))
                return true;
        }
        return false;
    }

    void File()
    {
        for (Int i = 0; i < kGrid; ++i)
        {
            const Float x = static_cast<Float>(i) * kBucketSize;
            for (Int j = 0; j < kGrid; ++j)
            {
                const Float y = static_cast<Float>(j) * kBucketSize;
                const ScatterBox cell{x, y, kBucketSize + x, kBucketSize + y};
                for (Int k = 0; k < placed_; ++k)
                {
                    if (Overlaps(splats_[places_[k]].box, cell))
                        buckets_[i + kGrid * j].Append(places_[k]).Ignore(); // without memory it does not show here
                }
            }
        }
    }

    RandomStream random_;
    Bool tile_;
    Bool removeOverlaps_;
    ScatterBuckets& buckets_;
    ScatterSplats& splats_;
    ContextCopy copy_;
    ShadingContext& context_;
    // The current item and its copies.
    Int places_[9] = {};
    Int placed_ = 0;
};

// The bucket under a point of the unit tile, or null beside the grid.
static const BaseArray<Int>* BucketAt(const ScatterBuckets& buckets, Float x, Float y)
{
    const Float number = std::floor(16.0 * x) + 16.0 * std::floor(16.0 * y);
    return number >= 0.0 && number < static_cast<Float>(buckets.Count()) ? &buckets[static_cast<Int>(number)] : nullptr;
}

static Result Scatter(Argument<"count", 1> count, In<"context", ShadingContext> context,
    In<"contextLocal", ShadingContext> local, In<"seed", UInt32> seed, In<"tile", Bool> tile,
    In<"removeOverlaps", Bool> removeOverlaps, Connected<"perItemDensity", FloatFunction> density,
    Connected<"perItemSkipProbability", FloatFunction> skipProbability, Connected<"perItemShape", FloatFunction> shape,
    In<"perItemRotation", FloatFunction> rotation, In<"perItemRandomRotation", FloatFunction> randomRotation,
    In<"perItemScale", Vector2dFunction> scale, In<"perItemRandomScale", Vector2dFunction> randomScale,
    In<"perItemRandomScaleUniform", FloatFunction> randomScaleUniform,
    In<"perItemUniformScale", BoolFunction> uniformScale, Out<"resultContext", ShadingContext> result,
    Optional<"mask", Bool> mask, Optional<"index", Int> index, Optional<"center", Vector2d> center,
    State<"buckets", ScatterBuckets> buckets, State<"splats", ScatterSplats> splats)
{
    const Float x = local->uvw.x - std::floor(local->uvw.x);
    const Float y = local->uvw.y - std::floor(local->uvw.y);
    CopyContext(*result, *local);

    if (buckets->IsEmpty())
    {
        VELTO_CHECK_ARGUMENT(count >= 0);
        VELTO_TRY(CheckLimit("items (count)", count, kMostItems));
        const ScatterFunctions functions{skipProbability.IsConnected() ? &*skipProbability : nullptr, rotation,
            randomRotation, scale, randomScale, randomScaleUniform, uniformScale};
        ScatterBuild build(seed, tile, removeOverlaps, context, *buckets, *splats);
        VELTO_TRY(build.Run(static_cast<UInt32>(Max<Int>(count, 1)), functions));
    }
    const BaseArray<Int>* const bucket = BucketAt(*buckets, x, y);
    if (!bucket)
        return {};

    ContextCopy itemContext(*context);
    for (const Int place : *bucket)
    {
        const ScatterCachedBucketData& item = (*splats)[place];
        RandomStream random(*seed + 124u * static_cast<UInt32>(place) + 123u);
        if (item.inverseScale.x == 0.0 || item.inverseScale.y == 0.0)
            continue;
        SetPoint(*itemContext, {item.position.x, item.position.y, 0.0});
        if (density.IsConnected())
        {
            Float share = 0.0;
            VELTO_TRY(Call(*density, *itemContext, share));
            if (share == 0.0 || random.Next01() > share)
                continue;
        }
        const Float dx = x - item.position.x;
        const Float dy = y - item.position.y;
        const Float c = std::cos(item.rotation);
        const Float s = std::sin(item.rotation);
        const Float u = (dx * c - dy * s) * item.inverseScale.x + 0.5;
        const Float v = (dx * s + dy * c) * item.inverseScale.y + 0.5;
        if (u < 0.0 || v < 0.0 || u > 1.0 || v > 1.0)
            continue;
        const Vector at{u, v, 0.0};
        SetPoint(*itemContext, at);
        if (shape.IsConnected())
        {
            Float inside = 0.0;
            VELTO_TRY(Call(*shape, *itemContext, inside));
            if (inside < 0.5)
                continue;
        }
        SetPoint(*result, at);
        result->uvwValid = true;
        mask = true;
        index = Int(item.index) + 1;
        center = item.position;
        return {};
    }
    result->uvwValid = false;
    mask = false;
    index = Int(0);
    center = Vector2d();
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.scatter", Scatter);

} // namespace velto::pattern
