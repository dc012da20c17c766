// Two colours in square tiles of half a unit, mixed by the share of the sample's footprint that lies on each.
#include "velto/footprint.h"
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

static constexpr Float kCell = 0.5;
static constexpr Float kPoint = 1e-8; // a smaller extent is none

static Float WrapToTile(Float c, std::uint8_t tileMode)
{
    // The upper clamp stays inside the tile.
    return tileMode == kTileClamp ? Min(Max(c, 0.0), 0.99999) : c - std::floor(c);
}

// The footprint along one axis, in the coordinate of the sample's own cell.
struct CellSpan
{
    Float min;
    Float max;

    CellSpan(Float local, Float extent, bool secondHalf, std::uint8_t tileMode)
    {
        const Float halfWidth = Min(extent, kCell);
        min = local - halfWidth;
        max = local + halfWidth;
        if (tileMode != kTileNone && tileMode != kTileRepeat)
        {
            // The pattern ends at the tile's edge.
            if (secondHalf)
                max = Min(max, kCell);
            else
                min = Max(min, 0.0);
        }
    }
    Float Length() const { return max - min; }
    Float InsideCell() const { return Min(max, kCell) - Max(min, 0.0); }
};

// The share of the footprint that has the colour of the sample's own cell. The strips beside the cell are taken off;
// the corners beyond them stay in, since a diagonal neighbour has the cell's own colour.
static Float OwnShare(const CellSpan& u, const CellSpan& v)
{
    const Float area = u.Length() * v.Length();
    const Float insideU = u.InsideCell();
    const Float insideV = v.InsideCell();
    Float f = area;
    if (u.max > kCell)
        f -= (u.max - kCell) * insideV;
    if (u.min < 0.0)
        f += insideV * u.min;
    if (v.max > kCell)
        f -= (v.max - kCell) * insideU;
    if (v.min < 0.0)
        f += insideU * v.min;
    return f / (area == 0.0 ? 1.0 : area);
}

static Result Checkerboard(In<"context", ShadingContext> context, In<"contextLocal", ShadingContext> local,
    In<"color1", ColorAFunction> color1, In<"color2", ColorAFunction> color2, State<"cache1", Data> cache1,
    State<"cache2", Data> cache2, Out<"result", ColorA> result)
{
    if (!local->uvwValid)
    {
        result = kTransparentBlack;
        return {};
    }
    const auto single = [&](const ColorAFunction& function, Data& cache) {
        *result = kOpaqueBlack;
        return function.Invoke(*result, *context, &cache);
    };

    const Vector extent = Footprint<2>(*local);
    Float w = extent.x;
    Float h = extent.y;
    Float u = WrapToTile(local->uvw.x, local->tileModeU);
    Float v = WrapToTile(local->uvw.y, local->tileModeV);

    if (w < kPoint && h < kPoint)
        return (u > 0.5) == (v > 0.5) ? single(*color1, *cache1) : single(*color2, *cache2);

    const bool secondU = u >= 0.5;
    const bool secondV = v >= 0.5;
    if (secondU)
        u -= 0.5;
    if (secondV)
        v -= 0.5;
    // An axis without footprint gets one that stays inside the cell, so that the box has an area.
    if (w < kPoint)
    {
        u = 0.2;
        w = 0.1;
    }
    else if (h < kPoint)
    {
        v = 0.2;
        h = 0.1;
    }

    Float weight2 = OwnShare(CellSpan(u, w, secondU, local->tileModeU), CellSpan(v, h, secondV, local->tileModeV));
    if (secondU == secondV)
        weight2 = 1.0 - weight2;
    if (weight2 <= 0.0)
        return single(*color1, *cache1);
    if (weight2 >= 1.0)
        return single(*color2, *cache2);

    ColorA c1 = kOpaqueBlack;
    ColorA c2 = kOpaqueBlack;
    VELTO_TRY(color1->Invoke(c1, *context, &*cache1));
    VELTO_TRY(color2->Invoke(c2, *context, &*cache2));
    result = Mix(c1, c2, weight2);
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.checkerboard", Checkerboard);

} // namespace velto::pattern
