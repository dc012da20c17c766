#include "module/source/pattern/2d/bakedimagedata.h"

#include "host/system/allocator.h"

#include <gtest/gtest.h>

#include <utility>

namespace velto::pattern::twod
{

namespace
{

// Yields the coordinate as a colour, up to a u from which on it fails.
struct Upstream : FunctionInterface
{
    Float failsFromU = 2.0;
    SearchPathsType searchPaths;
    std::atomic<bool> isContextFresh = true;

    Upstream()
    {
        invoke = [](const FunctionInterface* self, void* value, const ShadingContext* context, Data*) {
            auto& upstream = const_cast<Upstream&>(*static_cast<const Upstream*>(self));
            auto& color = *static_cast<ColorA*>(value);
            ShadingContext expected;
            expected.uvwValid = true;
            expected.searchPaths = &upstream.searchPaths;
            MoveTo(expected, context->uvw);
            if (color != kOpaqueBlack || std::memcmp(&expected, context, sizeof(expected)) != 0)
                upstream.isContextFresh = false;
            if (context->uvw.x >= upstream.failsFromU)
                return NullptrError();
            color = {context->uvw.x, context->uvw.y, context->uvw.z, 0.0};
            return Result();
        };
    }

    Result Bake(BakedImageData& image, UInt32 width, UInt32 height)
    {
        const ColorAFunction function{Ref<const FunctionInterface>::Share(this)};
        return PrecomputePortData(searchPaths, function, image, width, height);
    }
    BakedImageData Baked(UInt32 width, UInt32 height)
    {
        BakedImageData image;
        EXPECT_TRUE(Bake(image, width, height).IsOk());
        return image;
    }
};

TEST(PrecomputePortData, SamplesPixelCentresUnderAFreshContext)
{
    Upstream upstream;
    BakedImageData baked = upstream.Baked(37, 50);
    BakedImageData image = upstream.Baked(1, 1);
    image = std::move(baked);
    EXPECT_EQ(baked, BakedImageData());
    EXPECT_TRUE(upstream.isContextFresh);
    EXPECT_EQ(image.pixels.Capacity(), 37 * 50);
    for (Int y = 0; y < 50; ++y)
    {
        for (Int x = 0; x < 37; ++x)
            ASSERT_EQ(image.At(x, y), (ColorA{x / 37.0 + 1.0 / 37 * 0.5, y / 50.0 + 1.0 / 50 * 0.5, 0.0, 0.0}));
    }
}

TEST(PrecomputePortData, AFailingSampleLeavesTheRestOfItsRow)
{
    Upstream upstream;
    upstream.failsFromU = 0.5;
    BakedImageData image = upstream.Baked(4, 2);
    upstream.failsFromU = 0.0;
    // The pixels stay where they were at another aspect, too; those behind them are new.
    ASSERT_TRUE(upstream.Bake(image, 3, 4).IsOk());
    ASSERT_EQ(image.pixels.Count(), 12);
    for (Int i = 0; i < 12; ++i)
        EXPECT_EQ(image.pixels[i] != kOpaqueBlack, i < 8 && i % 4 < 2) << i;
    ASSERT_TRUE(PrecomputePortData({}, ColorAFunction(), image, 2, 1).IsOk());
    EXPECT_EQ(image.pixels[1], (ColorA{0.375, 0.25, 0.0, 0.0}));
    EXPECT_EQ(image.pixels.Capacity(), 12);
}

TEST(PrecomputePortData, RefusesWhatItCannotHold)
{
    constexpr UInt32 kHuge = UInt32(1) << 31;
    Upstream upstream;
    for (const auto& [width, height] : {std::pair{0u, kHuge}, {kHuge, 0u}})
        EXPECT_TRUE(upstream.Baked(width, height).pixels.IsEmpty());
    BakedImageData image = upstream.Baked(3, 3);
    // As 32-bit numbers, these products are 0 and 9.
    for (const auto& [width, height] : {std::pair{kHuge, kHuge}, {858993461u, 5u}})
    {
        EXPECT_EQ(upstream.Bake(image, width, height).Kind(), error::kOutOfMemory.View());
        EXPECT_EQ(image.width, width);
        EXPECT_EQ(image.pixels.Count(), 9);
        EXPECT_FALSE(image.IsUsable());
    }
    host::AllocationFault::FailAt(0);
    EXPECT_TRUE(upstream.Bake(image, 4, 4).IsError());
    EXPECT_FALSE(image.IsUsable());
    host::AllocationFault::FailAt(1); // the loop's own, which it can do without
    EXPECT_TRUE(upstream.Bake(image, 4, 4).IsOk());
    host::AllocationFault::Disarm();
    EXPECT_EQ(image.At(3, 3).r, 0.875);
}

TEST(LookUp, TakesOrMixesPixelsAcrossTheEdges)
{
    Upstream upstream;
    const BakedImageData image = upstream.Baked(4, 2);
    EXPECT_EQ(LookUpNearest(image, 0.2499999f, 0.4999999f), image.At(0, 0));
    EXPECT_EQ(LookUpNearest(image, 0.25f, 0.5f), image.At(1, 1));
    EXPECT_EQ(LookUpNearest(image, 0.9999999f, 0.9999999f), image.At(3, 1));
    EXPECT_EQ(LookUpNearest(image, 1.0f, 0.5f), kOpaqueBlack);
    EXPECT_EQ(LookUpNearest(image, 0.5f, 1.0f), kOpaqueBlack);
    EXPECT_EQ(LookUpNearest(image, std::nanf(""), 0.5f), kOpaqueBlack);

    EXPECT_EQ(LookUpLinear(image, 0.375f, 0.25f), image.At(1, 0));
    EXPECT_EQ(LookUpLinear(image, 0.4375f, 0.5f), (ColorA{0.4375, 0.5, 0.0, 0.0}));
    for (const Float32 edge : {0.0f, 1.0f})
        EXPECT_EQ(LookUpLinear(image, edge, edge), (ColorA{0.5, 0.5, 0.0, 0.0}));
    EXPECT_EQ(LookUpLinear(image, 0.96875f, 0.25f), (ColorA{0.875 - 0.75 * 0.375, 0.25, 0.0, 0.0}));
    EXPECT_EQ(LookUpLinear(upstream.Baked(1, 1), 0.9f, 0.1f), (ColorA{0.5, 0.5, 0.0, 0.0}));
    EXPECT_TRUE(std::isnan(LookUpLinear(image, std::nanf(""), 0.5f).r));
}

} // namespace

} // namespace velto::pattern::twod
