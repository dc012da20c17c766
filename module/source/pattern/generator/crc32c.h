// CRC-32C (Castagnoli, reflected), by the processor's instruction where it has one.
#pragma once

#include "velto/types.h"

#include <array>
#include <bit>

namespace velto::pattern
{

namespace detail
{

inline constexpr std::array<UInt32, 256> kCrc32cTable = [] {
    std::array<UInt32, 256> table{};
    for (UInt32 i = 0; i < 256; ++i)
    {
        UInt32 crc = i;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (crc & 1 ? 0x82f63b78u : 0u);
        table[i] = crc;
    }
    return table;
}();

// Least significant byte first.
constexpr UInt32 Crc32cByTable(UInt32 crc, UInt word)
{
    for (int byte = 0; byte < 8; ++byte)
    {
        crc = (crc >> 8) ^ kCrc32cTable[(crc ^ word) & 0xff];
        word >>= 8;
    }
    return crc;
}

#if defined(__x86_64__)
__attribute__((target("sse4.2"))) inline UInt32 Crc32cByInstruction(UInt32 crc, UInt word)
{
    return static_cast<UInt32>(__builtin_ia32_crc32di(crc, word));
}

inline bool HasCrc32cInstruction()
{
    return __builtin_cpu_supports("sse4.2");
}
#else
inline UInt32 Crc32cByInstruction(UInt32 crc, UInt word)
{
    return Crc32cByTable(crc, word);
}

inline bool HasCrc32cInstruction()
{
    return false;
}
#endif

} // namespace detail

// Of the bits of any number of floats.
class Crc32c
{
public:
    explicit Crc32c(bool useInstruction = detail::HasCrc32cInstruction()) : useInstruction_(useInstruction) {}

    void Add(Float value)
    {
        const UInt word = std::bit_cast<UInt>(value);
        crc_ = useInstruction_ ? detail::Crc32cByInstruction(crc_, word) : detail::Crc32cByTable(crc_, word);
    }
    UInt32 Value() const { return ~crc_; }

private:
    UInt32 crc_ = 0xffffffffu;
    bool useInstruction_;
};

} // namespace velto::pattern
