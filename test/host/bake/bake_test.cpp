#include "host/bake/bake.h"

#include "host/registry/datatypes.h"
#include "host/system/output.h"
#include "test/support/probe.h"
#include "velto/porttypes.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <thread>
#include <tuple>

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

// State in a function that the first tile of the board does not ask for.
constexpr std::string_view kLazy = R"({"version": 1, "nodes": {
    "place": {"type": "placement2d", "inputs": {"localOffset": [-0.2, -0.2]}},
    "turn": {"type": "net.velto.pattern.corenode.generator.random", "inputs": {"minimum": -3, "maximum": 3}},
    "items": {"type": "scatter", "arguments": {"count": 40}, "inputs": {"perItemRotation": {"from": "turn.resultFloat"},
        "perItemRandomRotation": 0, "perItemScale": [0.25, 0.1]}},
    "tint": {"type": "hash", "inputs": {"seed": {"from": "items.index"}}},
    "board": {"type": "checkerboard", "inputs": {"contextLocal": {"from": "place.result"}, "color1": [0, 0, 0, 1],
        "color2": {"from": "tint.resultColor"}}}},
    "outputs": {"color": "board.result"}})";

// The coordinate of the sample as a colour: r = u.
constexpr std::string_view kRamp = R"({"version": 1, "nodes": {
    "u": {"type": "net.velto.test.coordinate"},
    "n": {"type": "net.velto.test.keep.colora", "inputs": {"x": {"from": "u.result"}}}},
    "outputs": {"color": "n.result", "number": "u.result"}})";

struct PixelImage
{
    int width = 0;
    int height = 0;
    int channels = 0;
    OIIO::TypeDesc type;
    std::string date;
    std::vector<float> values;

    const float* At(int x, int y) const { return &values[(static_cast<std::size_t>(y) * width + x) * channels]; }
};

class BakeTest : public ::testing::Test
{
protected:
    BakeTest()
    {
        TheProbe();
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
    }
    ~BakeTest() override { std::filesystem::remove_all(folder_); }

    std::string File(const std::string& name) const { return (folder_ / name).string(); }

    static Result Bake(
        std::string_view document, const std::string& file, const BakeOptions& options, std::size_t output = 0)
    {
        host::Graph graph;
        EXPECT_TRUE(Load(document, graph));
        host::BakeStatistics statistics;
        return host::Bake(graph, {{output, file}}, options, statistics);
    }

    static std::string Bytes(const std::string& file)
    {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    static PixelImage Read(const std::string& file)
    {
        PixelImage image;
        OIIO::ImageSpec asIs;
        asIs.attribute("oiio:UnassociatedAlpha", 1);
        const auto input = OIIO::ImageInput::open(file, &asIs);
        EXPECT_TRUE(input) << file;
        if (!input)
            return image;
        const OIIO::ImageSpec& spec = input->spec();
        image.width = spec.width;
        image.height = spec.height;
        image.channels = spec.nchannels;
        image.type = spec.format;
        image.date = spec.get_string_attribute("DateTime");
        image.values.resize(spec.image_pixels() * spec.nchannels);
        EXPECT_TRUE(input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, image.values.data()));
        return image;
    }

    std::vector<std::string> FolderContents() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_))
            names.push_back(entry.path().filename().string());
        return names;
    }

    static BakeOptions Size(int width, int height)
    {
        BakeOptions options;
        options.view.width = width;
        options.view.height = height;
        return options;
    }

    std::filesystem::path folder_ =
        std::filesystem::path(::testing::TempDir()) / fmt::format("velto_bake_{}", ::getpid());
};

using BakeThreads = BakeTest;

