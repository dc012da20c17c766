#include "host/bake/bake.h"

#include "test/support/files.h"
#include "test/support/pixels.h"
#include "test/support/probe.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include <paths.h>

namespace velto::test
{

namespace
{

using host::BakeOptions;

constexpr std::string_view kBoard = R"({"version": 1, "nodes": {
    "place": {"type": "placement2d", "inputs": {"localRepetitions": [3.7, 2.9], "localModeU": "repeat", "localModeV": "mirror"}},
    "lit": {"type": "exposure", "inputs": {"color": [0.2, 0.4, 0.8, 0.5], "exposure": 1}},
    "board": {"type": "checkerboard", "inputs": {"contextLocal": {"from": "place.result"}, "color1": [1, 0.5, 0.25, 1],
        "color2": {"from": "lit.result"}}}},
    "outputs": {"color": "board.result"}})";

// The coordinate of the sample as a colour: r = u.
constexpr std::string_view kRamp = R"({"version": 1, "nodes": {
    "u": {"type": "net.velto.test.coordinate"},
    "n": {"type": "net.velto.test.keep.colora", "inputs": {"x": {"from": "u.result"}}}},
    "outputs": {"color": "n.result", "number": "u.result"}})";

class BakeTest : public ::testing::Test
{
protected:
    BakeTest() { TheProbe(); }

    std::string File(const std::string& name) const { return folder_.Path(name); }

    static Result Bake(
        std::string_view document, const std::string& file, const BakeOptions& options, std::size_t output = 0)
    {
        host::Graph graph;
        EXPECT_TRUE(Load(document, graph));
        host::BakeStatistics statistics;
        return host::Bake(graph, {{output, file}}, options, statistics);
    }

    static BakeOptions Size(int width, int height)
    {
        BakeOptions options;
        options.view.width = width;
        options.view.height = height;
        return options;
    }

    const TemporaryFolder folder_;
};

TEST_F(BakeTest, RefusesWindowsBeyondThePicture)
{
    BakeOptions options = Size(200, 150);
    options.window = {150, 0, 51, 10};
    EXPECT_TRUE(Bake(kRamp, File("crop.exr"), options).IsError());
}

// Pixel (x, y) is sampled in its middle; v counts from the top row.
TEST_F(BakeTest, SamplesAreInTheMiddleOfPixels)
{
    const std::string document = R"({"version": 1, "nodes": {
        "split": {"type": "net.velto.test.coordinate"}}, "outputs": {"u": "split.result"}})";
    BakeOptions options = Size(4, 2);
    options.encoding.depth = host::PixelDepth::Float;
    ASSERT_TRUE(Bake(document, File("u.exr"), options).IsOk());
    const PixelImage image = ReadPixels(File("u.exr"));
    ASSERT_EQ(1, image.channels);
    EXPECT_EQ((std::vector<float>{0.125f, 0.375f, 0.625f, 0.875f, 0.125f, 0.375f, 0.625f, 0.875f}), image.values);

    ShadingContext context;
    ASSERT_TRUE(host::FillContext(options.view, 2.5, 0.5, context));
    EXPECT_EQ((Vector{0.625, 0.25, 0.0}), context.uvw);
    EXPECT_EQ((Vector{0.875, 0.25, 0.0}), context.uvwPlusDeltaU);
    EXPECT_EQ((Vector{0.625, 0.75, 0.0}), context.uvwPlusDeltaV);
    EXPECT_EQ(context.uvw, context.samplePosition);
    EXPECT_EQ((Vector{0.0, 0.0, 1.0}), context.shadingNormal);
    EXPECT_EQ((Vector{0.0, 0.0, -1.0}), context.rayDirection);
    EXPECT_EQ((Vector{0.625, 0.25, 1.0}), context.rayOrigin);
    EXPECT_EQ(2, context.pixel[0]);
    EXPECT_EQ((Vector2d{0.5, 0.5}), context.subpixel);
}

TEST_F(BakeTest, SupersamplesAreTheMeanOfAPixel)
{
    // A node that counts its samples: 3 x 3 in each of two pixels.
    BakeOptions options = Size(2, 1);
    options.view.supersample = 3;
    options.encoding.depth = host::PixelDepth::Float;
    host::Graph graph;
    ASSERT_TRUE(Load(kRamp, graph));
    host::BakeStatistics statistics;
    ASSERT_TRUE(host::Bake(graph, {{1, File("u.exr")}}, options, statistics).IsOk());
    const PixelImage image = ReadPixels(File("u.exr"));
    EXPECT_FLOAT_EQ(0.25f, image.values[0]);
    EXPECT_FLOAT_EQ(0.75f, image.values[1]);
    EXPECT_EQ(18u, statistics.samples);
}

