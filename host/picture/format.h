// The formats that pictures are written in. Each is tested, and reports every short write.
#pragma once

#include "layout.h"

#include <span>
#include <string>
#include <string_view>

namespace velto::host
{

struct PictureFormat
{
    const char* name; // the library's
    std::span<const std::string_view> suffixes;
    std::span<const PixelDepth> depths; // the first is the default
    bool hasAlpha;
};

// By a suffix without its dot, in any case; null where there is none.
const PictureFormat* FindPictureFormat(std::string_view suffix);

// `png, exr, ...`: a suffix of each.
std::string PictureFormatNames();

} // namespace velto::host
