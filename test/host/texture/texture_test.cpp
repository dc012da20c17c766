#include "host/texture/texture.h"

#include "host/loader/services.h"
#include "host/picture/sampling.h"
#include "host/system/output.h"
#include "host/text/url.h"
#include "test/support/picture_files.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

namespace velto::test
{

using host::Pyramid;
using host::SampleRequest;
using host::TexelLevel;
using host::Transfer;

namespace
{

// A picture of one grey channel value a texel, as numbers.
Picture Grey(int width, int height, const std::vector<double>& values, const Transfer& transfer = {})
{
    TexelLevel<float> level(width, height);
    for (int i = 0; i < width * height; ++i)
    {
        float* const texel = level.At(i % width, i / width);
        std::fill(texel, texel + 3, static_cast<float>(values[static_cast<std::size_t>(i)]));
        texel[3] = 1.0f;
    }
    Picture picture;
    picture.width = width;
    picture.height = height;
    picture.texels = std::make_unique<Pyramid<float>>(std::move(level), transfer);
    return picture;
}

constexpr Int32 kBlending[] = {texture_filter::kLinear, texture_filter::kMip, texture_filter::kRip,
    texture_filter::kSat, texture_filter::kBicubic};

double At(const Picture& picture, double u, double v, Int32 interpolation, std::uint8_t tileMode = 0,
    bool acrossTiles = true, double width = 0.0, double height = 0.0)
{
    return host::SamplePicture(
        picture, {u, v, width, height, tileMode, tileMode, interpolation, true, texture_alpha::kStraight, acrossTiles})
        .r;
}

class TextureTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        host::Services();
        host::SetTextureMemory(UInt(1) << 30);
    }

    Result Load(const std::string& file, Ref<Texture>& texture, const std::string& layer = "")
    {
        Url url;
        VELTO_TRY(host::MakeUrl(file, url));
        LayerSet layers;
        VELTO_TRY(host::MakeLayerSet(layer, layers));
        return host::TextureManagementService().LoadTexture(
            url.Get(), nullptr, false, layers.Get(), {}, nullptr, texture.Receive());
    }

    // The colour at (u, v) of a file, or the error's text.
    std::string ColorOf(const std::string& file, const std::string& layer = "", double u = 0.5, double v = 0.5)
    {
        Ref<Texture> texture;
        if (const Result loaded = Load(file, texture, layer); loaded.IsError())
            return std::string(loaded.Message());
        ThreadedTextureRef front;
        const auto& fronts = host::ThreadedTextureService();
        EXPECT_TRUE(fronts.Alloc(front.Receive()).IsOk() && fronts.Init(front.Get(), texture.Get()).IsOk());
        const ColorA color = fronts.Sample(front.Get(), u, v, 0, 0, 0, 0, texture_filter::kNone, true, 0, true);
        char text[100];
        std::snprintf(text, sizeof(text), "%.4f %.4f %.4f %.4f", color.r, color.g, color.b, color.a);
        return text;
    }

    PictureFolder folder;
};

} // namespace

TEST_F(TextureTest, TileModes)
{
    const Picture picture = Grey(2, 1, {0.0, 1.0});
    struct Row
    {
        double u;
        std::uint8_t mode;
        bool across;
        double expected;
    };
    const Row rows[] = {{0.0, 2, true, 0.5}, {1.0, 2, true, 0.5}, {0.0, 2, false, 0.0}, {1.25, 2, true, 0.0},
        {-0.25, 2, true, 1.0}, {0.0, 0, true, 0.5}, {0.0, 1, true, 0.0}, {1.0, 1, true, 1.0}, {9.0, 1, true, 1.0},
        {-9.0, 1, true, 0.0}, {0.0, 3, true, 0.0}, {0.99, 3, true, 1.0}, {0.99, 3, false, 1.0}, {1.0, 3, true, 1.0},
        {1.0, 3, false, 1.0}, {1.75, 3, true, 0.0}, {-0.75, 3, true, 1.0}, {std::nan(""), 2, true, 0.5},
        {INFINITY, 2, true, 0.5}};
    for (const Row& row : rows)
        EXPECT_EQ(row.expected, At(picture, row.u, 0.5, texture_filter::kLinear, row.mode, row.across))
            << row.u << ", mode " << int(row.mode) << ", across " << row.across;
}

