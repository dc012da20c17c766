#include "host/blend/blend.h"

#include "host/loader/services.h"
#include "host/registry/registry.h"
#include "host/system/allocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <string>

namespace velto
{

static void PrintTo(const ColorA& c, std::ostream* out)
{
    out->precision(17);
    *out << "(" << c.r << ", " << c.g << ", " << c.b << ", " << c.a << ")";
}

} // namespace velto

namespace velto::host
{

namespace
{

const BlendMode& ModeOf(std::string_view name)
{
    const auto modes = BlendModes();
    return *std::find_if(modes.begin(), modes.end(), [=](const BlendMode& mode) { return mode.name == name; });
}

ColorA Blended(std::string_view mode, const ColorA& b, const ColorA& s, Float opacity = 1.0)
{
    return ModeOf(mode).blend(b, s, opacity);
}

void ExpectNear(const ColorA& actual, const ColorA& expected, Float tolerance, std::string_view what)
{
    const Float worst = std::max({std::abs(actual.r - expected.r), std::abs(actual.g - expected.g),
        std::abs(actual.b - expected.b), std::abs(actual.a - expected.a)});
    EXPECT_LE(worst, tolerance) << what << ": " << testing::PrintToString(actual) << ", expected "
                                << testing::PrintToString(expected);
}

TEST(BlendMode, SeparableModesOfOpaquePixelsAreTheirFormulaExactly)
{
    struct Row
    {
        const char* mode;
        Float b;
        Float s;
        Float expected;
    };
    const Row rows[] = {
        {"add", 0.75, 0.5, 1.25},
        {"average", 0.25, 0.75, 0.5},
        {"colorburn", 0.75, 0.5, 0.5},
        {"colorburn", 0.25, 0.5, 0.0}, // limited
        {"colorburn", 0.5, 0.0, 0.0},
        {"colorburn", 1.0, 0.0, 1.0}, // white stays whatever burns it
        {"colordodge", 0.25, 0.5, 0.5},
        {"colordodge", 0.75, 0.5, 1.0},
        {"colordodge", 0.5, 1.0, 1.0},
        {"colordodge", 0.0, 1.0, 0.0}, // black stays
        {"darken", 0.25, 0.5, 0.25},
        {"difference", 0.25, 0.75, 0.5},
        {"divide", 0.5, 0.25, 2.0},
        {"divide", 0.5, 0.0, 1.0},
        {"exclusion", 0.25, 0.5, 0.5},
        {"freeze", 0.5, 0.5, 0.5},
        {"freeze", 0.25, 0.5, 0.0},
        {"glow", 0.5, 0.5, 0.5},
        {"glow", 0.5, 0.75, 1.0},
        {"hardlight", 0.5, 0.25, 0.25},
        {"hardlight", 0.5, 0.75, 0.75},
        {"hardmix", 0.5, 0.5, 1.0},
        {"hardmix", 0.5, 0.4375, 0.0},
        {"heat", 0.5, 0.5, 0.5},
        {"heat", 0.5, 0.25, 0.0},
        {"hypot", 3.0, 4.0, 5.0},
        {"levr", 0.75, 0.25, 0.625},
        {"levr", 0.875, 1.0, 1.0},
        {"lighten", 0.25, 0.5, 0.5},
        {"linearburn", 0.75, 0.5, 0.25},
        {"linearburn", 0.25, 0.5, 0.0},
        {"lineardodge", 0.25, 0.5, 0.75},
        {"lineardodge", 0.75, 0.5, 1.0},
        {"multiply", 0.5, 0.25, 0.125},
        {"over", 0.5, 0.25, 0.25},
        {"overlay", 0.25, 0.5, 0.25},
        {"overlay", 0.75, 0.5, 0.75},
        {"pinlight", 0.75, 0.25, 0.5},
        {"pinlight", 0.25, 0.75, 0.5},
        {"reflect", 0.5, 0.5, 0.5},
        {"reflect", 0.75, 0.5, 1.0},
        {"screen", 0.5, 0.25, 0.625},
        {"softlight", 0.5, 0.25, 0.375},
        {"softlight", 0.25, 0.75, 0.375}, // the polynomial meets the root here
        {"softlight", 0.125, 0.75, 0.234375},
        {"softlight", 0.5625, 0.75, 0.65625},
        {"stamp", 0.25, 0.75, 0.75},
        {"stamp", 0.25, 0.25, 0.0},
        {"subtract", 0.75, 0.25, 0.5},
        {"subtract", 0.25, 0.75, 0.0},
        {"vividlight", 0.75, 0.25, 0.5},
        {"vividlight", 0.25, 0.75, 0.5},
    };
    for (const Row& row : rows)
    {
        const ColorA expected{row.expected, row.expected, row.expected, 1.0};
        EXPECT_EQ(Blended(row.mode, {row.b, row.b, row.b, 1.0}, {row.s, row.s, row.s, 1.0}), expected)
            << row.mode << " of " << row.b << " and " << row.s;
    }
}

TEST(BlendMode, ChannelsDoNotMix)
{
    EXPECT_EQ(Blended("multiply", {0.5, 0.25, 1.0, 1.0}, {0.5, 1.0, 0.0, 1.0}), (ColorA{0.25, 0.25, 0.0, 1.0}));
}

TEST(BlendMode, WholeColourModesFollowThePublishedFormulas)
{
    const ColorA red{1.0, 0.0, 0.0, 1.0};
    const ColorA blue{0.0, 0.0, 1.0, 1.0};
    const ColorA grey{0.5, 0.5, 0.5, 1.0};
    const ColorA b{0.8, 0.4, 0.2, 1.0}; // Lum 0.498, Sat 0.6
    const ColorA s{0.1, 0.3, 0.5, 1.0}; // Lum 0.262, Sat 0.4
    struct Row
    {
        const char* mode;
        ColorA b;
        ColorA s;
        ColorA expected;
    };
    const Row rows[] = {
        {"color", b, s, {0.336, 0.536, 0.736, 1.0}},
        {"hue", b, s, {0.255, 0.555, 0.855, 1.0}},
        {"saturation", b, s, {0.6993333333333334, 0.43266666666666664, 0.29933333333333334, 1.0}},
        {"luminance", b, s, {0.52751677852349, 0.17583892617449667, 0.0, 1.0}},   // held at 0
        {"color", red, blue, {0.2134831460674157, 0.2134831460674157, 1.0, 1.0}}, // held at 1
        {"luminance", red, blue, {0.3666666666666667, 0.0, 0.0, 1.0}},
        {"luminance", grey, red, {0.3, 0.3, 0.3, 1.0}},
        {"color", grey, {4, 0, 0, 1}, {17.0 / 24, 23.0 / 56, 23.0 / 56, 1}}, // held by the range before clipping
        {"hue", grey, red, grey},                                            // no saturation to keep
        {"saturation", grey, red, grey},                                     // no hue to saturate
        {"color", {2.0, 2.0, 2.0, 1.0}, red, {2.0, 2.0, 2.0, 1.0}},
        {"darker", red, blue, blue},
        {"lighter", red, blue, red},
    };
    for (const Row& row : rows)
        ExpectNear(Blended(row.mode, row.b, row.s), row.expected, 1e-15, row.mode);
}

TEST(BlendMode, AlphaIsSourceOver)
{
    // αb = 1/2, αs = 1/4: α = 5/8, weights 3/8, 1/8 and 1/8.
    ExpectNear(Blended("over", {1.0, 0.0, 0.0, 0.5}, {0.0, 1.0, 0.0, 0.25}), {0.6, 0.4, 0.0, 0.625}, 1e-15, "over");
    ExpectNear(
        Blended("multiply", {1.0, 0.5, 0.0, 0.5}, {0.5, 0.5, 1.0, 0.25}), {0.8, 0.45, 0.2, 0.625}, 1e-15, "multiply");
    // On an opaque backdrop the blended colour comes in by the source's alpha.
    EXPECT_EQ(Blended("multiply", {0.5, 0.5, 0.5, 1.0}, {0.5, 0.5, 0.5, 0.5}), (ColorA{0.375, 0.375, 0.375, 1.0}));
    for (const BlendMode& mode : BlendModes())
    {
        const ColorA b{0.3, 0.6, 0.9, 0.7};
        const ColorA s{0.1, 0.5, 0.2, 0.6};
        const bool isAboutAlpha =
            mode.name == "applyalpha" || mode.name == "dissolve" || mode.name == "passfolder" || mode.name == "xor";
        if (isAboutAlpha)
            continue;
        EXPECT_EQ(mode.blend(b, {0.1, 0.5, 0.2, 0.0}, 1.0), b) << mode.name << ": nothing over the backdrop";
        EXPECT_EQ(mode.blend({0.3, 0.6, 0.9, 0.0}, s, 1.0), s) << mode.name << ": over nothing";
        EXPECT_EQ(mode.blend(b, s, 0.0), b) << mode.name << ": opacity 0";
        const ColorA half = mode.blend(b, s, 0.5);
        EXPECT_EQ(half, mode.blend(b, {s.r, s.g, s.b, s.a * 0.5}, 1.0)) << mode.name << ": opacity scales alpha";
        EXPECT_NEAR(half.a, 0.7 + 0.3 - 0.7 * 0.3, 1e-15) << mode.name;
    }
    EXPECT_EQ(Blended("over", {1.0, 2.0, 3.0, 0.0}, {4.0, 5.0, 6.0, 0.0}), (ColorA{1.0, 2.0, 3.0, 0.0}));
}

TEST(BlendMode, ModesAboutAlpha)
{
    const ColorA b{0.25, 0.5, 0.75, 0.5};
    const ColorA s{1.0, 0.0, 0.5, 0.25};
    EXPECT_EQ(Blended("passfolder", b, s), s);
    EXPECT_EQ(Blended("passfolder", b, s, 0.5), (ColorA{0.625, 0.25, 0.625, 0.375}));
    EXPECT_EQ(Blended("applyalpha", b, s), (ColorA{0.25, 0.5, 0.75, 0.125}));
    EXPECT_EQ(Blended("applyalpha", b, s, 0.0), b);
    // Weights 1/8 of the source and 3/8 of the backdrop.
    EXPECT_EQ(Blended("xor", b, s), (ColorA{0.4375, 0.375, 0.6875, 0.5}));
    EXPECT_EQ(Blended("xor", {0.5, 0.5, 0.5, 1.0}, {0.1, 0.1, 0.1, 1.0}), (ColorA{0.5, 0.5, 0.5, 0.0}));
}

TEST(BlendMode, DissolveShowsTheSourceAsOftenAsItsAlphaSays)
{
    int shown = 0;
    constexpr int kPixels = 10000;
    for (int i = 0; i < kPixels; ++i)
    {
        const ColorA b{i / 10000.0, 0.5, 0.5, 0.5};
        const ColorA s{0.5, i / 10000.0, 0.25, 0.3};
        const ColorA mixed = Blended("dissolve", b, s);
        const bool isSource = mixed == ColorA{s.r, s.g, s.b, 1.0};
        ASSERT_TRUE(isSource || mixed == b);
        shown += isSource;
        EXPECT_EQ(Blended("dissolve", b, {s.r, s.g, s.b, 1.0}), (ColorA{s.r, s.g, s.b, 1.0}));
        EXPECT_EQ(Blended("dissolve", b, {s.r, s.g, s.b, 0.0}), b);
    }
    EXPECT_NEAR(shown / double(kPixels), 0.3, 0.02);
    EXPECT_EQ(Blended("dissolve", {0.0, 0.1, 0.2, 0.3}, {0.4, 0.5, 0.6, 0.7}),
        Blended("dissolve", {-0.0, 0.1, 0.2, 0.3}, {0.4, 0.5, 0.6, 0.7}));
}

class BlendClasses : public testing::Test
{
protected:
    void SetUp() override { Services(); }
    void TearDown() override { AllocationFault::Disarm(); }

