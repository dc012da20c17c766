// An upstream graph turned into a raster ahead of sampling, and the look-ups that read it back.
#pragma once

#include "../generator/truncate.h"
#include "parallelfor.h"
#include "sampling.h"
#include "velto/bakedimagedata.h"

#include <cmath>
#include <limits>

namespace velto::pattern::twod
{

// Puts an empty raster where there is none.
inline Result EnsureImage(BakedImageDataRef& image)
{
    if (!image)
        image = MakeShared<SharedBakedImageData>();
    return image ? Result() : OutOfMemory();
}

// Fills the raster with `function` sampled at the centre of each pixel. A sample that fails ends its row, and nobody is
// told: what is left of the row stays as it was, new pixels are opaque black. Only memory can run out; sizes and pixels
// disagree then.
inline Result PrecomputePortData(const SearchPathsType& searchPaths, const ColorAFunction& function,
    BakedImageData& data, UInt32 width, UInt32 height)
{
    data.width = width;
    data.height = height;
    const UInt count = static_cast<UInt>(width) * height;
    if (count > std::numeric_limits<UInt32>::max())
        return OutOfMemory();
    const UInt oldCount = static_cast<UInt>(data.pixels.Count());
    VELTO_TRY(data.pixels.ResizeForOverwrite(static_cast<Int>(count)));
    if (count == 0)
        return {};

    ColorA* const pixels = data.pixels.Data();
    const Float halfU = (1.0 / width) * 0.5;
    const Float halfV = (1.0 / height) * 0.5;
    ParallelFor::Dynamic(UInt32(0), height, [=, &searchPaths, &function](UInt32 y) {
        ShadingContext context;
        context.searchPaths = &searchPaths;
        context.uvwValid = true;
        const UInt begin = static_cast<UInt>(y) * width;
        const UInt end = begin + width;
        const Float v = static_cast<Float>(y) / height + halfV;
        UInt pixel = begin;
        for (; pixel < end; ++pixel)
        {
            MoveTo(context, {static_cast<Float>(pixel - begin) / width + halfU, v, 0.0});
            const ColorA before = pixel < oldCount ? pixels[pixel] : kOpaqueBlack;
            if (Sample(function, context, pixels[pixel]).IsError())
            {
                pixels[pixel] = before;
                break;
            }
        }
        for (pixel = Max(pixel, oldCount); pixel < end; ++pixel)
            pixels[pixel] = kOpaqueBlack;
    });
    return {};
}

// --- Look-ups in a usable raster, from a place in [0, 1]. Places are 32-bit, colours are mixed in 64 bits. ---

inline Float32 Fraction(Float32 x)
{
    return x - std::floor(x);
}

inline ColorA LookUpNearest(const BakedImageData& image, Float32 u, Float32 v)
{
    const Float32 x = std::floor(u * static_cast<Float32>(image.width));
    const Float32 y = std::floor(v * static_cast<Float32>(image.height));
    // A place of exactly 1 is outside, and so is NaN.
    if (!(x >= 0.0f && static_cast<Float>(x) < image.width && y >= 0.0f && static_cast<Float>(y) < image.height))
        return kOpaqueBlack;
    return image.At(static_cast<Int>(x), static_cast<Int>(y));
}

// The raster repeats on all sides.
inline ColorA LookUpLinear(const BakedImageData& image, Float32 u, Float32 v)
{
    struct Axis
    {
        Int i0;
        Int i1;
        Float t;

        Axis(Float32 place, UInt32 size)
        {
            const Float32 at = place * static_cast<Float32>(size) - 0.5f;
            const Float32 whole = std::floor(at);
            t = at - whole;
            const Int i = Truncate<Int>(whole);
            i0 = Wrap(i, size);
            i1 = Wrap(i + 1, size);
        }
        static Int Wrap(Int i, Int size)
        {
            i += i >= size ? -size : i < 0 ? size : 0;
            return i >= 0 && i < size ? i : 0;
        }
    };
    const Axis x(u, image.width);
    const Axis y(v, image.height);
    const ColorA top = Mix(image.At(x.i0, y.i0), image.At(x.i1, y.i0), x.t);
    const ColorA bottom = Mix(image.At(x.i0, y.i1), image.At(x.i1, y.i1), x.t);
    return Mix(top, bottom, y.t);
}

} // namespace velto::pattern::twod
