// A temporary folder with pictures of a test's own making.
#pragma once

#include "files.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

namespace velto::test
{

enum class PictureDepth
{
    UInt8,
    UInt16,
    Float,
};

class PictureFolder : public TemporaryFolder
{
public:
    // A picture of 4 x 4 pixels of one colour.
    std::string Write(const std::string& name, PictureDepth depth, const std::vector<float>& color,
        const std::string& colorSpace = "") const
    {
        std::vector<float> pixels;
        for (int i = 0; i < 16; ++i)
            pixels.insert(pixels.end(), color.begin(), color.end());
        return WritePixels(name, 4, static_cast<int>(color.size()), pixels, depth, colorSpace);
    }

    // Black and white pixels in turn.
    std::string WriteChecker(const std::string& name, int size) const
    {
        std::vector<float> pixels;
        for (int i = 0; i < size * size; ++i)
            pixels.push_back(static_cast<float>((i % size + i / size) % 2));
        return WritePixels(name, size, 1, pixels, PictureDepth::UInt8, "");
    }

    // Red, a green group of channels "diffuse", and a blue part "second".
    std::string WriteLayers(const std::string& name) const
    {
        OIIO::ImageSpec first(2, 2, 6, OIIO::TypeDesc::FLOAT);
        first.channelnames = {"R", "G", "B", "diffuse.R", "diffuse.G", "diffuse.B"};
        first["oiio:subimagename"] = "first";
        OIIO::ImageSpec second(2, 2, 3, OIIO::TypeDesc::FLOAT);
        second["oiio:subimagename"] = "second";
        first["DateTime"] = second["DateTime"] = kDate;
        std::vector<float> firstPixels;
        std::vector<float> secondPixels;
        for (int i = 0; i < 4; ++i)
        {
            firstPixels.insert(firstPixels.end(), {1, 0, 0, 0, 1, 0});
            secondPixels.insert(secondPixels.end(), {0, 0, 1});
        }
        const auto output = OIIO::ImageOutput::create(name);
        const OIIO::ImageSpec specs[] = {first, second};
        EXPECT_TRUE(output->open(Path(name), 2, specs));
        EXPECT_TRUE(output->write_image(OIIO::TypeDesc::FLOAT, firstPixels.data()));
        EXPECT_TRUE(output->open(Path(name), second, OIIO::ImageOutput::AppendSubimage));
        EXPECT_TRUE(output->write_image(OIIO::TypeDesc::FLOAT, secondPixels.data()));
        EXPECT_TRUE(output->close());
        return Path(name);
    }

    // An animation of pictures of one grey each.
    std::string WriteMovie(const std::string& name, int framesPerSecond, const std::vector<float>& greys) const
    {
        OIIO::ImageSpec spec(8, 8, 3, OIIO::TypeDesc::UINT8);
        spec["FramesPerSecond"] = float(framesPerSecond);
        spec.attribute("oiio:Movie", 1);
        const auto output = OIIO::ImageOutput::create(name);
        for (std::size_t i = 0; i < greys.size(); ++i)
        {
            const std::vector<float> pixels(8 * 8 * 3, greys[i]);
            EXPECT_TRUE(
                output->open(Path(name), spec, i == 0 ? OIIO::ImageOutput::Create : OIIO::ImageOutput::AppendSubimage));
            EXPECT_TRUE(output->write_image(OIIO::TypeDesc::FLOAT, pixels.data()));
        }
        EXPECT_TRUE(output->close());
        return Path(name);
    }

    std::string WriteSpec(const std::string& name, const OIIO::ImageSpec& spec, const std::vector<float>& pixels) const
    {
        const auto output = OIIO::ImageOutput::create(name);
        EXPECT_TRUE(output && output->open(Path(name), spec) &&
                    output->write_image(OIIO::TypeDesc::FLOAT, pixels.data()) && output->close())
            << name;
        return Path(name);
    }

