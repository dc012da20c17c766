// What a picture's file holds, and how.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace velto::host
{

enum class PixelDepth
{
    Default, // by format
    UInt8,
    UInt16,
    Half,
    Float,
};

enum class PictureColorSpace
{
    Default, // sRGB for colours in 8- and 16-bit files, else linear
    Srgb,
    Linear,
};

enum class PictureContent
{
    Default, // as its type is; where that is not known, colours
    Color,
    Data,
    Normal, // -1 to 1, which 8- and 16-bit files hold as 0 to 1
};

// How values become what stands in a file.
struct PictureEncoding
{
    PixelDepth depth = PixelDepth::Default;
    PictureColorSpace colorSpace = PictureColorSpace::Default;
    PictureContent content = PictureContent::Default;
};

// Names of at most 31 bytes, and texts.
using PictureAttributes = std::vector<std::pair<std::string, std::string>>;

// What is written, and of which picture it is a part. Formats without a place for the whole write the part alone.
struct PictureLayout
{
    int width = 0;
    int height = 0;
    int channels = 0;
    int x = 0; // in the whole
    int y = 0;
    int wholeWidth = 0;
    int wholeHeight = 0;
    PictureAttributes attributes = {}; // only exr has them
    bool isPlain = false;              // not packed: a part, written and read once
};

} // namespace velto::host
