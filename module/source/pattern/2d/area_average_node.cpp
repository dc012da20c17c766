// The mean of a colour over the unit square, weighted by a mask: one colour for all samples, worked out by the first.
#include "../limits.h"
#include "sampling.h"
#include "velto/node.h"

namespace velto::pattern::twod
{

static constexpr Int kMostGridPoints = 100'000'000;

static Result AreaAverage(In<"context", ShadingContext> context, In<"color", ColorAFunction> color,
    In<"width", UInt32> width, In<"height", UInt32> height, In<"mask", FloatFunction> mask,
    In<"renderMode", RenderMode> renderMode, Once<"result", ColorA> result)
{
    // The result is its own memo: only the opaque black that stands there at first adds up to 1. NaN does not either.
    if (!(result->r + result->g + result->b + result->a == 1.0))
        return {};

    const UInt32 w = PreviewLimited(*width, *renderMode);
    const UInt32 h = PreviewLimited(*height, *renderMode);
    VELTO_TRY(CheckLimit("grid points", Int(w) * Int(h), kMostGridPoints));
    ShadingContext local;
    CopyContext(local, *context);
    const Float halfU = (1.0 / w) * 0.5;
    const Float halfV = (1.0 / h) * 0.5;
    ColorA sum = kTransparentBlack;
    UInt count = 0;
    for (UInt32 x = 0; x < w; ++x)
    {
        for (UInt32 y = 0; y < h; ++y)
        {
            MoveTo(local, {static_cast<Float>(x) / w + halfU, static_cast<Float>(y) / h + halfV, 0.0});
            Float weight = 0.0;
            VELTO_TRY(mask->Invoke(weight, local));
            if (weight <= 0.0)
                continue;
            ColorA point;
            VELTO_TRY(Sample(*color, local, point));
            AddScaled(sum, point, weight);
            ++count;
        }
    }
    const Float share = count > 0 ? 1.0 / static_cast<Float>(count) : 0.0;
    result = ColorA{sum.r * share, sum.g * share, sum.b * share, sum.a * share};
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.2d.areaaverage", AreaAverage);

} // namespace velto::pattern::twod