TEST_F(TextureTest, FootprintsTakeTheMean)
{
    std::vector<double> values;
    for (int i = 0; i < 64; ++i)
        values.push_back(i % 2);
    const Picture stripes = Grey(8, 8, values); // along u
    // A footprint of two texels takes the level where every texel is the mean of a black and a white one.
    for (const Int32 interpolation : {texture_filter::kMip, texture_filter::kBicubic, texture_filter::kSat})
        EXPECT_NEAR(0.5, At(stripes, 0.3, 0.3, interpolation, 2, true, 0.25, 0.25), 1e-6) << interpolation;
    // Without one it is the finest level.
    for (const Int32 interpolation : {texture_filter::kMip, texture_filter::kBicubic, texture_filter::kSat})
        EXPECT_NEAR(0.0, At(stripes, 0.0625, 0.0625, interpolation), 1e-6) << interpolation;
    // Between two levels, half of each; linear does not look.
    EXPECT_NEAR(0.25, At(stripes, 0.0625, 0.0625, texture_filter::kMip, 2, true, std::sqrt(2.0) / 8.0), 1e-6);
    EXPECT_EQ(0.0, At(stripes, 0.0625, 0.0625, texture_filter::kLinear, 2, true, 0.9, 0.9));
    // A footprint along the stripes keeps them apart where it is asked to.
    EXPECT_NEAR(0.0, At(stripes, 0.0625, 0.5, texture_filter::kRip, 2, true, 0.125, 1.0), 1e-6);
    EXPECT_NEAR(0.5, At(stripes, 0.0625, 0.5, texture_filter::kMip, 2, true, 0.125, 1.0), 1e-6);
    // The exact mean over three texels.
    EXPECT_NEAR(1.0 / 3.0, At(stripes, 0.1875, 0.5, texture_filter::kSat, 2, false, 0.375, 0.0), 1e-6);
}

TEST_F(TextureTest, CatmullRomPassesThroughTexels)
{
    const Picture ramp = Grey(8, 1, {-4, -3, -2, -1, 0, 1, 2, 3});
    for (const double x : {2.0, 3.25, 4.5})
        EXPECT_NEAR(x - 4.0, At(ramp, (x + 0.5) / 8.0, 0.5, texture_filter::kBicubic, 1), 1e-6);
}

// Coordinates and footprints are rounded as they are divided by the size.
TEST_F(TextureTest, AtOneTexelASampleAPictureIsItself)
{
    std::vector<double> noise;
    for (int i = 0; i < 600; ++i)
        noise.push_back(static_cast<float>(std::fmod(i * 0.7548776662466927, 1.0)));
    for (int size = 1; size <= 600; ++size)
    {
        const Picture picture = Grey(size, 1, noise);
        for (int x = 0; x < size; ++x)
        {
            const double u = (x + 0.5) / size;
            for (const Int32 filter : kBlending)
                ASSERT_EQ(noise[static_cast<std::size_t>(x)],
                    At(picture, u, 0.5, filter, 2, true, (x + 1.5) / size - u, 1.0 + 1e-15))
                    << size << ", " << x << ", " << filter;
        }
    }
}

TEST_F(TextureTest, LongFootprintsTakeTheMean)
{
    constexpr int kSide = 128;
    std::vector<double> noise;
    for (int i = 0; i < kSide * kSide; ++i)
        noise.push_back(std::fmod(i * i * 0.7548776662466927, 1.0));
    const Picture picture = Grey(kSide, kSide, noise);
    for (int i = 0; i < 200; ++i)
    {
        const int rows = 1 + i % 8;
        const int columns = 16 * rows;
        double mean = 0.0;
        for (int y = 0; y < rows; ++y)
        {
            for (int x = 0; x < columns; ++x)
                mean += noise[static_cast<std::size_t>((y + i / 4) % kSide * kSide + (x + i) % kSide)] / columns / rows;
        }
        EXPECT_NEAR(mean,
            At(picture, (i + columns * 0.5) / kSide, (i / 4 + rows * 0.5) / kSide, texture_filter::kSat, 2, true,
                double(columns) / kSide, double(rows) / kSide),
            0.005)
            << i;
    }
}

