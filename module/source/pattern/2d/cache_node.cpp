// Keeps a costly colour in a raster, so that samples read it instead of working it out.
#include "bakedimagedata.h"
#include "velto/node.h"

namespace velto::pattern::twod
{

VELTO_INTERNED_ID(kNearest, "nearest");
VELTO_INTERNED_ID(kLinear, "linear");

static Result CachePre(Connected<"color", ColorAFunction> color, In<"width", UInt32> width, In<"height", UInt32> height,
    In<"renderMode", RenderMode> renderMode, In<"searchPaths", SearchPathsType> searchPaths,
    Once<"imageData", BakedImageDataRef> imageData)
{
    VELTO_TRY(EnsureImage(*imageData));
    BakedImageData& image = **imageData;
    if (IsPreview(*renderMode))
    {
        image.pixels.Reset();
        return {};
    }
    if (!color.IsConnected() || image.Has(width, height))
        return {};
    return PrecomputePortData(*searchPaths, *color, image, width, height);
}

// Wrapped in 64 bits first: a place just below 0 ends up inside.
static Float32 Place(Float c)
{
    return Fraction(static_cast<Float32>(c - std::floor(c)));
}

static Result Cache(In<"color", ColorAFunction> color, In<"context", ShadingContext> context,
    In<"interpolation", InternedId> interpolation, In<"imageData", BakedImageDataRef> imageData,
    Optional<"result", ColorA> result)
{
    if (!*imageData)
    {
        result = kOpaqueBlack;
        return {};
    }
    const BakedImageData& image = **imageData;
    if (image.pixels.IsEmpty())
    {
        ColorA live;
        VELTO_TRY(Sample(*color, *context, live));
        *result = live;
        return {};
    }
    const bool isLinear = *interpolation == kLinear;
    if (!isLinear && *interpolation != kNearest)
        return {};
    if (!image.IsUsable())
    {
        result = kOpaqueBlack;
        return {};
    }
    const Float32 u = Place(context->uvw.x);
    const Float32 v = Place(context->uvw.y);
    result = isLinear ? LookUpLinear(image, u, v) : LookUpNearest(image, u, v);
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.2d.cachepre", CachePre);
VELTO_CORE_NODE("net.velto.pattern.corenode.2d.cache", Cache);

} // namespace velto::pattern::twod
