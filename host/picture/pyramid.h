// A decoded picture and its coarser levels.
#pragma once

#include "transfer.h"

#include "velto/types.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <type_traits>
#include <variant>
#include <vector>

namespace velto::host
{

// Memory for texels, from the host's allocator. Looks go all over a picture, so that what they wait for mostly is the
// address of a page: it is as well that large blocks lie on large pages.
void* AllocateTexels(std::size_t bytes);
void FreeTexels(void* memory);

template <class T>
struct TexelAllocator
{
    using value_type = T;
    TexelAllocator() = default;
    template <class U>
    TexelAllocator(const TexelAllocator<U>&)
    {
    }
    T* allocate(std::size_t count) { return static_cast<T*>(AllocateTexels(count * sizeof(T))); }
    void deallocate(T* memory, std::size_t) { FreeTexels(memory); }
    friend bool operator==(const TexelAllocator&, const TexelAllocator&) { return true; }
};

// What a stored number is divided by.
template <class T>
inline constexpr double kTopOf = std::is_integral_v<T> ? double(std::numeric_limits<T>::max()) : 1.0;

// Texels as they are kept: four channels each, encoded as in the file, in blocks of 4 x 4, so that neighbours mostly
// lie in one cache line and on one page.
template <class T>
struct TexelLevel
{
    int width = 0;
    int height = 0;
    std::size_t blocksAcross = 0;
    std::vector<T, TexelAllocator<T>> texels;

    TexelLevel(int w, int h)
        : width(w), height(h), blocksAcross((std::size_t(w) + 3) / 4),
          texels(blocksAcross * ((std::size_t(h) + 3) / 4) * 64)
    {
    }

    std::size_t Place(int x, int y) const
    {
        const auto column = static_cast<std::size_t>(x);
        const auto row = static_cast<std::size_t>(y);
        return (((row >> 2) * blocksAcross + (column >> 2)) << 6) + ((row & 3) << 4) + ((column & 3) << 2);
    }
    const T* At(int x, int y) const { return texels.data() + Place(x, y); }
    T* At(int x, int y) { return texels.data() + Place(x, y); }
};

// The stored number nearest to a value; of two that are as near, the upper one where `up` is set. Neighbours that take
// turns in it keep the mean of what they are made of.
template <class T>
T Stored(double value, bool up)
{
    if constexpr (!std::is_integral_v<T>)
        return static_cast<T>(value);
    else
    {
        constexpr double kTie = 1e-4;
        const double scaled = std::clamp(value, 0.0, 1.0) * kTopOf<T>;
        return static_cast<T>(scaled + (up ? 0.5 + kTie : 0.5 - kTie));
    }
}

// What the coarser levels of a picture are means of.
struct LevelKind
{
    bool isLinear = false;  // linear light, or the numbers as they are encoded
    bool isByAlpha = false; // each colour counts by its alpha
};

// The levels of a picture from the finest that is held, each half of the one before it down to a single texel. Those
// after the first are made when they are first asked for.
template <class T>
class Pyramid
{
public:
    Pyramid(TexelLevel<T> finest, const Transfer& transfer);

    int Count() const { return count_; }
    const TexelLevel<T>& Finest() const { return finest_; }
    const TexelLevel<T>& Level(int level, LevelKind kind) const;
    bool IsOpaque() const { return isOpaque_; }

    const Transfer& Encoding() const { return transfer_; }
    // What a stored number stands for, linear or plain; of integer texels only.
    const double* Decoded(bool toLinear) const { return toLinear ? linear_->data() : plain_->data(); }

private:
    struct Chain
    {
        std::once_flag made;
        std::vector<TexelLevel<T>> levels; // from the second on
    };
    void Make(Chain& chain, LevelKind kind) const;

    TexelLevel<T> finest_;
    Transfer transfer_;
    int count_ = 1;
    bool isOpaque_ = true;
    std::shared_ptr<const std::vector<double>> plain_;
    std::shared_ptr<const std::vector<double>> linear_;
    mutable std::array<Chain, 4> chains_;
};

// The most bytes of a picture whose finest level takes `finest` bytes. A chain of coarser levels takes a third. There
// may be two where colours are encoded, and twice as many where there is alpha.
UInt BytesOfAllLevels(UInt finest, const Transfer& transfer, bool isOpaque);

extern template class Pyramid<std::uint8_t>;
extern template class Pyramid<std::uint16_t>;
extern template class Pyramid<float>;

} // namespace velto::host

namespace velto
{

// What a texture shows.
struct Picture
{
    // As the file has it; the finest level that is held may be smaller.
    int width = 0;
    int height = 0;
    double framesPerSecond = 0.0;
    double seconds = 0.0;
    std::variant<std::unique_ptr<host::Pyramid<std::uint8_t>>, std::unique_ptr<host::Pyramid<std::uint16_t>>,
        std::unique_ptr<host::Pyramid<float>>>
        texels;

    UInt Bytes() const;      // of all levels, whether they are made yet or not
    UInt WholeBytes() const; // the same, had the finest level the size of the picture
};

} // namespace velto
