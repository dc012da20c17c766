#include "store.h"

#include "velto/srgb.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace velto::host
{

namespace
{

// The nearest integer, halves up; the whole range is 0 to 1, and NaN becomes 0.
template <class T>
T ToInteger(float c)
{
    constexpr float kMost = static_cast<float>(static_cast<T>(~T{0}));
    const float scaled = c > 0.0f ? std::min(c * kMost, kMost) : 0.0f;
    const auto below = static_cast<std::int32_t>(scaled);
    return static_cast<T>(below + (scaled - static_cast<float>(below) >= 0.5f ? 1 : 0));
}

// The nearest half, ties to even.
std::uint16_t ToHalf(float c)
{
    const auto bits = std::bit_cast<std::uint32_t>(c);
    const std::uint32_t sign = (bits >> 16) & 0x8000;
    const std::uint32_t size = bits & 0x7fffffff;
    constexpr std::uint32_t kLeastNormal = 0x38800000;
    constexpr std::uint32_t kTooLarge = 0x47800000;
    constexpr std::uint32_t kInfinity = 0x7f800000;
    // Adding one half leaves a small number's bits where those of the result are, rounded.
    const std::uint32_t small =
        std::bit_cast<std::uint32_t>(std::bit_cast<float>(size) + 0.5f) - std::bit_cast<std::uint32_t>(0.5f);
    const std::uint32_t normal = (size + 0xc8000fff + ((size >> 13) & 1)) >> 13;
    const std::uint32_t payload = (size & 0x7fffff) >> 13;
    const std::uint32_t large = size > kInfinity ? 0x7c00 | payload | (payload == 0 ? 1 : 0) : 0x7c00;
    return static_cast<std::uint16_t>(sign | (size < kLeastNormal ? small : size < kTooLarge ? normal : large));
}

// `ToInteger` after `SrgbFromLinear` by one look-up: the floats of a cell, alike in exponent and 8 bits, have two codes
// at most.
class SrgbBytes
{
public:
    SrgbBytes()
    {
        thresholds_[0] = 0;
        for (std::uint32_t code = 1; code < 256; ++code)
        {
            std::uint32_t low = thresholds_[code - 1];
            std::uint32_t high = kOne;
            while (low < high)
            {
                const std::uint32_t middle = low + (high - low) / 2;
                if (Code(middle) >= code)
                    high = middle;
                else
                    low = middle + 1;
            }
            thresholds_[code] = low;
        }
        thresholds_[256] = ~std::uint32_t{0};
        for (std::uint32_t cell = 0; cell < kCells; ++cell)
            codes_[cell] = static_cast<std::uint8_t>(Code(kFirst + (cell << kCellBits)));
    }

    std::uint8_t Of(float c) const
    {
        const auto bits = std::bit_cast<std::uint32_t>(c);
        if (!(c >= kLeast))
            return 0;
        if (bits >= kOne)
            return 255;
        const std::uint32_t code = codes_[(bits - kFirst) >> kCellBits];
        return static_cast<std::uint8_t>(code + (bits >= thresholds_[code + 1] ? 1 : 0));
    }

private:
    static std::uint32_t Code(std::uint32_t bits)
    {
        return ToInteger<std::uint8_t>(SrgbFromLinear(std::bit_cast<float>(bits)));
    }

    static constexpr int kCellBits = 15;
    static constexpr float kLeast = 0x1p-13f; // below, all are 0
    static constexpr std::uint32_t kFirst = std::bit_cast<std::uint32_t>(kLeast);
    static constexpr std::uint32_t kOne = std::bit_cast<std::uint32_t>(1.0f);
    static constexpr std::uint32_t kCells = (kOne - kFirst) >> kCellBits;

    std::array<std::uint32_t, 257> thresholds_; // the least bits of each code
    std::array<std::uint8_t, kCells> codes_;
};

template <class T, class Plain, class Color>
void StoreAs(const StoredPicture& picture, const float* row, std::byte* stored, Plain plain, Color color)
{
    const int read = picture.layout.channels;
    const int written = picture.channels;
    const int colors = !picture.isSrgb ? 0 : read == 2 ? 1 : std::min(read, 3);
    auto* to = reinterpret_cast<T*>(stored);
    for (int x = 0; x < picture.layout.width; ++x, row += read, to += written)
    {
        for (int c = 0; c < written; ++c)
            to[c] = c < colors ? color(row[c]) : plain(row[c]);
    }
}

// Half of a direction and a half; what is behind its three components is as it is.
template <class T>
void StoreNormals(const StoredPicture& picture, const float* row, std::byte* stored)
{
    auto* to = reinterpret_cast<T*>(stored);
    for (int x = 0; x < picture.layout.width; ++x, row += picture.layout.channels, to += picture.channels)
    {
        for (int c = 0; c < picture.channels; ++c)
        {
            const float packed = c < 3 ? 0.5f + 0.5f * row[c] : row[c];
            to[c] = ToInteger<T>(picture.isSrgb && c < 3 ? SrgbFromLinear(packed) : packed);
        }
    }
}

} // namespace

void StoreRow(const StoredPicture& picture, const float* row, std::byte* stored)
{
    if (picture.isNormal)
        return picture.depth == PixelDepth::UInt16 ? StoreNormals<std::uint16_t>(picture, row, stored)
                                                   : StoreNormals<std::uint8_t>(picture, row, stored);
    switch (picture.depth)
    {
    case PixelDepth::UInt16:
        return StoreAs<std::uint16_t>(picture, row, stored, &ToInteger<std::uint16_t>,
            [](float c) { return ToInteger<std::uint16_t>(SrgbFromLinear(c)); });
    case PixelDepth::Half:
        return StoreAs<std::uint16_t>(
            picture, row, stored, [](float c) { return ToHalf(c); }, [](float c) { return ToHalf(SrgbFromLinear(c)); });
    case PixelDepth::Float:
        return StoreAs<float>(
            picture, row, stored, [](float c) { return c; }, [](float c) { return SrgbFromLinear(c); });
    default:
        static const SrgbBytes srgb;
        return StoreAs<std::uint8_t>(
            picture, row, stored, [](float c) { return ToInteger<std::uint8_t>(c); },
            [](float c) { return srgb.Of(c); });
    }
}

} // namespace velto::host
