// Repeats a pattern in rows and columns, each copy moved, turned, scaled and shaded at random.
#include "pulse.h"
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

VELTO_INTERNED_ID(kMaximum, "maximum");
VELTO_INTERNED_ID(kAdd, "add");

static constexpr Int kMostReach = 4; // cells on each side that a copy may cover

// How copies differ.
struct TileVariation
{
    Vector2d scale;
    Float randomScale;
    Float rotation;
    Float randomRotation;
    Float jitter;
    Float density;
    Float shade;
    UInt32 seed;
};

// A copy: its middle in cells, and the map from cells to its own coordinate.
struct TileCopy
{
    Vector2d middle;
    Float sine;
    Float cosine;
    Vector2d inverseScale;
    Float brightness;
    bool isShown;

    TileCopy(Float column, Float row, Float shift, Int number, const TileVariation& by)
    {
        RandomStream random = CellStream(by.seed, number);
        const auto around = [&random] { return 2.0 * random.Next01() - 1.0; };
        isShown = random.Next01() < by.density;
        middle.x = column + shift + 0.5 + 0.5 * by.jitter * around();
        middle.y = row + 0.5 + 0.5 * by.jitter * around();
        const Float angle = by.rotation + by.randomRotation * around();
        sine = std::sin(angle);
        cosine = std::cos(angle);
        const Float size = 1.0 - Clamp01(by.randomScale) * random.Next01();
        inverseScale = {1.0 / (by.scale.x * size), 1.0 / (by.scale.y * size)};
        brightness = 1.0 - Clamp01(by.shade) * random.Next01();
    }

    // 0 to 1 both ways within the copy.
    Vector Local(const Vector2d& cells) const
    {
        const Float x = cells.x - middle.x;
        const Float y = cells.y - middle.y;
        return {(x * cosine + y * sine) * inverseScale.x + 0.5, (y * cosine - x * sine) * inverseScale.y + 0.5, 0.0};
    }
};

static bool IsWithin(const Vector& local)
{
    return local.x >= 0.0 && local.x <= 1.0 && local.y >= 0.0 && local.y <= 1.0;
}

static Result TileSampler(In<"context", ShadingContext> context, In<"contextLocal", ShadingContext> local,
    In<"shape", ColorAFunction> shape, In<"background", ColorA> background, In<"columns", Int> columnCount,
    In<"rows", Int> rowCount, In<"offset", Float> offset, In<"scale", Vector2d> scale,
    In<"randomScale", Float> randomScale, In<"rotation", Float> rotation, In<"randomRotation", Float> randomRotation,
    In<"jitter", Float> jitter, In<"density", Float> density, In<"shade", Float> shade,
    In<"combine", InternedId> combine, In<"seed", UInt32> seed, State<"cache", Data> cache,
    Out<"result", ColorA> result, Out<"index", Int> index, Out<"random", Float> random)
{
    result = *background;
    index = Int(-1);
    random = 0.0;
    if (!local->uvwValid)
    {
        result = kTransparentBlack;
        return {};
    }
    const auto size = [](Float wanted) { return wanted > 1e-6 ? Min(wanted, Float(kMostReach)) : 1e-6; };
    const TileVariation variation{
        {size(scale->x), size(scale->y)}, randomScale, rotation, randomRotation, Clamp01(jitter), density, shade, seed};
    const Int columns = CellCount(columnCount);
    const Int rows = CellCount(rowCount);
    const auto inCells = [&](const Vector& uvw) {
        return Vector2d{uvw.x * static_cast<Float>(columns), uvw.y * static_cast<Float>(rows)};
    };
    const Vector2d at = inCells(local->uvw);
    const Vector2d nextU = inCells(local->uvwPlusDeltaU);
    const Vector2d nextV = inCells(local->uvwPlusDeltaV);
    if (!(std::abs(at.x) < 1e12 && std::abs(at.y) < 1e12))
        return {};

    const Float halfDiagonal =
        0.5 * std::sqrt(variation.scale.x * variation.scale.x + variation.scale.y * variation.scale.y);
    const Int reach = Min(static_cast<Int>(halfDiagonal + 0.5 * variation.jitter + 0.5), kMostReach);
    ContextCopy probe(*context);
    probe->uvwValid = true;
    probe->tileModeU = kTileNone;
    probe->tileModeV = kTileNone;
    for (Int y = -reach; y <= reach; ++y)
    {
        const Float row = Floor(at.y) + static_cast<Float>(y);
        const Int wrappedRow = WrappedCell(row, rows);
        const Float shift = (wrappedRow & 1) != 0 ? *offset - Floor(offset) : 0.0;
        for (Int x = -reach; x <= reach; ++x)
        {
            const Float column = Floor(at.x - shift) + static_cast<Float>(x);
            const Int number = wrappedRow * columns + WrappedCell(column, columns);
            const TileCopy copy(column, row, shift, number, variation);
            const Vector place = copy.Local(at);
            if (!copy.isShown || !IsWithin(place))
                continue;
            probe->uvw = place;
            probe->uvwPlusDeltaU = copy.Local(nextU);
            probe->uvwPlusDeltaV = copy.Local(nextV);
            ColorA color = kTransparentBlack;
            VELTO_TRY(shape->Invoke(color, *probe, &*cache));
            color = {color.r * copy.brightness, color.g * copy.brightness, color.b * copy.brightness, color.a};
            ColorA& below = *result;
            const Float covered = Clamp01(color.a);
            if (*combine == kMaximum)
            {
                below = {Max(below.r, color.r * covered), Max(below.g, color.g * covered),
                    Max(below.b, color.b * covered), Max(below.a, covered)};
            }
            else if (*combine == kAdd)
            {
                below = {below.r + color.r * covered, below.g + color.g * covered, below.b + color.b * covered,
                    Max(below.a, covered)};
            }
            else
            {
                const Float alpha = below.a + (1.0 - below.a) * covered;
                below = Mix(below, color, covered);
                below.a = alpha;
            }
            if (covered >= 0.5)
            {
                index = number;
                random = CellStream(*seed + 1, number).Next01();
            }
        }
    }
    return {};
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.generator.tilesampler", TileSampler);

} // namespace velto::toolkit