// Every texel of theirs lies half way between two steps.
TEST_F(TextureTest, LevelsOfBytesAreRoundedBothWays)
{
    constexpr int kSide = 32;
    TexelLevel<std::uint8_t> steps(kSide, kSide);
    for (int i = 0; i < kSide * kSide; ++i)
        std::fill_n(steps.At(i % kSide, i / kSide), 4, static_cast<std::uint8_t>(100 + i % 2));
    const Pyramid<std::uint8_t> pyramid(std::move(steps), {});
    for (const int level : {1, 3})
    {
        const TexelLevel<std::uint8_t>& coarser = pyramid.Level(level, {});
        double sum = 0.0;
        for (int i = 0; i < coarser.width * coarser.height; ++i)
            sum += *coarser.At(i % coarser.width, i / coarser.width);
        EXPECT_EQ(100.5, sum / (coarser.width * coarser.height));
    }
}

// What is cut out is black: none of it is seen.
template <class T>
void ExpectWhite(T top)
{
    constexpr int kSide = 37;
    TexelLevel<T> level(kSide, kSide);
    for (int i = 0; i < kSide * kSide; ++i)
        std::fill_n(level.At(i % kSide, i / kSide), 4, i * i % 7 < 3 ? top : T(0));
    Picture picture;
    picture.texels = std::make_unique<Pyramid<T>>(std::move(level), Transfer{Transfer::Curve::Srgb});
    SampleRequest request;
    for (int i = 0; i < 300; ++i)
    {
        request.u = i * 0.7548776662466927;
        request.v = i * 0.5698402909980532;
        request.width = 0.01 * (i % 50);
        request.height = 0.01 * (i % 17);
        for (const Int32 filter : kBlending)
        {
            request.interpolation = filter;
            const ColorA color = host::SamplePicture(picture, request);
            if (color.a > 0.0)
                EXPECT_NEAR(1.0, color.g, 1e-6) << i << ", " << filter;
        }
    }
}

TEST_F(TextureTest, NothingIsSeenOfWhatIsCutOut)
{
    ExpectWhite<std::uint8_t>(255);
    ExpectWhite<float>(1.0f);
}

TEST_F(TextureTest, OddSidesKeepTheirMean)
{
    const Picture odd = Grey(3, 5, {3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8, 9, 7, 9});
    EXPECT_NEAR(77.0 / 15.0, At(odd, 0.5, 0.5, texture_filter::kMip, 1, true, 9, 9), 1e-5);
}

TEST_F(TextureTest, EncodedColoursAreLinearBeforeTheyAreMixed)
{
    const Picture picture = Grey(2, 2, {0, 1, 0, 1}, {Transfer::Curve::Srgb});
    EXPECT_NEAR(0.5, At(picture, 0.5, 0.5, texture_filter::kLinear), 1e-7);
    const Picture grey = Grey(1, 1, {0.5}, {Transfer::Curve::Srgb});
    EXPECT_NEAR(0.21404114, At(grey, 0.5, 0.5, texture_filter::kLinear), 1e-7);
    EXPECT_NEAR(0.5, host::SamplePicture(grey, {.u = 0.5, .v = 0.5, .toLinear = false}).r, 1e-7);
    // A level is the mean of linear light, or of the plain numbers, as it is asked for.
    EXPECT_NEAR(0.5, At(picture, 0.5, 0.5, texture_filter::kMip, 2, true, 1, 1), 1e-6);
    EXPECT_NEAR(0.5,
        host::SamplePicture(picture,
            {.u = 0.5, .v = 0.5, .width = 1, .height = 1, .interpolation = texture_filter::kMip, .toLinear = false})
            .r,
        1e-6);
}