// Patterns filter each sample for its share of a pixel, so that many samples make a pixel neither softer nor harder
// than its mean is.
TEST_F(BakeTest, SupersamplesConvergeToTheMeanOfAPixel)
{
    const std::string document = R"({"version": 1, "nodes": {
        "place": {"type": "placement2d", "inputs": {"localRotation": 0.4, "localRepetitions": [3, 3]}},
        "board": {"type": "checkerboard", "inputs": {"contextLocal": {"from": "place.result"},
            "color1": [0, 0, 0, 1], "color2": [1, 1, 1, 1]}}}, "outputs": {"color": "board.result"}})";
    constexpr int kSize = 24;
    constexpr int kFine = 24; // points along a pixel's side
    BakeOptions options = Size(kSize * kFine, kSize * kFine);
    options.encoding.depth = host::PixelDepth::Float;
    for (const host::BakeShape shape : {host::BakeShape::Plane, host::BakeShape::Sphere})
    {
        options.view = {kSize * kFine, kSize * kFine, shape, 1};
        ASSERT_TRUE(Bake(document, File("fine.exr"), options).IsOk());
        options.view = {kSize, kSize, shape, 8};
        ASSERT_TRUE(Bake(document, File("coarse.exr"), options).IsOk());
        const PixelImage fine = ReadPixels(File("fine.exr"));
        const PixelImage coarse = ReadPixels(File("coarse.exr"));
        double squares = 0.0;
        for (int i = 0; i < kSize * kSize; ++i)
        {
            double mean = 0.0;
            for (int k = 0; k < kFine * kFine; ++k)
                mean += fine.At(i % kSize * kFine + k % kFine, i / kSize * kFine + k / kFine)[0];
            squares += std::pow(coarse.At(i % kSize, i / kSize)[0] - mean / (kFine * kFine), 2);
        }
        EXPECT_LT(std::sqrt(squares) / kSize, 0.02) << static_cast<int>(shape);
    }
}

struct FormatRow
{
    std::string suffix;
    host::PixelDepth depth;
    host::PictureColorSpace space;
    OIIO::TypeDesc::BASETYPE type;
    int channels;
    float middle; // of the red channel where u is 0.5
    float tolerance;
};

class BakeFormat : public BakeTest, public ::testing::WithParamInterface<FormatRow>
{
};

TEST_P(BakeFormat, HoldsTheValuesAsStated)
{
    const FormatRow& row = GetParam();
    BakeOptions options = Size(9, 3);
    options.encoding.depth = row.depth;
    options.encoding.colorSpace = row.space;
    const std::string file = File("picture." + row.suffix);
    const Result baked = Bake(kRamp, file, options);
    ASSERT_TRUE(baked.IsOk()) << baked.Message();
    const PixelImage image = ReadPixels(file);
    EXPECT_EQ(OIIO::TypeDesc(row.type), image.spec.format);
    EXPECT_EQ("", image.spec.get_string_attribute("DateTime"));
    ASSERT_EQ(row.channels, image.channels);
    EXPECT_NEAR(row.middle, image.At(4, 1)[0], row.tolerance);
    if (row.channels == 4)
    {
        EXPECT_EQ(1.0f, image.At(4, 1)[3]);
    }
    EXPECT_EQ(1u, folder_.Names().size());
}

constexpr float kSrgbMiddle = 0.7353569f; // of 0.5

