// What writing and reading OpenEXR share.
#pragma once

#include "layout.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velto::host
{

inline constexpr std::uint32_t kExrMagic = 0x01312f76;
inline constexpr std::uint32_t kExrVersion = 2; // one part of scan lines, short names
inline constexpr std::byte kExrPlain{0};
inline constexpr std::byte kExrZip{3};

// The names of a pixel's channels in their order, and the order that files have them in, that of the names.
struct ExrChannels
{
    const char* names;
    int order[4];
};

ExrChannels ExrChannelsOf(int channels);

// The attribute `channels`, half or float.
std::vector<std::byte> ExrChannelList(int channels, PixelDepth depth);

} // namespace velto::host
