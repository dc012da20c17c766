// Three box blurs that together come close to a Gaussian, at a cost that does not depend on the radius.
#pragma once

#include "parallelfor.h"
#include "velto/array.h"

#include <array>
#include <cmath>

namespace velto::pattern::twod
{

inline constexpr std::size_t kBoxStages = 3;

// The odd widths of the boxes whose variances add up to that of a Gaussian of `radius`, a fraction of the `edge`.
inline std::array<Int32, kBoxStages> BoxSizes(UInt32 edge, Float radius)
{
    // No box may be wider than the raster; a negative or NaN radius is none.
    const Float sigma = Min(edge * (radius > 0.0 ? radius : 0.0), (edge - 1.0) * 0.5);
    const Float x = 12.0 * sigma * sigma;
    Int32 lower = static_cast<Int32>(std::floor(std::sqrt(x / 3.0 + 1.0)));
    if (lower % 2 == 0)
        --lower;
    const Float w = lower;
    const Float lowerCount = std::round((x - 3.0 * w * w - 12.0 * w - 9.0) / (-4.0 * w - 4.0));
    std::array<Int32, kBoxStages> sizes;
    for (std::size_t i = 0; i < kBoxStages; ++i)
        sizes[i] = static_cast<Float>(i) < lowerCount ? lower : lower + 2;
    return sizes;
}

// The box blur of `Lines` lines that lie side by side in memory, pixel j of each `step` pixels behind pixel j - 1.
// Beyond its ends a line goes on with its first and last pixel.
template <Int Lines>
void BoxBlurLines(const ColorA* source, ColorA* target, Int n, Int r, Int step)
{
    constexpr Int kValues = Lines * 4;
    static_assert(sizeof(ColorA) == 4 * sizeof(Float));
    const Int stride = step * 4;
    const auto in = [from = &source->r, stride](Int j) { return from + j * stride; };
    const auto out = [to = &target->r, stride](Int j) { return to + j * stride; };
    // A block of columns jumps from page to page, where the processor does not look ahead by itself.
    const auto prefetch = [&](const Float* row) {
        constexpr Int kRowsAhead = 2;
        constexpr Int kLine = 64 / sizeof(Float);
        if constexpr (Lines > 1)
        {
            for (Int k = 0; k < kValues; k += kLine)
                __builtin_prefetch(row + kRowsAhead * stride + k);
        }
    };

    const Float scale = 1.0 / static_cast<Float>(2 * r + 1);
    const Float* const first = in(0);
    const Float* const last = in(n - 1);
    Float sum[kValues];
    const auto advance = [&sum, scale](const Float* entering, const Float* leaving, Float* __restrict to) {
        for (Int k = 0; k < kValues; ++k)
        {
            sum[k] = sum[k] + entering[k] - leaving[k];
            to[k] = sum[k] * scale;
        }
    };

    for (Int k = 0; k < kValues; ++k)
        sum[k] = static_cast<Float>(r + 1) * first[k];
    for (Int j = 0; j < r; ++j)
    {
        prefetch(in(j));
        for (Int k = 0; k < kValues; ++k)
            sum[k] = sum[k] + in(j)[k];
    }
    for (Int j = 0; j <= r; ++j)
    {
        prefetch(in(j + r));
        prefetch(out(j));
        advance(in(j + r), first, out(j));
    }
    for (Int j = r + 1; j < n - r; ++j)
    {
        prefetch(in(j + r));
        prefetch(in(j - r - 1));
        prefetch(out(j));
        advance(in(j + r), in(j - r - 1), out(j));
    }
    for (Int j = n - r; j < n; ++j)
    {
        prefetch(in(j - r - 1));
        prefetch(out(j));
        advance(last, in(j - r - 1), out(j));
    }
}

// Blurs the rows of a square raster with a box of 2 * radius + 1 pixels, which must not be wider than the raster.
inline void BoxBlurH(const BaseArray<ColorA>& source, BaseArray<ColorA>& target, Int32 edge, Int32 radius)
{
    ParallelFor::Dynamic(Int32(0), edge, [&](Int32 y) {
        const Int row = static_cast<Int>(y) * edge;
        BoxBlurLines<1>(source.Data() + row, target.Data() + row, edge, radius, 1);
    });
}

// The same along the columns.
inline void BoxBlurT(const BaseArray<ColorA>& source, BaseArray<ColorA>& target, Int32 edge, Int32 radius)
{
    ParallelFor::DynamicBatches(Int32(0), edge, [&](Int32 first, Int32 end) {
        const auto blur = [&]<Int Lines>(std::integral_constant<Int, Lines>) {
            for (; end - first >= Lines; first += Lines)
                BoxBlurLines<Lines>(source.Data() + first, target.Data() + first, edge, radius, edge);
        };
        blur(std::integral_constant<Int, 16>());
        blur(std::integral_constant<Int, 4>());
        blur(std::integral_constant<Int, 1>());
    });
}

// Blurs a square raster. Each stage goes along the rows into a second raster and along the columns back; without memory
// for the second one the raster stays as it was.
inline Result BlurRaster(BaseArray<ColorA>& pixels, UInt32 edge, Float radius)
{
    BaseArray<ColorA> between;
    VELTO_TRY(between.ResizeForOverwrite(pixels.Count()));
    for (const Int32 size : BoxSizes(edge, radius))
    {
        const Int32 r = (size - 1) / 2;
        BoxBlurH(pixels, between, static_cast<Int32>(edge), r);
        BoxBlurT(between, pixels, static_cast<Int32>(edge), r);
    }
    return {};
}

} // namespace velto::pattern::twod
