#include "format.h"

#include <algorithm>
#include <string>

namespace velto::host
{

namespace
{

using enum PixelDepth;
using Suffixes = std::span<const std::string_view>;

constexpr PixelDepth kByte[] = {UInt8};
constexpr PixelDepth kInteger[] = {UInt8, UInt16};
constexpr PixelDepth kReal[] = {Half, Float};
constexpr PixelDepth kFloat[] = {Float};
constexpr PixelDepth kTiffDepths[] = {UInt8, UInt16, Float};

constexpr std::string_view kPng[] = {"png"};
constexpr std::string_view kExr[] = {"exr"};
constexpr std::string_view kTiff[] = {"tif", "tiff"};
constexpr std::string_view kJpeg[] = {"jpg", "jpeg"};
constexpr std::string_view kHdr[] = {"hdr"};
constexpr std::string_view kTarga[] = {"tga"};
constexpr std::string_view kBmp[] = {"bmp"};
constexpr std::string_view kGif[] = {"gif"};
constexpr std::string_view kWebp[] = {"webp"};
constexpr std::string_view kJpeg2000[] = {"jp2"};
constexpr std::string_view kDpx[] = {"dpx"};
constexpr std::string_view kPnm[] = {"ppm", "pgm", "pnm"};

constexpr PictureFormat kFormats[] = {
    {"png", kPng, kInteger, true},
    {"openexr", kExr, kReal, true},
    {"tiff", kTiff, kTiffDepths, true},
    {"jpeg", kJpeg, kByte, false},
    {"hdr", kHdr, kFloat, false},
    {"targa", kTarga, kByte, true},
    {"bmp", kBmp, kByte, true},
    {"gif", kGif, kByte, true},
    {"webp", kWebp, kByte, true},
    {"jpeg2000", kJpeg2000, kInteger, true},
    {"dpx", kDpx, kInteger, true},
    {"pnm", kPnm, kByte, false},
};

} // namespace

const PictureFormat* FindPictureFormat(std::string_view suffix)
{
    std::string lower(suffix);
    std::transform(lower.begin(), lower.end(), lower.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    for (const PictureFormat& format : kFormats)
    {
        if (std::find(format.suffixes.begin(), format.suffixes.end(), lower) != format.suffixes.end())
            return &format;
    }
    return nullptr;
}

std::string PictureFormatNames()
{
    std::string names;
    for (const PictureFormat& format : kFormats)
        names += (names.empty() ? "" : ", ") + std::string(format.suffixes.front());
    return names;
}

} // namespace velto::host