    // A header that claims a size, and nothing behind it.
    std::string WritePngHeader(const std::string& name, unsigned width, unsigned height) const
    {
        std::string bytes("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
        for (const unsigned side : {width, height})
        {
            for (int shift = 24; shift >= 0; shift -= 8)
                bytes += static_cast<char>(side >> shift);
        }
        bytes += std::string("\x08\x06\0\0\0", 5) + std::string(32, '\0');
        return WriteBytes(name, bytes);
    }

    // A progressive picture's segments up to the first scan, behind one that is to be passed over.
    std::string WriteJpegHeader(const std::string& name, unsigned width, unsigned height) const
    {
        std::string bytes("\xff\xd8\xff\xe0\0\x06\xff\xc2\0\0\xff\xff\xc2\0\x11\x08", 16);
        for (const unsigned side : {height, width})
            bytes += {static_cast<char>(side >> 8), static_cast<char>(side)};
        return WriteBytes(name, bytes + std::string("\x03\x01\x11\0\x02\x11\0\x03\x11\0\xff\xda", 12));
    }

    // Pictures of one pixel on a square screen, each shown for so many hundredths of a second.
    std::string WriteGif(const std::string& name, std::size_t side, const std::vector<std::size_t>& delays = {10}) const
    {
        std::string bytes = "GIF89a" + Bytes({side, side}, 2) + std::string("\x80\0\0\0\0\0\xff\xff\xff", 9);
        for (const std::size_t delay : delays)
            bytes += std::string("!\xf9\x04\0", 4) + Bytes({delay}, 2) + std::string("\0\0", 2) +
                     std::string(",\0\0\0\0\x01\0\x01\0\0\x02\x02\x44\x01\0", 15);
        return WriteBytes(name, bytes + ";");
    }

    // An animation of one grey each, as an avi of plain pixels.
    std::string WriteVideo(const std::string& name, int framesPerSecond, const std::vector<float>& greys) const
    {
        const auto chunk = [](const std::string& id, const std::string& bytes) {
            return id + Bytes({bytes.size()}) + bytes;
        };
        const std::size_t rate = static_cast<std::size_t>(framesPerSecond);
        std::string frames = "movi";
        for (const float grey : greys)
            frames += chunk("00db", std::string(8 * 8 * 3, static_cast<char>(static_cast<int>(grey * 255.0f + 0.5f))));
        const std::string stream =
            chunk("strh", "vidsDIB " + Bytes({0, 0, 0, 1, rate, 0, greys.size(), 192, 0, 0, 0, 0})) +
            chunk("strf", Bytes({40, 8, 8}) + Bytes({1, 24}, 2) + Bytes({0, 192, 0, 0, 0, 0}));
        const std::string head =
            chunk("avih", Bytes({1000000 / rate, 0, 0, 0, greys.size(), 0, 1, 192, 8, 8, 0, 0, 0, 0}));
        return WriteBytes(name, chunk("RIFF", "AVI " + chunk("LIST", "hdrl" + head + chunk("LIST", "strl" + stream)) +
                                                  chunk("LIST", frames)));
    }

    // Square grey pages of a tif, a byte of pixels behind each.
    std::string WritePages(const std::string& name, const std::vector<std::size_t>& sides) const
    {
        std::string bytes("II*\0\x08\0\0\0", 8);
        for (const std::size_t& side : sides)
        {
            const std::pair<std::size_t, std::size_t> entries[] = {
                {256, side}, {257, side}, {258, 8}, {259, 1}, {262, 1}, {273, 8}, {277, 1}, {278, side}, {279, 1}};
            bytes += Bytes({std::size(entries)}, 2);
            for (const auto& [tag, value] : entries)
                bytes += Bytes({tag, 4}, 2) + Bytes({1, value});
            bytes += Bytes({&side == &sides.back() ? 0 : bytes.size() + 4});
        }
        return WriteBytes(name, bytes);
    }

    std::string Patch(
        const std::string& file, const std::string& name, const std::string& old, const std::string& replacement) const
    {
        std::string bytes = ReadFile(file);
        EXPECT_NE(bytes.npos, bytes.find(old)) << name;
        return WriteBytes(name, bytes.replace(bytes.find(old), old.size(), replacement));
    }

    std::string Truncate(const std::string& file, const std::string& name, std::size_t size) const
    {
        std::filesystem::copy_file(file, Path(name));
        std::filesystem::resize_file(Path(name), size);
        return Path(name);
    }

    std::string Rename(const std::string& file, const std::string& name) const
    {
        std::filesystem::rename(file, Path(name));
        return Path(name);
    }

    // A link to itself.
    std::string Loop(const std::string& name) const
    {
        std::filesystem::create_symlink(Path(name), Path(name));
        return Path(name);
    }

private:
    // Numbers of `size` bytes each, the low one first.
    static std::string Bytes(std::initializer_list<std::size_t> numbers, int size = 4)
    {
        std::string bytes;
        for (const std::size_t number : numbers)
        {
            for (int i = 0; i < size; ++i)
                bytes += static_cast<char>(number >> (8 * i) & 255);
        }
        return bytes;
    }

    std::string WritePixels(const std::string& name, int size, int channels, const std::vector<float>& pixels,
        PictureDepth depth, const std::string& colorSpace) const
    {
        OIIO::ImageSpec spec(size, size, channels,
            depth == PictureDepth::UInt8    ? OIIO::TypeDesc::UINT8
            : depth == PictureDepth::UInt16 ? OIIO::TypeDesc::UINT16
                                            : OIIO::TypeDesc::FLOAT);
        spec["oiio:UnassociatedAlpha"] = 1;
        spec["DateTime"] = kDate;
        if (!colorSpace.empty())
            spec["oiio:ColorSpace"] = colorSpace;
        return WriteSpec(name, spec, pixels);
    }

    static constexpr const char* kDate = "2001:02:03 04:05:06"; // or it would be that of the test
};

} // namespace velto::test