TEST_F(TextureTest, AlphaModes)
{
    TexelLevel<std::uint8_t> level(1, 1);
    level.texels = {64, 64, 64, 128};
    Picture picture;
    picture.texels = std::make_unique<Pyramid<std::uint8_t>>(std::move(level), Transfer{Transfer::Curve::Srgb});
    const auto at = [&](Int32 alpha, bool toLinear) {
        return host::SamplePicture(picture, {.toLinear = toLinear, .alpha = alpha});
    };
    const Transfer srgb{Transfer::Curve::Srgb};
    const double linear = srgb.ToLinear(64.0 / 255.0);
    EXPECT_DOUBLE_EQ(linear, at(texture_alpha::kStraight, true).r);
    EXPECT_DOUBLE_EQ(128.0 / 255.0, at(texture_alpha::kStraight, true).a);
    EXPECT_DOUBLE_EQ(64.0 / 255.0, at(texture_alpha::kStraight, false).r);
    EXPECT_EQ(1.0, at(texture_alpha::kNone, true).a);
    EXPECT_DOUBLE_EQ(linear / (128.0 / 255.0), at(texture_alpha::kPremultiplied, true).r);
    EXPECT_DOUBLE_EQ(srgb.ToLinear(0.5), at(texture_alpha::kPremultipliedColorSpace, true).r);
    EXPECT_DOUBLE_EQ(0.5, at(texture_alpha::kPremultipliedColorSpace, false).r);
    // Half of a footprint covered by one colour is that colour.
    TexelLevel<float> half(2, 1);
    std::fill_n(half.At(0, 0), 3, 0.4f);
    half.At(0, 0)[3] = 1.0f;
    picture.texels = std::make_unique<Pyramid<float>>(std::move(half), srgb);
    const ColorA mean = host::SamplePicture(picture, {.width = 1.0,
                                                         .height = 1.0,
                                                         .interpolation = texture_filter::kMip,
                                                         .alpha = texture_alpha::kPremultipliedColorSpace});
    EXPECT_NEAR(srgb.ToLinear(0.4), mean.r, 1e-6);
    EXPECT_EQ(0.5, mean.a);
}

TEST_F(TextureTest, FormatsAndTheirEncoding)
{
    // Half way up in 8 and 16 bits is sRGB; in floats it is linear.
    for (const char* const name : {"a.png", "a.tif", "a.tga"})
        EXPECT_EQ(
            "1.0000 0.2159 0.0000 1.0000", ColorOf(folder.Write(name, PictureDepth::UInt8, {1.0f, 128 / 255.0f, 0.0f})))
            << name;
    EXPECT_EQ("1.0000 0.2140 0.0000 1.0000", ColorOf(folder.Write("b.png", PictureDepth::UInt16, {1.0f, 0.5f, 0.0f})));
    for (const char* const name : {"a.exr", "a.hdr", "b.tif"})
        EXPECT_EQ("1.0000 0.5000 0.0000 1.0000", ColorOf(folder.Write(name, PictureDepth::Float, {1.0f, 0.5f, 0.0f})));
    EXPECT_EQ("0.2159 0.2159 0.2159 0.5020",
        ColorOf(folder.Write("grey.png", PictureDepth::UInt8, {128 / 255.0f, 128 / 255.0f})));
    // What the file says of itself goes before its depth.
    EXPECT_EQ("0.5020 0.5020 0.5020 1.0000",
        ColorOf(folder.Write("linear.png", PictureDepth::UInt8, {128 / 255.0f}, "Linear")));
    // The only way in which old files of this format say that they are sRGB.
    EXPECT_EQ("0.2159 0.2159 0.2159 1.0000",
        ColorOf(folder.Write("gamma.png", PictureDepth::UInt8, {128 / 255.0f}, "Gamma2.2")));
}