    static BlendClassRef Find(const std::string& name)
    {
        Data found;
        const std::string id = "net.velto.render.blendmode." + name;
        FindEntryValue(id, found);
        const auto* const blendClass = found.As<BlendClassRef>();
        return blendClass ? *blendClass : BlendClassRef();
    }
    static void FindEntryValue(const std::string& id, Data& found)
    {
        Bound<RegistryInterface>().FindEntryValue(registry::kBlendModeClasses, Id::OverStatic(id), &found).Ignore();
    }
    static Result Handler(const BlendClassRef& blendClass, BlendPixelHandler& handler,
        const Id& format = pixel_format::kRgbaF64, Float opacity = 1.0)
    {
        return Bound<ImagePixelBlendInterface>().GetBlendPixelHandler(
            blendClass.Get(), format, kColorAChannels, format, kColorAChannels, opacity, &handler);
    }
};

TEST_F(BlendClasses, EveryModeHasAClassWhoseHandlerBlendsRuns)
{
    const ColorA b[] = {{0.3, 0.6, 0.9, 0.7}, {0.1, 0.2, 0.3, 1.0}};
    const ColorA s[] = {{0.5, 0.5, 0.1, 0.4}, {0.9, 0.8, 0.7, 0.6}};
    for (const BlendMode& mode : BlendModes())
    {
        BlendPixelHandler handler;
        ASSERT_TRUE(Handler(Find(std::string(mode.name)), handler, pixel_format::kRgbaF64, 0.5).IsOk()) << mode.name;
        ColorA out[2] = {b[0], b[1]}; // the destination may be a source
        ASSERT_TRUE(
            handler.blend(handler.state, {out, sizeof(ColorA)}, {out, sizeof(ColorA)}, {s, sizeof(ColorA)}, 2, 0)
                .IsOk());
        EXPECT_EQ(out[0], mode.blend(b[0], s[0], 0.5)) << mode.name;
        EXPECT_EQ(out[1], mode.blend(b[1], s[1], 0.5)) << mode.name;
        handler.release(handler.state);
    }
}

TEST_F(BlendClasses, RefusalsLeaveTheHandlerAlone)
{
    BlendPixelHandler handler;
    EXPECT_EQ(Handler({}, handler).Kind(), error::kNullptr.View());
    EXPECT_EQ(
        Handler(Find("over"), handler, "net.velto.image.pixelformat.rgb.u8").Kind(), error::kIllegalArgument.View());
    const BlendClassRef over = Find("over");
    AllocationFault::FailAt(0);
    EXPECT_EQ(Handler(over, handler).Kind(), error::kOutOfMemory.View());
    EXPECT_FALSE(handler.blend || handler.release || handler.state);
}

} // namespace

} // namespace velto::host
