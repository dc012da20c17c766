// Blurs a colour in texture space: from a raster that is blurred ahead of sampling, by Gaussian weights over the cells
// around the sample, or from random places about it.
#include "../generator/truncate.h"
#include "../limits.h"
#include "bakedimagedata.h"
#include "boxblur.h"
#include "velto/mask.h"
#include "velto/random.h"

#include <cmath>
#include <numbers>

namespace velto::pattern::twod
{

VELTO_INTERNED_ID(kBaked, "baked");
VELTO_INTERNED_ID(kKernel, "kernel");
VELTO_INTERNED_ID(kStochastic, "stochastic");
VELTO_INTERNED_ID(kNearest, "nearest");

static constexpr Int kMostSamples = 1'000'000;
static constexpr Int kMostCells = 2'000; // on each side of the sample's own

static Result BlurPre(Connected<"color", ColorAFunction> color, In<"resolution", UInt32> resolution,
    In<"radius", Float> radius, In<"mode", InternedId> mode, In<"renderMode", RenderMode> renderMode,
    In<"searchPaths", SearchPathsType> searchPaths, Once<"imageData", BakedImageDataRef> imageData)
{
    if (*mode != kBaked)
        return {};
    VELTO_TRY(EnsureImage(*imageData));
    BakedImageData& image = **imageData;
    const UInt32 n = PreviewLimited(*resolution, *renderMode);
    if (!color.IsConnected() || image.Has(n, n))
        return {};
    VELTO_TRY(PrecomputePortData(*searchPaths, *color, image, n, n));
    return image.pixels.IsEmpty() ? Result() : BlurRaster(image.pixels, n, radius);
}

static ColorA LookUp(const BakedImageData& image, const Vector& uvw, const InternedId& interpolation)
{
    if (image.pixels.IsEmpty())
        return kTransparentBlack;
    if (!image.IsUsable())
        return kOpaqueBlack;
    const Float32 u = Fraction(static_cast<Float32>(uvw.x));
    const Float32 v = Fraction(static_cast<Float32>(uvw.y));
    return interpolation == kNearest ? LookUpNearest(image, u, v) : LookUpLinear(image, u, v);
}

// The weighted mean of the cells around the sample's own. Beyond the edge stand the cells at the edge.
static Result GaussianMean(
    const ColorAFunction& color, ShadingContext& context, Float radius, Int32 resolution, ColorA& mean)
{
    VELTO_CHECK_ARGUMENT(resolution > 0);
    constexpr Float kCutOff = 2.57; // standard deviations
    constexpr Float kTwoPi = 2.0 * std::numbers::pi;

    const Float n = resolution;
    const Float sigma = radius * n;
    // -1 is no cell at all.
    const Int reach = Max<Int>(Truncate<Int>(Min(std::ceil(sigma * kCutOff), 0x1p40)), -1);
    VELTO_TRY(CheckLimit("cells within the radius", reach, kMostCells));
    const auto cell = [n](Float c) {
        Float f = c - std::trunc(c);
        if (f < 0.0)
            f += 1.0;
        return Int(Truncate<Int32>(f * n));
    };
    const Float half = (1.0 / n) * 0.5;
    const auto centre = [resolution, n, half](
                            Int i) { return static_cast<Float>(Min<Int>(Max<Int>(i, 0), resolution - 1)) / n + half; };

    const Int cellX = cell(context.uvw.x);
    const Int cellY = cell(context.uvw.y);
    ColorA sum = kTransparentBlack;
    Float total = 0.0;
    for (Int x = cellX - reach; x <= cellX + reach; ++x)
    {
        for (Int y = cellY - reach; y <= cellY + reach; ++y)
        {
            const Float dx = static_cast<Float>(x - cellX);
            const Float dy = static_cast<Float>(y - cellY);
            const Float weight =
                sigma > 0.0 ? std::exp(-(dx * dx + dy * dy) / ((sigma + sigma) * sigma)) / (kTwoPi * sigma * sigma)
                            : 1.0;
            MoveTo(context, {centre(x), centre(y), 0.0});
            ColorA tap;
            VELTO_TRY(Sample(color, context, tap));
            AddScaled(sum, tap, weight);
            total += weight;
        }
    }
    if (total != 0.0)
        mean = {sum.r / total, sum.g / total, sum.b / total, sum.a / total};
    return {};
}

// Differs wherever the sample or, unless `staticNoise`, the frame does. Wraps.
static UInt32 StochasticSeed(const ShadingContext& context, Int32 seed, Bool staticNoise)
{
    const auto term = [](Float value) { return static_cast<UInt>(Truncate<Int>(value)); };
    const Vector& origin = context.rayOrigin;
    const Vector& direction = context.rayDirection;
    UInt sum = term(context.uvw.x * 15362.567) + term(context.uvw.y * 13671.123) +
               (static_cast<UInt>(context.pixel[0]) + static_cast<UInt>(context.pixel[1])) * 43778 +
               static_cast<UInt>(Int(seed)) + term((origin.x + origin.y + origin.z) * 12644.123) +
               term((direction.x + direction.y + direction.z) * 14551.123) +
               term((context.subpixel.x + context.subpixel.y) * 23676.123);
    if (!staticNoise)
    {
        const Float frames = context.time.seconds * context.frameRate;
        sum += term(context.time.seconds >= 0.0 ? frames + 0.001 : frames - 0.001) * 74643;
    }
    return static_cast<UInt32>(sum);
}

static Result StochasticMean(
    const ColorAFunction& color, ShadingContext& context, Float radius, Int32 samples, UInt32 seed, ColorA& mean)
{
    if (samples <= 0)
        return {};
    VELTO_TRY(CheckLimit("samples", samples, kMostSamples));
    RandomStream random = RandomStream::FromState(IntegerHash32(seed));
    const Vector centre = context.uvw;
    const Float reach = radius + radius;
    const Float s = 1024.0 / reach;
    ColorA sum = kTransparentBlack;
    for (Int32 i = 0; i < samples; ++i)
    {
        const auto jitter = [&](Float c) { return (2.0 * random.Next01() - 1.0) * reach + c; };
        const Float x = jitter(centre.x);
        const Float y = jitter(centre.y);
        const Float z = jitter(centre.z);
        MoveTo(context, {x, y, z});
        // Falls off from the coordinate origin, not from the sample.
        const Float weight = std::exp(-0.5 * ((1024.0 * x) * (1024.0 * x) + (1024.0 * y) * (1024.0 * y)) / s / s);
        ColorA tap;
        VELTO_TRY(Sample(color, context, tap));
        AddScaled(sum, tap, weight);
    }
    const Float share = 1.0 / samples;
    mean = {sum.r * share, sum.g * share, sum.b * share, sum.a * share};
    return {};
}

static Result Blur(In<"context", ShadingContext> context, In<"color", ColorAFunction> color, In<"radius", Float> radius,
    In<"resolution", Int32> resolution, In<"interpolation", InternedId> interpolation, In<"samples", Int32> samples,
    In<"seed", Int32> seed, In<"staticNoise", Bool> staticNoise, In<"mode", InternedId> mode,
    In<"imageData", BakedImageDataRef> imageData, Mask mask, In<"renderMode", RenderMode> renderMode,
    Out<"result", ColorA> result)
{
    ColorA base;
    VELTO_TRY(Sample(*color, *context, base));
    ColorA filtered = kTransparentBlack;
    if (*mode == kBaked)
    {
        if (!*imageData)
        {
            result = kOpaqueBlack;
            return {};
        }
        filtered = LookUp(**imageData, context->uvw, *interpolation);
    }
    else if (*mode == kKernel)
    {
        ShadingContext local;
        CopyContext(local, *context);
        VELTO_TRY(GaussianMean(*color, local, radius, PreviewLimited(*resolution, *renderMode), filtered));
    }
    else if (*mode == kStochastic && radius <= 0.0)
        VELTO_TRY(Sample(*color, *context, filtered));
    else if (*mode == kStochastic)
    {
        ShadingContext local;
        CopyContext(local, *context);
        VELTO_TRY(StochasticMean(*color, local, radius, samples, StochasticSeed(local, seed, staticNoise), filtered));
    }
    result = mask.Apply(base, filtered);
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.2d.blurpre", BlurPre);
VELTO_CORE_NODE("net.velto.pattern.corenode.2d.blur", Blur);

} // namespace velto::pattern::twod