TEST_F(TextureTest, PicturesAreTurnedAsTheirFilesSay)
{
    struct Row
    {
        const char* file;
        int orientation;
        const char* shown;
    };
    const Row rows[] = {{"1.tif", 1, "123 456"}, {"2.tif", 2, "321 654"}, {"3.tif", 3, "654 321"},
        {"4.tif", 4, "456 123"}, {"5.tif", 5, "14 25 36"}, {"6.tif", 6, "41 52 63"}, {"7.tif", 7, "63 52 41"},
        {"8.tif", 8, "36 25 14"}, {"6.jpg", 6, "41 52 63"}};
    for (const Row& row : rows)
    {
        OIIO::ImageSpec spec(3, 2, 1, OIIO::TypeDesc::UINT8);
        spec["Orientation"] = row.orientation;
        spec["Compression"] = "jpeg:100";
        const std::string file = folder.WriteSpec(row.file, spec, {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f});
        const int width = row.orientation > 4 ? 2 : 3;
        std::string shown;
        for (int i = 0; i < 6; ++i)
        {
            if (i > 0 && i % width == 0)
                shown += ' ';
            const std::string color =
                ColorOf(file, "", (i % width + 0.5) / width, (i / width + 0.5) / (6 / width)); // NOLINT
            shown +=
                std::to_string(std::lround(10.0 * host::Transfer{Transfer::Curve::Srgb}.FromLinear(std::stod(color))));
        }
        EXPECT_EQ(row.shown, shown) << row.file;
    }
}

// What lies outside is dropped, what is missing is transparent; also where the picture is held coarser.
TEST_F(TextureTest, TheDisplayWindowIsThePicture)
{
    OIIO::ImageSpec spec(4, 4, 3, OIIO::TypeDesc::FLOAT);
    spec.x = spec.y = -2;
    spec.full_x = spec.full_y = 0;
    spec.full_width = 8;
    spec.full_height = 4;
    const std::string file = folder.WriteSpec("window.exr", spec, std::vector<float>(48, 0.5f));
    for (const UInt memory : {UInt(1) << 20, UInt(700)})
    {
        host::SetTextureMemory(memory);
        EXPECT_EQ("0.5000 0.5000 0.5000 1.0000", ColorOf(file, "", 0.2, 0.4));
        EXPECT_EQ("0.0000 0.0000 0.0000 0.0000", ColorOf(file, "", 0.3, 0.4));
        EXPECT_EQ("0.0000 0.0000 0.0000 0.0000", ColorOf(file, "", 0.2, 0.6));
    }
}

TEST_F(TextureTest, Layers)
{
    const std::string file = folder.WriteLayers("layers.exr");
    EXPECT_EQ("1.0000 0.0000 0.0000 1.0000", ColorOf(file));
    EXPECT_EQ("0.0000 1.0000 0.0000 1.0000", ColorOf(file, "diffuse"));
    EXPECT_EQ("0.0000 0.0000 1.0000 1.0000", ColorOf(file, "second"));
    EXPECT_EQ("0.0000 0.0000 1.0000 1.0000", ColorOf(file, "1"));
    EXPECT_NE(std::string::npos, ColorOf(file, "nothing").find("has no layer \"nothing\""));
}

TEST_F(TextureTest, WhatIsNoPictureSaysWhy)
{
    struct Row
    {
        std::string file;
        const char* reason;
        const char* layer = "";
    };
    const std::string png = folder.Write("good.png", PictureDepth::UInt8, {1.0f, 0.0f, 0.0f});
    using namespace std::string_literals;
    const std::string exr = folder.WriteLayers("good.exr");
    const Row rows[] = {
        {"", "no file given"},
        {folder.Path("none.png"), "no such file"},
        {folder.Path(""), "is a directory"},
        {"/dev/zero", "is not a regular file"},
        {folder.WriteBytes("empty.png", ""), "is empty"},
        {folder.WriteBytes("text.png", "not a picture"), "is of no format"},
        {folder.Truncate(png, "half.png", 40), "half.png: is cut off."},
        {folder.WritePngHeader("huge.png", 60000, 60000), "at most 32768 a side"},
        {folder.WritePngHeader("flat.png", 0, 10), "has no pixels"},
        {folder.WritePngHeader("liar.png", 30000, 30000), "claims more pixels"},
        {folder.WriteJpegHeader("huge.jpg", 65500, 65500), "huge.jpg: is 65500 x 65500 pixels large, at most"},
        {folder.WriteJpegHeader("liar.jpg", 30000, 30000), "claims more pixels"},
        {folder.WriteGif("high.gif", 65535), "high.gif: is 65535 x 65535 pixels large, at most"},
        {folder.WriteGif("huge.gif", 32768), "too many for a gif"},
        {folder.WriteGif("liar.gif", 16384), "claims more pixels"},
        {folder.Patch(exr, "text.exr", "string\0\x13\0\0\0"s, "string\0\x13\0\0\x7f"s), "claims a header"},
        {folder.Patch(exr, "type.exr", "diffuse.B\0\2"s, "diffuse.B\0\3"s), "of an unknown type 3"},
        {folder.WritePages("liar.tif", {1, 32768}), "claims more pixels", "1"},
        {folder.WritePages("none.tif", {1, 1}), "has no layer \"2\"", "2"},
        {folder.Loop("loop.png"), "loop.png: "},
    };
    for (const Row& row : rows)
    {
        Ref<Texture> texture;
        const Result loaded = Load(row.file, texture, row.layer);
        EXPECT_TRUE(loaded.IsError()) << row.file;
        EXPECT_NE(std::string::npos, loaded.Message().find(row.reason)) << loaded.Message();
        EXPECT_FALSE(texture);
    }
    // By what it holds, not by what it is called.
    EXPECT_EQ("1.0000 0.0000 0.0000 1.0000", ColorOf(folder.Rename(png, "good.jpg")));
}