TEST_F(BakeThreads, GiveTheSameBytesAsOne)
{
    // What could depend on threads: tables and state, and outputs that a node leaves as a sample before it left them.
    const std::string raster = R"({"version": 1, "nodes": {
        "board": {"type": "checkerboard", "inputs": {"color1": [0, 0, 0, 1], "color2": [9, 9, 9, 1]}},
        "place": {"type": "placement2d", "inputs": {"localRotation": 0.3}},
        "u": {"type": "net.velto.test.coordinate", "inputs": {"context": {"from": "place.result"}}},
        "vector": {"type": "composevector4", "inputs": {"x": {"from": "u.result"}}},
        "split": {"type": "splitvectorcomponents", "inputs": {"vector": {"from": "vector.result"}, "index": {"from": "board.result"}}},
        "cache": {"type": "cache", "inputs": {"color": {"from": "split.indexedComponent"}, "width": 512, "height": 512,
            "interpolation": "nearest"}}},
        "outputs": {"color": "cache.result"}})";
    BakeOptions options = Size(301, 257);
    options.view.supersample = 2;
    for (const std::string& text : {std::string(kLazy), raster})
    {
        std::string one;
        for (const int threads : {1, 2, 4, 7})
        {
            options.threads = threads;
            const std::string file = File(fmt::format("{}.png", threads));
            ASSERT_TRUE(Bake(text, file, options).IsOk());
            const std::string bytes = Bytes(file);
            one = one.empty() ? bytes : one;
            EXPECT_TRUE(!bytes.empty() && bytes == one) << threads;
        }
    }
}

