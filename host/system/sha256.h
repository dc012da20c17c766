// SHA-256, as FIPS 180-4 has it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velto::host
{

class Sha256
{
public:
    void Add(const void* bytes, std::size_t count);
    // Includes the length, so that two texts in a row differ from one long text.
    void AddText(std::string_view text);

    // 64 hexadecimal digits, once.
    std::string Finish();

private:
    void AddBlock(const unsigned char* block);

    std::array<std::uint32_t, 8> state_ = {
        0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<unsigned char, 64> waiting_ = {};
    std::size_t waitingCount_ = 0;
    std::uint64_t bytes_ = 0;
};

} // namespace velto::host