INSTANTIATE_TEST_SUITE_P(Table, BakeFormat,
    ::testing::ValuesIn(std::vector<FormatRow>{
        {"png", host::PixelDepth::Default, host::PictureColorSpace::Default, OIIO::TypeDesc::UINT8, 4, kSrgbMiddle,
            0.5f / 255},
        {"png", host::PixelDepth::UInt16, host::PictureColorSpace::Default, OIIO::TypeDesc::UINT16, 4, kSrgbMiddle,
            0.5f / 65535},
        {"png", host::PixelDepth::Default, host::PictureColorSpace::Linear, OIIO::TypeDesc::UINT8, 4, 0.5f,
            0.51f / 255},
        {"tif", host::PixelDepth::Float, host::PictureColorSpace::Default, OIIO::TypeDesc::FLOAT, 4, 0.5f, 0.0f},
        {"tif", host::PixelDepth::Float, host::PictureColorSpace::Srgb, OIIO::TypeDesc::FLOAT, 4, kSrgbMiddle, 1e-6f},
        {"exr", host::PixelDepth::Default, host::PictureColorSpace::Default, OIIO::TypeDesc::HALF, 4, 0.5f, 0.0f},
        {"exr", host::PixelDepth::Float, host::PictureColorSpace::Default, OIIO::TypeDesc::FLOAT, 4, 0.5f, 0.0f},
        {"hdr", host::PixelDepth::Default, host::PictureColorSpace::Default, OIIO::TypeDesc::FLOAT, 3, 0.5f, 0.005f},
        {"jpg", host::PixelDepth::Default, host::PictureColorSpace::Default, OIIO::TypeDesc::UINT8, 3, kSrgbMiddle,
            0.03f},
        {"tga", host::PixelDepth::Default, host::PictureColorSpace::Default, OIIO::TypeDesc::UINT8, 4, kSrgbMiddle,
            0.5f / 255},
    }),
    [](const auto& info) { return fmt::format("{}_{}", info.param.suffix, info.index); });

struct EncodingRow
{
    const char* name;
    const char* type; // of the output
    const char* value;
    const char* stated; // by the document, of the output
    host::PictureEncoding asked;
    const char* suffix;
    std::vector<float> stored;
};

class OutputEncoding : public BakeTest, public ::testing::WithParamInterface<EncodingRow>
{
};

TEST_P(OutputEncoding, IsTheOptionsThenTheDocumentsThenThatOfTheType)
{
    const EncodingRow& row = GetParam();
    BakeOptions options = Size(1, 1);
    options.encoding = row.asked;
    const std::string file = File(fmt::format("o.{}", row.suffix));
    const std::string document = fmt::format(
        R"({{"version": 1, "nodes": {{"n": {{"type": "net.velto.test.keep.{}", "inputs": {{"x": {}}}}}}},
            "outputs": {{"o": {{"from": "n.result"{}}}}}}})",
        row.type, row.value, row.stated);
    const Result baked = Bake(document, file, options);
    ASSERT_TRUE(baked.IsOk()) << baked.Message();
    const PixelImage image = ReadPixels(file);
    ASSERT_EQ(row.stored.size(), image.values.size());
    for (std::size_t i = 0; i < row.stored.size(); ++i)
        EXPECT_NEAR(row.stored[i], image.values[i], 1e-6) << i;
}

constexpr host::PictureEncoding kAsked8{host::PixelDepth::UInt8, host::PictureColorSpace::Default};
constexpr host::PictureEncoding kAskedSrgb{host::PixelDepth::Default, host::PictureColorSpace::Srgb};
constexpr host::PictureEncoding kAskedLinear{host::PixelDepth::Default, host::PictureColorSpace::Linear};
constexpr float kSrgbHalf = 188.0f / 255; // of 0.5
constexpr float kHalf = 128.0f / 255;

INSTANTIATE_TEST_SUITE_P(Table, OutputEncoding,
    ::testing::ValuesIn(std::vector<EncodingRow>{
        {"ColorAIsColor", "colora", "[0.5, 2, -1, 0.5]", "", {}, "png", {kSrgbHalf, 1, 0, kHalf}},
        {"ColorIsColor", "color", "[0.5, 2, -1]", "", {}, "png", {kSrgbHalf, 1, 0}},
        {"FloatIsData", "float", "0.5", "", {}, "png", {kHalf}},
        {"VectorIsData", "vector", "[0.5, 2, -1]", "", {}, "png", {kHalf, 1, 0}},
        {"FloatAsColor", "float", "0.5", R"(, "encoding": "color")", {}, "png", {kSrgbHalf}},
        {"ColorAsData", "colora", "[0.5, 2, -1, 0.5]", R"(, "encoding": "data")", {}, "png", {kHalf, 1, 0, kHalf}},
        {"Normal", "vector", "[-1, 0, 1.5]", R"(, "encoding": "normal")", {}, "png", {0, kHalf, 1}},
        {"NormalLeavesAlpha", "colora", "[-1, 0, 1, 0.5]", R"(, "encoding": "normal")", {}, "tif",
            {0, kHalf, 1, kHalf}},
        {"NormalWithoutNumber", "vector", R"(["nan", "inf", "-inf"])", R"(, "encoding": "normal")", {}, "png",
            {0, 1, 0}},
        {"NormalOf16Bits", "vector", "[-1, 0, 0.5]", R"(, "encoding": "normal", "depth": "uint16")", {}, "png",
            {0, 32768.0f / 65535, 49151.0f / 65535}},
        {"NormalAsItIs", "vector", "[-1, 0, 1.5]", R"(, "encoding": "normal")", {}, "exr", {-1, 0, 1.5f}},
        {"NormalStaysOneWhenLinear", "vector", "[-1, 0, 1]", R"(, "encoding": "normal")", kAskedLinear, "png",
            {0, kHalf, 1}},
        {"LinearColor", "color", "[0.5, 2, -1]", R"(, "encoding": "color", "colorspace": "linear")", {}, "png",
            {kHalf, 1, 0}},
        {"AskedColorSpaceWins", "color", "[0.5, 2, -1]", R"(, "colorspace": "linear")", kAskedSrgb, "png",
            {kSrgbHalf, 1, 0}},
        {"AskedDepthWins", "float", "0.3", R"(, "depth": "uint16")", kAsked8, "png", {77.0f / 255}},
    }),
    [](const auto& info) { return info.param.name; });