// The same picture on threads of the test's own, which race detectors see through.
std::vector<float> SampleOnThreads(host::Graph& graph, const BakeOptions& options)
{
    constexpr int kThreads = 4;
    std::vector<float> values(static_cast<std::size_t>(options.view.width * options.view.height * 4));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back([&, t] {
            std::unique_ptr<host::Instance> instance;
            if (host::Instance::Create(*graph.setup, instance).IsError())
                return;
            ShadingContext& context = instance->Context();
            context.frameRate = options.framesPerSecond;
            context.searchPaths = graph.searchPaths.get();
            context.renderMessages = graph.messages.get();
            instance->SetIndependentSamples();
            host::FillContext(options.view, 0.5, 0.5, context);
            instance->StartStateFrom(context);
            for (int i = t; i < options.view.width * options.view.height; i += kThreads)
            {
                host::FillContext(options.view, i % options.view.width + 0.5, i / options.view.width + 0.5, context);
                if (instance->Evaluate().IsError())
                    return;
                for (int k = 0; k < 4; ++k)
                    values[static_cast<std::size_t>(i * 4 + k)] =
                        static_cast<float>(static_cast<const Float*>(instance->Output(0))[k]);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return values;
}

// What a blur bakes, all threads work on at once.
TEST_F(BakeThreads, GiveTheSameForEveryExampleBehindABlur)
{
    host::SetOutputHandler([](auto&&...) {}); // one of them prints
    const std::filesystem::path examples = VELTO_SOURCE_DIR "/examples/nodes";
    host::GraphOptions graphOptions;
    graphOptions.searchPaths = {examples.string()};
    BakeOptions options = Size(32, 32);
    options.encoding.depth = host::PixelDepth::Float;
    int reports = 0;
    options.progress = [&](const host::BakeProgress& progress) {
        reports += progress.raster && progress.raster->node == "blurred" && progress.raster->width == 32 ? 1 : 0;
    };
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(examples))
    {
        SCOPED_TRACE(entry.path().stem().string());
        const std::string text = Bytes(entry.path().string());
        host::Json document = Parse(text);
        if (!document.Find("outputs"))
            continue; // a material
        host::Graph graph;
        ASSERT_TRUE(Load(text, graph, graphOptions));
        host::Json nodes = *document.Find("nodes");
        std::string color = document.Find("outputs")->GetMembers().front().second.AsString();
        for (const auto& [type, converter, port] : {std::tuple(host::TypeOf<String>(), "length", "string"),
                 {host::TypeOf<Vector>(), "net.velto.test.keep.color", "x"}})
        {
            if (graph.program->outputs[0].type != type)
                continue;
            nodes.Add("converted", Parse(fmt::format(R"({{"type": "{}", "inputs": {{"{}": {{"from": "{}"}}}}}})",
                                       converter, port, color)));
            color = "converted.result";
        }
        nodes.Add(
            "blurred", Parse(fmt::format(
                           R"({{"type": "blur", "inputs": {{"resolution": 32, "color": {{"from": "{}"}}}}}})", color)));
        document.Set("nodes", std::move(nodes));
        document.Set("outputs", Parse(R"({"color": "blurred.result"})"));
        std::vector<float> one;
        for (const int threads : {1, 4})
        {
            options.threads = threads;
            host::Graph blurred;
            ASSERT_TRUE(Load(document.Write(), blurred, graphOptions));
            host::BakeStatistics statistics;
            const Result baked = host::Bake(blurred, {{0, File("blurred.exr")}}, options, statistics);
            ASSERT_TRUE(baked.IsOk()) << baked.Message();
            ASSERT_FALSE(statistics.rasters.empty());
            EXPECT_EQ("blurred", statistics.rasters.back().node);
            EXPECT_EQ(32u * 32u * sizeof(ColorA), statistics.rasters.back().bytes);
            const std::vector<float> values = Read(File("blurred.exr")).values;
            one = one.empty() ? values : one;
            EXPECT_TRUE(std::memcmp(values.data(), one.data(), one.size() * sizeof(float)) == 0) << threads;
            EXPECT_EQ(one, SampleOnThreads(blurred, options));
        }
        ++count;
    }
    EXPECT_GT(count, 70);
    EXPECT_GE(reports, 2 * count); // on one thread four each
    host::SetOutputHandler({});
}

TEST_F(BakeTest, CropsEqualTheWhole)
{
    BakeOptions options = Size(200, 150);
    ASSERT_TRUE(Bake(kLazy, File("whole.exr"), options).IsOk());
    const PixelImage whole = Read(File("whole.exr"));
    for (const host::BakeWindow& window :
        {host::BakeWindow{0, 0, 200, 150}, {13, 17, 91, 70}, {199, 149, 1, 1}, {0, 149, 200, 1}})
    {
        options.window = window;
        ASSERT_TRUE(Bake(kLazy, File("crop.exr"), options).IsOk());
        const PixelImage crop = Read(File("crop.exr"));
        ASSERT_EQ(window.width, crop.width);
        ASSERT_EQ(window.height, crop.height);
        for (int y = 0; y < crop.height; ++y)
            ASSERT_TRUE(
                std::equal(crop.At(0, y), crop.At(0, y) + crop.width * crop.channels, whole.At(window.x, window.y + y)))
                << y;
    }
    options.window = {150, 0, 51, 10};
    EXPECT_TRUE(Bake(kLazy, File("crop.exr"), options).IsError());
}

// Pixel (x, y) is sampled in its middle; v counts from the top row.
TEST_F(BakeTest, SamplesAreInTheMiddleOfPixels)
{
    const std::string document = R"({"version": 1, "nodes": {
        "split": {"type": "net.velto.test.coordinate"}}, "outputs": {"u": "split.result"}})";
    BakeOptions options = Size(4, 2);
    options.encoding.depth = host::PixelDepth::Float;
    ASSERT_TRUE(Bake(document, File("u.exr"), options).IsOk());
    const PixelImage image = Read(File("u.exr"));
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
    const PixelImage image = Read(File("u.exr"));
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
        const PixelImage fine = Read(File("fine.exr"));
        const PixelImage coarse = Read(File("coarse.exr"));
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
    const PixelImage image = Read(file);
    EXPECT_EQ(OIIO::TypeDesc(row.type), image.type);
    EXPECT_EQ("", image.date);
    ASSERT_EQ(row.channels, image.channels);
    EXPECT_NEAR(row.middle, image.At(4, 1)[0], row.tolerance);
    if (row.channels == 4)
    {
        EXPECT_EQ(1.0f, image.At(4, 1)[3]);
    }
    EXPECT_EQ(1u, FolderContents().size());
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
        EXPECT_EQ((std::vector<float>{0.5f, 2.0f, -1.0f, 0.25f}), Read(File(name)).values) << name;
    }
    options.encoding.depth = host::PixelDepth::Default;
    options.encoding.colorSpace = host::PictureColorSpace::Linear;
    ASSERT_TRUE(Bake(document, File("a.png"), options).IsOk());
    const PixelImage png = Read(File("a.png"));
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
    const PixelImage image = Read(File("sphere.exr"));
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
        EXPECT_EQ(values, Read(File(name + ".exr")).values) << name;
    EXPECT_EQ(expected.size() + 1, FolderContents().size());
}

// Whatever goes wrong: no partial file, and what was there stays.
TEST_F(BakeTest, FailuresLeaveTheFolderAsItWas)
{
    const std::string file = File("kept.png");
    std::ofstream(file) << "kept";
    const auto isAsItWas = [&] { return Bytes(file) == "kept" && FolderContents().size() == 1; };
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
    EXPECT_EQ(2000, Read(file).width);
    EXPECT_EQ(1u, FolderContents().size());
}

} // namespace

} // namespace velto::test
