#include "module/source/pattern/2d/bakedimagedata.h"

#include "host/system/allocator.h"

#include <gtest/gtest.h>

#include <limits>

namespace velto::pattern::twod
{

namespace
{

// An upstream of a test's own.
struct Upstream : FunctionInterface
{
    ColorA (*color)(const Vector& uvw);
    Float failsFromU = 2.0;
    const SearchPathsType* searchPaths = nullptr;
    std::atomic<bool> isContextFresh = true;

    explicit Upstream(ColorA (*function)(const Vector&)) : color(function)
    {
        invoke = [](const FunctionInterface* self, void* value, const ShadingContext* context, Data*) {
            auto& upstream = const_cast<Upstream&>(*static_cast<const Upstream*>(self));
            const ColorA start = *static_cast<ColorA*>(value);
            ShadingContext expected;
            expected.uvwValid = true;
            expected.searchPaths = upstream.searchPaths;
            MoveTo(expected, context->uvw);
            if (start != kOpaqueBlack || std::memcmp(&expected, context, sizeof(expected)) != 0)
                upstream.isContextFresh = false;
            if (context->uvw.x >= upstream.failsFromU)
                return NullptrError();
            *static_cast<ColorA*>(value) = upstream.color(context->uvw);
            return Result();
        };
    }
    ColorAFunction Function() { return {Ref<const FunctionInterface>::Share(this)}; }
};

ColorA Coordinates(const Vector& uvw)
{
    return {uvw.x, uvw.y, uvw.z, 1.0};
}

ColorA White(const Vector&)
{
    return {1.0, 1.0, 1.0, 1.0};
}

BakedImageData Baked(Upstream& upstream, UInt32 width, UInt32 height)
{
    BakedImageData image;
    EXPECT_TRUE(PrecomputePortData({}, upstream.Function(), image, width, height).IsOk());
    return image;
}

TEST(PrecomputePortData, SamplesPixelCentresUnderAFreshContext)
{
    Upstream upstream(&Coordinates);
    SearchPathsType searchPaths;
    upstream.searchPaths = &searchPaths;
    BakedImageData image;
    ASSERT_TRUE(PrecomputePortData(searchPaths, upstream.Function(), image, 37, 50).IsOk());
    EXPECT_TRUE(upstream.isContextFresh);
    EXPECT_TRUE(image.IsUsable());
    EXPECT_EQ(image.pixels.Capacity(), 37 * 50);
    for (Int y = 0; y < 50; ++y)
    {
        for (Int x = 0; x < 37; ++x)
        {
            const ColorA expected{Float(x) / 37 + 1.0 / 37 * 0.5, Float(y) / 50 + 1.0 / 50 * 0.5, 0.0, 1.0};
            ASSERT_EQ(image.At(x, y), expected) << x << ", " << y;
        }
    }
}

TEST(PrecomputePortData, AFailingSampleLeavesTheRestOfItsRow)
{
    Upstream upstream(&White);
    upstream.failsFromU = 0.5;
    BakedImageData image = Baked(upstream, 4, 2);
    EXPECT_EQ(image.At(1, 1), White({}));
    EXPECT_EQ(image.At(2, 1), kOpaqueBlack);
    // The same pixels at another aspect keep what they were; those behind them are new.
    upstream.failsFromU = 0.0;
    ASSERT_TRUE(PrecomputePortData({}, upstream.Function(), image, 3, 4).IsOk());
    EXPECT_EQ(image.pixels.Count(), 12);
    for (Int i = 0; i < 12; ++i)
        EXPECT_EQ(image.pixels[i], i < 8 && i % 4 < 2 ? White({}) : kOpaqueBlack) << i;
    // No function at all fails everywhere.
    ASSERT_TRUE(PrecomputePortData({}, ColorAFunction(), image, 2, 2).IsOk());
    EXPECT_EQ(image.At(0, 0), White({}));
    EXPECT_EQ(image.pixels.Capacity(), 12);
}

TEST(PrecomputePortData, RefusesWhatItCannotHold)
{
    constexpr UInt32 kHuge = UInt32(1) << 31;
    Upstream upstream(&White);
    for (const auto& [width, height] : {std::pair{0u, kHuge}, {kHuge, 0u}, {0u, 0u}})
        EXPECT_TRUE(Baked(upstream, width, height).pixels.IsEmpty());
    // As 32-bit numbers, these products are 0 and 9.
    for (const auto& [width, height] : {std::pair{kHuge, kHuge}, {1431655769u, 5u * 3u}})
    {
        BakedImageData image = Baked(upstream, 3, 3);
        EXPECT_EQ(PrecomputePortData({}, upstream.Function(), image, width, height).Kind(), error::kOutOfMemory.View());
        EXPECT_EQ(image.width, width);
        EXPECT_EQ(image.pixels.Count(), 9);
        EXPECT_FALSE(image.IsUsable());
    }
    BakedImageData image = Baked(upstream, 3, 3);
    host::AllocationFault::FailAt(0);
    EXPECT_EQ(PrecomputePortData({}, upstream.Function(), image, 4, 4).Kind(), error::kOutOfMemory.View());
    EXPECT_FALSE(image.IsUsable());
    // The loop's own memory is not needed.
    host::AllocationFault::FailAt(1);
    EXPECT_TRUE(PrecomputePortData({}, upstream.Function(), image, 4, 4).IsOk());
    host::AllocationFault::Disarm();
    EXPECT_EQ(image.At(3, 3), White({}));
}

TEST(LookUp, NearestTakesThePixelThatThePlaceLiesIn)
{
    Upstream upstream(&Coordinates);
    const BakedImageData image = Baked(upstream, 4, 2);
    EXPECT_EQ(LookUpNearest(image, 0.0f, 0.0f), image.At(0, 0));
    EXPECT_EQ(LookUpNearest(image, 0.2499999f, 0.4999999f), image.At(0, 0));
    EXPECT_EQ(LookUpNearest(image, 0.25f, 0.5f), image.At(1, 1));
    EXPECT_EQ(LookUpNearest(image, 0.9999999f, 0.9999999f), image.At(3, 1));
    EXPECT_EQ(LookUpNearest(image, 1.0f, 0.5f), kOpaqueBlack);
    EXPECT_EQ(LookUpNearest(image, 0.5f, 1.0f), kOpaqueBlack);
    EXPECT_EQ(LookUpNearest(image, std::numeric_limits<Float32>::quiet_NaN(), 0.5f), kOpaqueBlack);
}

TEST(LookUp, LinearMixesNeighboursAcrossTheEdges)
{
    Upstream upstream(&Coordinates);
    const BakedImageData image = Baked(upstream, 4, 2);
    EXPECT_EQ(LookUpLinear(image, 0.375f, 0.25f), image.At(1, 0));
    EXPECT_EQ(LookUpLinear(image, 0.5f, 0.5f), (ColorA{0.5, 0.5, 0.0, 1.0}));
    EXPECT_EQ(LookUpLinear(image, 0.4375f, 0.25f), (ColorA{0.4375, 0.25, 0.0, 1.0}));
    // Columns 0 and 3, rows 0 and 1, half and half; from both sides.
    EXPECT_EQ(LookUpLinear(image, 0.0f, 0.0f), (ColorA{0.5, 0.5, 0.0, 1.0}));
    EXPECT_EQ(LookUpLinear(image, 1.0f, 1.0f), (ColorA{0.5, 0.5, 0.0, 1.0}));
    EXPECT_EQ(LookUpLinear(image, 0.96875f, 0.25f), (ColorA{0.875 - 0.75 * 0.375, 0.25, 0.0, 1.0}));
    const BakedImageData one = Baked(upstream, 1, 1);
    EXPECT_EQ(LookUpLinear(one, 0.9f, 0.1f), (ColorA{0.5, 0.5, 0.0, 1.0}));
    EXPECT_TRUE(std::isnan(LookUpLinear(image, std::numeric_limits<Float32>::quiet_NaN(), 0.5f).r));
}

} // namespace

} // namespace velto::pattern::twod
