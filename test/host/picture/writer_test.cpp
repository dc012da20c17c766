#include "host/picture/writer.h"

#include "test/support/picture_files.h"
#include "test/support/pixels.h"
#include "test/support/probe.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <half.h>
#include <tbb/task_arena.h>
#include <webp/decode.h>

#include <cmath>
#include <csignal>

namespace velto::test
{

namespace
{

using host::PictureEncoding;
using host::PictureLayout;
using host::PictureWriter;
using host::PixelDepth;

// Something that neither packs to nothing nor is noise alone.
std::vector<float> Pixels(const PictureLayout& layout)
{
    std::vector<float> pixels;
    unsigned random = 1;
    for (int y = 0; y < layout.height; ++y)
    {
        for (int x = 0; x < layout.width; ++x)
        {
            for (int c = 0; c < layout.channels; ++c)
            {
                random = random * 1664525 + 1013904223;
                const float grain = static_cast<float>(random >> 24) / 4096.0f;
                pixels.push_back(
                    c == 3 ? 1.0f : 0.5f + 0.4f * std::sin(0.1f * static_cast<float>(x * (c + 1) + y)) + grain);
            }
        }
    }
    return pixels;
}

Result Write(const std::string& file, const PictureLayout& layout, int bandRows, const PictureEncoding& encoding = {})
{
    const std::vector<float> pixels = Pixels(layout);
    const std::size_t row = static_cast<std::size_t>(layout.width) * static_cast<std::size_t>(layout.channels);
    std::vector<std::unique_ptr<PictureWriter>> writers(1);
    VELTO_TRY(PictureWriter::Open(file, "", layout, encoding, writers[0]));
    for (int y = 0; y < layout.height; y += bandRows)
        VELTO_TRY(
            writers[0]->WriteRows(&pixels[static_cast<std::size_t>(y) * row], std::min(bandRows, layout.height - y)));
    VELTO_TRY(writers[0]->Complete());
    return PictureWriter::PutInPlace(writers);
}

class WriterTest : public ::testing::Test
{
protected:
    WriterTest() { TheProbe(); }

