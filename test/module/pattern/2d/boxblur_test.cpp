#include "module/source/pattern/2d/boxblur.h"

#include "host/system/allocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace velto::pattern::twod
{

namespace
{

using Sizes = std::array<Int32, kBoxStages>;

// Of three boxes after one another, in twelfths of a square pixel: whole numbers.
Float Variance(const Sizes& sizes)
{
    Float sum = 0.0;
    for (const Int32 size : sizes)
        sum += Float(size) * size - 1.0;
    return sum;
}

// Of all triples of two neighbouring odd widths, the smaller ones first, the one whose variance is nearest; the smaller
// one of two equally near.
TEST(BoxSizes, VariancesAddUpToTheGaussian)
{
    for (const UInt32 edge : {2u, 3u, 7u, 64u, 65u, 1000u, 8192u})
    {
        for (const Float radius : {0.0, 0.0005, 0.003, 0.01, 0.0213, 0.05, 0.11, 0.2, 0.31})
        {
            const Float sigma = edge * radius;
            if (sigma > (edge - 1.0) / 2.0)
                continue;
            const auto error = [&](const Sizes& sizes) { return std::abs(Variance(sizes) - 12.0 * sigma * sigma); };
            Sizes best{1, 1, 1};
            for (Int32 lower = 1; lower <= Int32(edge); lower += 2)
            {
                for (int uppers = 0; uppers < 3; ++uppers)
                {
                    const Sizes sizes{lower, uppers > 1 ? lower + 2 : lower, uppers > 0 ? lower + 2 : lower};
                    if (error(sizes) < error(best))
                        best = sizes;
                }
            }
            EXPECT_EQ(BoxSizes(edge, radius), best) << "edge " << edge << ", radius " << radius;
        }
    }
}

TEST(BoxSizes, StayWithinTheRaster)
{
    constexpr Float kNan = std::numeric_limits<Float>::quiet_NaN();
    constexpr Float kInfinity = std::numeric_limits<Float>::infinity();
    for (const Float radius : {0.0, -0.1, -1e300, -kInfinity, kNan})
        EXPECT_EQ(BoxSizes(100, radius), (Sizes{1, 1, 1})) << radius;
    for (const Float radius : {0.5, 7.0, kInfinity})
    {
        EXPECT_EQ(BoxSizes(100, radius), (Sizes{99, 99, 99})) << radius;
        EXPECT_EQ(BoxSizes(101, radius), (Sizes{99, 99, 101})) << radius;
        EXPECT_EQ(BoxSizes(1, radius), (Sizes{1, 1, 1})) << radius;
        EXPECT_EQ(BoxSizes(2, radius), (Sizes{1, 1, 1})) << radius;
        EXPECT_EQ(BoxSizes(3, radius), (Sizes{1, 1, 3})) << radius;
        EXPECT_EQ(BoxSizes(65535, radius), (Sizes{65533, 65533, 65535})) << radius;
    }
}

BaseArray<ColorA> Raster(Int32 edge, Float (*value)(Int))
{
    BaseArray<ColorA> pixels;
    EXPECT_TRUE(pixels.Resize(Int(edge) * edge).IsOk());
    for (Int i = 0; i < pixels.Count(); ++i)
        pixels[i] = {value(4 * i), value(4 * i + 1), value(4 * i + 2), value(4 * i + 3)};
    return pixels;
}

BaseArray<ColorA> Transposed(const BaseArray<ColorA>& pixels, Int32 edge)
{
    BaseArray<ColorA> turned;
    EXPECT_TRUE(turned.CopyFrom(pixels).IsOk());
    for (Int i = 0; i < pixels.Count(); ++i)
        turned[i] = pixels[i % edge * edge + i / edge];
    return turned;
}

// Whole numbers add up without rounding, so the running sum must equal the plain one to the bit.
TEST(BoxBlur, EqualsThePlainSumOfEachWindow)
{
    for (const Int32 edge : {1, 2, 5, 37, 64})
    {
        const auto source = Raster(edge, [](Int i) { return Float(i * 7919 % 1009) - 300.0; });
        auto target = Raster(edge, [](Int) { return -1.0; });
        for (Int32 radius = 0; 2 * radius + 1 <= edge; radius += radius < 3 ? 1 : 5)
        {
            BoxBlurH(source, target, edge, radius);
            const Float scale = 1.0 / (2 * radius + 1);
            for (Int32 i = 0; i < edge * edge; ++i)
            {
                ColorA sum = kTransparentBlack;
                for (Int32 x = i % edge - radius; x <= i % edge + radius; ++x)
                {
                    const ColorA& pixel = source[i / edge * edge + std::clamp(x, 0, edge - 1)];
                    sum = {sum.r + pixel.r, sum.g + pixel.g, sum.b + pixel.b, sum.a + pixel.a};
                }
                const ColorA mean{sum.r * scale, sum.g * scale, sum.b * scale, sum.a * scale};
                ASSERT_EQ(target[i], mean) << "edge " << edge << ", radius " << radius << ", pixel " << i;
            }
        }
    }
}

// In blocks or one by one, the columns go through the same sums as the rows, rounding and all.
TEST(BoxBlur, ColumnsEqualTheRowsOfTheTransposedRaster)
{
    for (const Int32 edge : {1, 3, 21, 53})
    {
        const auto source = Raster(edge, [](Int i) { return std::sin(0.7 * Float(i)) * 1e3; });
        const auto turned = Transposed(source, edge);
        auto rows = Raster(edge, [](Int) { return -1.0; });
        auto columns = Raster(edge, [](Int) { return -1.0; });
        for (const Int32 radius : {0, (edge - 1) / 4, (edge - 1) / 2})
        {
            BoxBlurH(turned, rows, edge, radius);
            BoxBlurT(source, columns, edge, radius);
            EXPECT_EQ(columns, Transposed(rows, edge)) << "edge " << edge << ", radius " << radius;
        }
    }
}

TEST(BlurRaster, LeavesTheRasterAloneWithoutRadiusOrMemory)
{
    const auto source = Raster(20, [](Int i) { return Float(i); });
    auto pixels = Raster(20, [](Int i) { return Float(i); });
    EXPECT_TRUE(BlurRaster(pixels, 20, 0.0).IsOk());
    EXPECT_EQ(pixels, source);
    host::AllocationFault::FailAt(0);
    const Result blurred = BlurRaster(pixels, 20, 0.1);
    host::AllocationFault::Disarm();
    EXPECT_EQ(blurred.Kind(), error::kOutOfMemory.View());
    EXPECT_EQ(pixels, source);
}

} // namespace

} // namespace velto::pattern::twod