// Channels are neither multiplied nor divided by alpha.
TEST_F(BakeTest, ColoursAreWrittenAsTheyAreWhateverTheirAlpha)
{
    const std::string document = R"({"version": 1, "nodes": {
        "n": {"type": "net.velto.test.keep.colora", "inputs": {"x": [0.5, 2, -1, 0.25]}}}, "outputs": {"color": "n.result"}})";
    BakeOptions options = Size(1, 1);
    options.encoding.depth = host::PixelDepth::Float;
    for (const char* const name : {"a.exr", "a.tif"})
    {
        ASSERT_TRUE(Bake(document, File(name), options).IsOk());
        EXPECT_EQ((std::vector<float>{0.5f, 2.0f, -1.0f, 0.25f}), ReadPixels(File(name)).values) << name;
    }
    options.encoding.depth = host::PixelDepth::Default;
    options.encoding.colorSpace = host::PictureColorSpace::Linear;
    ASSERT_TRUE(Bake(document, File("a.png"), options).IsOk());
    const PixelImage png = ReadPixels(File("a.png"));
    EXPECT_NEAR(0.5f, png.values[0], 0.51f / 255);
    EXPECT_EQ(1.0f, png.values[1]);
    EXPECT_EQ(0.0f, png.values[2]);
    EXPECT_NEAR(0.25f, png.values[3], 0.51f / 255);
}

TEST_F(BakeTest, SphereHasTrueNormalsAndIsTransparentOutside)
{
    BakeOptions options = Size(64, 64);
    options.view.shape = host::BakeShape::Sphere;
    options.encoding.depth = host::PixelDepth::Float;
    ASSERT_TRUE(Bake(kRamp, File("sphere.exr"), options).IsOk());
    const PixelImage image = ReadPixels(File("sphere.exr"));
    EXPECT_EQ(0.0f, image.At(0, 0)[3]);
    EXPECT_EQ(1.0f, image.At(32, 32)[3]);

    for (const auto& [x, y] : {std::pair(32.5, 32.5), {10.0, 40.0}, {50.5, 20.5}, {32.0, 0.5}, {63.5, 32.0}})
    {
        ShadingContext context;
        ASSERT_TRUE(host::FillContext(options.view, x, y, context)) << x << " " << y;
        const Vector& n = context.shadingNormal;
        EXPECT_NEAR(1.0, Dot(n, n), 1e-12);
        EXPECT_NEAR(0.0, Dot(n, context.tangent), 1e-12);
        EXPECT_NEAR(0.0, Dot(n, context.bitangent), 1e-12);
        EXPECT_NEAR(1.0, Dot(context.bitangent, context.bitangent), 1e-12);
        EXPECT_EQ(n, context.samplePosition);
        EXPECT_GE(context.bitangent.y, 0.0); // against v, so that bumps are lit alike in both directions
        EXPECT_GE(n.z, 0.0);
        // The neighbours lie on the sphere, too.
        EXPECT_NEAR(1.0, Dot(context.samplePositionPlusDeltaU, context.samplePositionPlusDeltaU), 1e-9);
        EXPECT_NEAR(1.0, Dot(context.samplePositionPlusDeltaV, context.samplePositionPlusDeltaV), 1e-9);
    }
    ShadingContext middle;
    ASSERT_TRUE(host::FillContext(options.view, 32.0, 32.0, middle));
    EXPECT_EQ((Vector{0.5, 0.5, 0.0}), middle.uvw);
    EXPECT_FALSE(host::FillContext(options.view, 1.0, 1.0, middle));
}