    PictureFolder folder_;
};

struct Format
{
    const char* suffix;
    int channels = 4;
    float tolerance = 0.0f; // of what is read, in steps of the file
};

class WrittenFormat : public WriterTest, public ::testing::WithParamInterface<Format>
{
};

TEST_P(WrittenFormat, ReadsBackAndHasTheSameBytesHoweverItsRowsCome)
{
    const Format format = GetParam();
    const PictureLayout layout{131, 97, 4};
    const std::string file = folder_.Path(std::string("picture.") + format.suffix);
    std::string first;
    for (const int bandRows : {97, 1, 64})
    {
        tbb::task_arena arena(bandRows == 97 ? 1 : 4);
        Result written;
        arena.execute([&] { written = Write(file, layout, bandRows); });
        ASSERT_TRUE(written.IsOk()) << written.Message();
        if (first.empty())
            first = ReadFile(file);
        EXPECT_EQ(ReadFile(file) == first, true) << bandRows;
    }
    EXPECT_EQ(folder_.Names().size(), 1u);

    const PixelImage image = ReadPixels(file);
    const std::vector<float>& read = image.values;
    EXPECT_EQ(image.width, layout.width);
    EXPECT_EQ(image.height, layout.height);
    ASSERT_EQ(image.channels, format.channels);
    const auto count = static_cast<std::size_t>(image.channels);
    const std::vector<float> pixels = Pixels(layout);
    const bool isByte = image.spec.format == OIIO::TypeDesc::UINT8;
    for (std::size_t i = 0; i < read.size(); ++i)
    {
        float wanted = pixels[i / count * 4 + i % count];
        if (isByte && i % count < 3)
            wanted = wanted <= 0.0031308f ? 12.92f * wanted : 1.055f * std::pow(wanted, 1.0f / 2.4f) - 0.055f;
        // Numbers of a pixel share an exponent in hdr.
        const float* const pixel = &pixels[i / count * 4];
        const float largest = std::max({pixel[0], pixel[1], pixel[2]});
        const float step = isByte ? 0.5001f / 255.0f : format.tolerance > 0.0f ? largest / 128.0f : wanted / 2048.0f;
        ASSERT_NEAR(read[i], wanted, step * std::max(format.tolerance, 1.0f)) << i;
    }
}

TEST_P(WrittenFormat, KeepsTheOldFileWhereverTheDiskIsFull)
{
    const std::string file = folder_.Path(std::string("picture.") + GetParam().suffix);
    const PictureLayout layout{200, 150, 4};
    ASSERT_TRUE(Write(file, layout, 150).IsOk());
    const auto size = std::filesystem::file_size(file);
    std::ofstream(file) << "old";
    std::signal(SIGXFSZ, SIG_IGN);
    for (unsigned part = 0; part < 16; ++part)
    {
        const rlimit limit{size * part / 16, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        const Result written = Write(file, layout, 64);
        const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &none);
        EXPECT_TRUE(written.IsError()) << part;
        EXPECT_EQ(written.Message().find(file + " cannot be written: File too large"), 0u) << written.Message();
        EXPECT_EQ(ReadFile(file), "old") << part;
        EXPECT_EQ(folder_.Names().size(), 1u) << part;
    }
}

INSTANTIATE_TEST_SUITE_P(Table, WrittenFormat,
    ::testing::Values(Format{"png"}, Format{"exr"}, Format{"tif"}, Format{"jpg", 3, 60}, Format{"hdr", 3, 4},
        Format{"tga"}, Format{"bmp"}, Format{"gif", 4, 255}, Format{"webp", 3}, Format{"jp2"}, Format{"dpx"},
        Format{"ppm", 3}),
    [](const auto& info) { return std::string(info.param.suffix); });

TEST_F(WriterTest, WebpKeepsTheColoursOfTransparentPixels)
{
    const std::string file = folder_.Path("picture.webp");
    std::vector<float> pixels;
    for (int i = 0; i < 256; ++i)
    {
        for (const int channel : {i, 255 - i, i * 7 % 256, i / 2})
            pixels.push_back(static_cast<float>(channel) / 255.0f);
    }
    std::vector<std::unique_ptr<PictureWriter>> writers(1);
    const PictureEncoding asIs{PixelDepth::UInt8, host::PictureColorSpace::Linear};
    ASSERT_TRUE(PictureWriter::Open(file, "", {16, 16, 4}, asIs, writers[0]).IsOk());
    ASSERT_TRUE(writers[0]->WriteRows(pixels.data(), 16).IsOk());
    ASSERT_TRUE(writers[0]->Complete().IsOk());
    ASSERT_TRUE(PictureWriter::PutInPlace(writers).IsOk());
    const std::string bytes = ReadFile(file);
    int width = 0;
    int height = 0;
    const std::unique_ptr<std::uint8_t, decltype(&WebPFree)> read(
        WebPDecodeRGBA(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), &width, &height), &WebPFree);
    ASSERT_TRUE(read && width == 16 && height == 16);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        ASSERT_EQ(read.get()[i], std::lround(pixels[i] * 255.0f)) << i;
}

TEST_F(WriterTest, SaysWhatCannotBeWrittenBeforeAnythingIsSampled)
{
    const std::string longest(251, 'n');
    mkfifo(folder_.Path("pipe.png").c_str(), 0666);
    std::filesystem::create_directory(folder_.Path("folder.png"));
    const struct
    {
        std::string file;
        std::string format;
        PixelDepth depth;
        const char* reason; // null: it goes well
    } table[] = {
        {folder_.Path(longest + ".png"), "", PixelDepth::Default, nullptr},
        {folder_.Path(longest + "n.png"), "", PixelDepth::Default, "File name too long"},
        {folder_.Path("pipe.png"), "", PixelDepth::Default, "not a regular file"},
        {folder_.Path("folder.png"), "", PixelDepth::Default, "not a regular file"},
        {"/dev/full", "png", PixelDepth::Default, "not a regular file"},
        {"/proc/picture.png", "", PixelDepth::Default, "cannot be written"},
        {folder_.Path("none/picture.png"), "", PixelDepth::Default, "No such file or directory"},
        {folder_.Path("picture.sgi"), "", PixelDepth::Default, "no format sgi is written; known are png, exr"},
        {folder_.Path("picture"), "", PixelDepth::Default, "a format is missing"},
        {folder_.Path("picture"), "tga", PixelDepth::Default, nullptr},
        {folder_.Path("picture.jpg"), "", PixelDepth::Half, "the format jpeg has no pixels of type half"},
    };
    for (const auto& row : table)
    {
        std::unique_ptr<PictureWriter> writer;
        const Result opened = PictureWriter::Open(row.file, row.format, {4, 4, 4}, {row.depth}, writer);
        EXPECT_EQ(opened.IsOk(), row.reason == nullptr) << row.file;
        if (row.reason && opened.IsError())
            EXPECT_NE(opened.Message().find(row.reason), std::string::npos) << opened.Message();
    }
    EXPECT_EQ(folder_.Names().size(), 2u);
}

TEST_F(WriterTest, SeveralFilesAppearTogetherOrNotAtAll)
{
    const std::string files[] = {folder_.Path("new.png"), folder_.Path("old.exr"), folder_.Path("last.png")};
    std::ofstream(files[1]) << "old";
    const PictureLayout layout{8, 8, 4};
    const std::vector<float> pixels = Pixels(layout);
    std::vector<std::unique_ptr<PictureWriter>> writers(3);
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(PictureWriter::Open(files[i], "", layout, {}, writers[i]).IsOk());
        ASSERT_TRUE(writers[i]->WriteRows(pixels.data(), 8).IsOk());
        ASSERT_TRUE(writers[i]->Complete().IsOk());
    }
    std::filesystem::create_directory(files[2]);
    EXPECT_TRUE(PictureWriter::PutInPlace(writers).IsError());
    EXPECT_FALSE(std::filesystem::exists(files[0]));
    EXPECT_EQ(ReadFile(files[1]), "old");
    writers.clear();
    EXPECT_EQ(folder_.Names().size(), 2u);
}

