// Which build of a module a file of bitcode belongs to.
#pragma once

#include <string>
#include <string_view>

namespace velto::host
{

// In hexadecimal digits; empty where the file is no library, or has none.
std::string BuildIdOfFile(const char* file);

// The first line of a file of bitcode, padded to `kBitcodeHead` bytes.
inline constexpr std::size_t kBitcodeHead = 128;
std::string BitcodeHead(std::string_view buildId, std::size_t size);

} // namespace velto::host