// By the command, which names a file for each channel. A choice is no picture and has none.
TEST_F(BakeTest, AMaterialIsBakedChannelByChannel)
{
    std::ofstream(File("m.json")) << R"({"version": 1, "nodes": {
        "paint": {"type": "passthrough", "inputs": {"color": [0.25, 0.5, 0.75, 0.5]}},
        "base": {"type": "bsdflayer", "inputs": {
            "bsdftype": "ggxbrdf", "color": {"from": "paint.passthrough"}, "roughness": {"from": "paint.passthrough"}}}},
        "outputs": {"look": "paint.passthrough"},
        "material": {"bsdflayers": [{"bsdflayer": {"from": "base.result"}}], "normal": [0, 0.5, -1],
            "aovs": [{"id": "mask", "color": [2, 0, 1]}]}})";
    const std::string command = fmt::format(
        "{} bake {} -o {} --size 1 --depth float", VELTO_BUILD_DIR "/velto", File("m.json"), File("{output}.exr"));
    ASSERT_EQ(0, std::system(command.c_str()));
    const std::map<std::string, std::vector<float>> expected{
        {"look", {0.25f, 0.5f, 0.75f, 0.5f}},
        {"layer1.color", {0.25f, 0.5f, 0.75f}},
        {"layer1.roughness", {static_cast<float>(0.25 * 0.2125 + 0.5 * 0.7154 + 0.75 * 0.0721)}},
        {"normal", {0.0f, 0.5f, -1.0f}},
        {"aov.mask", {2.0f, 0.0f, 1.0f}},
    };
    for (const auto& [name, values] : expected)
        EXPECT_EQ(values, ReadPixels(File(name + ".exr")).values) << name;
    EXPECT_EQ(expected.size() + 1, folder_.Names().size());
}

// Whatever goes wrong: no partial file, and what was there stays.
TEST_F(BakeTest, FailuresLeaveTheFolderAsItWas)
{
    const std::string file = File("kept.png");
    std::ofstream(file) << "kept";
    const auto isAsItWas = [&] { return ReadFile(file) == "kept" && folder_.Names().size() == 1; };
    BakeOptions options = Size(2000, 700);

    const std::string failing = R"({"version": 1, "nodes": {
        "u": {"type": "net.velto.test.coordinate"}, "n": {"type": "net.velto.test.fail", "inputs": {"fail": {"from": "u.result"}}}},
        "outputs": {"o": "n.result"}})";
    const Result failed = Bake(failing, file, options);
    EXPECT_EQ("net.velto.error.illegalstate", failed.Kind());
    EXPECT_TRUE(failed.Message().starts_with("nodes.n: Illegal state: Condition !fail not fulfilled."))
        << failed.Message();
    EXPECT_TRUE(isAsItWas());

    // Its build fails; a second sample would find what items there are.
    EXPECT_EQ("net.velto.error.nullptr", Bake(R"({"version": 1, "nodes": {
        "s": {"type": "net.velto.pattern.corenode.generator.scatter"}}, "outputs": {"mask": "s.mask"}})",
                                             file, options)
                                             .Kind());
    EXPECT_TRUE(isAsItWas());

    std::atomic<bool> stop = false;
    options.stop = &stop;
    options.progress = [&](const host::BakeProgress& progress) { stop = progress.share > 0.2; };
    EXPECT_EQ("interrupted", Bake(kBoard, file, options).Message());
    EXPECT_TRUE(isAsItWas());
    options.progress = {};
    options.stop = nullptr;

    EXPECT_TRUE(Bake(kBoard, File("picture.nosuchformat"), options).IsError());
    EXPECT_TRUE(Bake(kBoard, File("nosuchfolder/picture.png"), options).IsError());
    options.encoding.depth = host::PixelDepth::Half;
    EXPECT_TRUE(Bake(kBoard, file, options).IsError()); // no such pixels in this format
    options.encoding.depth = host::PixelDepth::Default;
    EXPECT_TRUE(
        Bake(R"({"version": 1, "nodes": {"n": {"type": "net.velto.test.keep.string"}}, "outputs": {"o": "n.result"}})",
            file, options)
            .IsError());
    EXPECT_TRUE(isAsItWas());

    ASSERT_TRUE(Bake(kBoard, file, options).IsOk());
    EXPECT_EQ(2000, ReadPixels(file).width);
    EXPECT_EQ(1u, folder_.Names().size());
}

} // namespace

} // namespace velto::test