TEST_F(WriterTest, KeepsTheModeOfAFileAndReplacesALinkNotItsTarget)
{
    const std::string kept = folder_.Path("kept.png");
    const std::string fresh = folder_.Path("fresh.png");
    const std::string link = folder_.Path("link.png");
    const std::string target = folder_.Path("target");
    std::ofstream(kept) << "old";
    std::ofstream(target) << "old";
    std::filesystem::create_symlink(target, link);
    ::chmod(kept.c_str(), 0604);
    ::umask(027);
    for (const std::string& file : {kept, fresh, link})
        ASSERT_TRUE(Write(file, {8, 8, 3}, 8).IsOk());
    struct stat status = {};
    ASSERT_EQ(::stat(kept.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0604u);
    ASSERT_EQ(::stat(fresh.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
    EXPECT_EQ(ReadFile(target), "old");
    EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST_F(WriterTest, APartLiesAtItsPlaceInTheWhole)
{
    for (const char* const name : {"part.exr", "part.tif"})
    {
        const std::string file = folder_.Path(name);
        ASSERT_TRUE(Write(file, {30, 20, 3, 7, 9, 64, 48, {{"velto:part", "1"}}}, 20).IsOk());
        const OIIO::ImageSpec spec = ReadPixels(file).spec;
        EXPECT_EQ((std::vector{spec.x, spec.y, spec.full_x, spec.full_y, spec.full_width, spec.full_height}),
            (std::vector{7, 9, 0, 0, 64, 48}))
            << name;
        if (name == std::string_view("part.exr"))
            EXPECT_EQ(spec.get_string_attribute("velto:part"), "1");
    }
}

// What is stored is the nearest value that can be, over all floats in steps.
TEST_F(WriterTest, RoundsToTheNearest)
{
    PictureLayout layout{4099, 1, 1};
    std::vector<float> values;
    for (int i = 0; i < layout.width; ++i)
        values.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(i) * 1048573u));
    const struct
    {
        const char* name;
        PictureEncoding encoding;
    } table[] = {{"half.exr", {PixelDepth::Half, host::PictureColorSpace::Linear}},
        {"byte.png", {PixelDepth::UInt8, host::PictureColorSpace::Srgb}},
        {"short.png", {PixelDepth::UInt16, host::PictureColorSpace::Linear}}};
    for (const auto& row : table)
    {
        std::vector<std::unique_ptr<PictureWriter>> writers(1);
        const std::string file = folder_.Path(row.name);
        ASSERT_TRUE(PictureWriter::Open(file, "", layout, row.encoding, writers[0]).IsOk());
        ASSERT_TRUE(writers[0]->WriteRows(values.data(), 1).IsOk());
        ASSERT_TRUE(writers[0]->Complete().IsOk());
        ASSERT_TRUE(PictureWriter::PutInPlace(writers).IsOk());
        const std::vector<float> read = ReadPixels(file).values;
        ASSERT_EQ(read.size(), values.size());
        for (std::size_t i = 0; i < values.size(); ++i)
        {
            const float c = values[i];
            float wanted = std::isnan(c) ? 0.0f : std::clamp(c, 0.0f, 1.0f);
            if (row.encoding.depth == PixelDepth::Half)
                wanted = static_cast<float>(static_cast<half>(c));
            else if (row.encoding.depth == PixelDepth::UInt16)
                wanted = std::round(wanted * 65535.0f) / 65535.0f;
            else if (wanted <= 0.0031308f)
                wanted = std::round(12.92f * wanted * 255.0f) / 255.0f;
            else
                wanted = std::round((1.055f * std::pow(wanted, 1.0f / 2.4f) - 0.055f) * 255.0f) / 255.0f;
            if (std::isnan(wanted))
                ASSERT_TRUE(std::isnan(read[i])) << row.name << ' ' << c;
            else
                ASSERT_FLOAT_EQ(read[i], wanted) << row.name << ' ' << c;
        }
    }
}

} // namespace

} // namespace velto::test