TEST_F(TextureTest, APictureTooLargeIsHeldCoarser)
{
    const std::string file = folder.WriteChecker("fine.png", 256);
    std::vector<std::string> lines;
    host::SetOutputHandler([&](host::OutputChannel, LogTarget, std::string_view line) { lines.emplace_back(line); });
    host::SetTextureMemory(128 * 128 * 4 * 3 / 2); // too little for two sets of coarser levels
    Ref<Texture> texture;
    {
        const host::OutputSilence silence;
        ASSERT_TRUE(Load(file, texture).IsOk());
    }
    EXPECT_EQ("0.5029 0.5029 0.5029 1.0000", ColorOf(file)); // linear light of a mix of black and white
    host::SetOutputHandler({});
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("one pixel for each 4 x 4"));

    ThreadedTextureRef front;
    const auto& fronts = host::ThreadedTextureService();
    ASSERT_TRUE(fronts.Alloc(front.Receive()).IsOk() && fronts.Init(front.Get(), texture.Get()).IsOk());
    Int32 width = 0;
    Int32 height = 0;
    Float rate = 1.0;
    TimeValue length{1.0};
    ASSERT_TRUE(fronts.GetDetails(front.Get(), &width, &height, &rate, &length).IsOk());
    EXPECT_EQ(256, width);
    EXPECT_EQ(256, height);
    EXPECT_EQ(0.0, rate);
    EXPECT_EQ(0.0, length.seconds);
}

TEST_F(TextureTest, PicturesAreSharedAndReadAnewWhenTheyChange)
{
    const std::string file = folder.Write("a.png", PictureDepth::UInt8, {1.0f, 0.0f, 0.0f});
    Ref<Texture> first;
    ASSERT_TRUE(Load(file, first).IsOk());
    EXPECT_EQ("1.0000 0.0000 0.0000 1.0000", ColorOf(file));
    folder.Write("a.png", PictureDepth::UInt16, {0.0f, 1.0f, 0.0f});
    EXPECT_EQ("0.0000 1.0000 0.0000 1.0000", ColorOf(file));
}

// What nobody shows is dropped with the next load, while others read it.
TEST_F(TextureTest, ThreadsLoadAndDropPictures)
{
    const std::string files[] = {folder.WriteChecker("a.png", 8), folder.WriteChecker("b.png", 8)};
    host::SetTextureMemory(500); // room for one of them
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([&] {
            for (int k = 0; k < 50; ++k)
                EXPECT_EQ("0.0000 0.0000 0.0000 1.0000", ColorOf(files[k % 2], "", 0.0, 0.0));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// The coarser levels are made by whichever thread asks first.
TEST_F(TextureTest, ThreadsShareOnePicture)
{
    const Picture picture = Grey(64, 64, std::vector<double>(64 * 64, 0.25), {Transfer::Curve::Srgb});
    const double expected = Transfer{Transfer::Curve::Srgb}.ToLinear(0.25);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back([&] {
            for (int k = 0; k < 200; ++k)
                EXPECT_NEAR(expected, At(picture, k / 200.0, 0.5, texture_filter::kMip, 2, true, k / 300.0), 1e-6);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace velto::test
