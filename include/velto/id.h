// Names: `Id` carries a string with its hash, `InternedId` one unique pointer per string.
#pragma once

#include "velto/types.h"

#include <cstring>
#include <string_view>

namespace velto
{

class Result;

// h = h * 31 + c over the bytes, wrapping in 64 bits.
constexpr UInt HashBytes(std::string_view text)
{
    UInt hash = 0;
    for (const char c : text)
        hash = hash * 31 + static_cast<unsigned char>(c);
    return hash;
}

// Two words: a NUL-terminated string and a word of its hash (bits 0 to 42), the owner bit (43) and its length (44 to
// 63). An `Id` over a literal owns nothing; one made at run time shares a counted string from the host's allocator.
class Id
{
public:
    static constexpr UInt kHashMask = 0x7FFFFFFFFFF;
    static constexpr UInt kOwnedBit = UInt(1) << 43;
    static constexpr UInt kLengthShift = 44;
    static constexpr UInt kMaxLength = (UInt(1) << 20) - 1;

    constexpr Id() = default;

    template <std::size_t N>
    constexpr Id(const char (&literal)[N]) : Id(std::string_view(literal, N - 1))
    {
        static_assert(N - 1 <= kMaxLength);
    }

    // An `Id` over `text`, which must be NUL-terminated and outlive it.
    static constexpr Id OverStatic(std::string_view text) { return Id(text); }

    // [any thread] Copies `text` (at most `kMaxLength` bytes) to memory that the Ids share. Illegal argument when it is
    // longer, out of memory when there is none; `id` is left as it was.
    static Result Create(std::string_view text, Id& id);

    constexpr Id(const Id& other) : text_(other.text_), word_(other.word_)
    {
        if (IsOwned())
            AddReference();
    }
    constexpr Id(Id&& other) noexcept : text_(other.text_), word_(other.word_)
    {
        other.text_ = nullptr;
        other.word_ = 0;
    }
    constexpr Id& operator=(Id other) noexcept
    {
        const char* const text = text_;
        const UInt word = word_;
        text_ = other.text_;
        word_ = other.word_;
        other.text_ = text;
        other.word_ = word;
        return *this;
    }
    constexpr ~Id()
    {
        if (IsOwned())
            Release();
    }

    constexpr bool IsEmpty() const { return text_ == nullptr || Length() == 0; }
    constexpr bool IsOwned() const { return (word_ & kOwnedBit) != 0; }
    constexpr UInt Length() const { return word_ >> kLengthShift; }
    constexpr UInt Word() const { return word_; }
    constexpr std::string_view View() const { return text_ ? std::string_view(text_, Length()) : std::string_view(); }
    constexpr const char* CString() const { return text_ ? text_ : ""; }

    friend constexpr bool operator==(const Id& a, const Id& b)
    {
        return ((a.word_ ^ b.word_) & ~kOwnedBit) == 0 && (a.text_ == b.text_ || a.View() == b.View());
    }

private:
    constexpr explicit Id(std::string_view text)
        : text_(text.empty() ? nullptr : text.data()),
          word_(text.empty() ? 0 : (HashBytes(text) & kHashMask) + (UInt(text.size()) << kLengthShift))
    {
    }

    // Of an owned string; in system.h, where the allocator is.
    void AddReference() const;
    void Release();

    const char* text_ = nullptr;
    UInt word_ = 0;
};

static_assert(sizeof(Id) == 16);
static_assert(Id("result").Word() == 0x6000C84DC81D);
static_assert(Id("color").Word() == 0x500005A72F63);

// The `Id` of which there is one pointer per string, so that comparing is comparing one word. Empty: no pointer.
class InternedId
{
public:
    constexpr InternedId() = default;

    // `unique` is the one pointer for its text, which only the owner of the table of strings can promise.
    constexpr InternedId(const char* unique, UInt word) : text_(unique), word_(word) {}

    constexpr bool IsEmpty() const { return text_ == nullptr; }
    constexpr std::string_view View() const
    {
        return text_ ? std::string_view(text_, word_ >> Id::kLengthShift) : std::string_view();
    }

    friend constexpr bool operator==(const InternedId& a, const InternedId& b) { return a.text_ == b.text_; }

private:
    const char* text_ = nullptr;
    UInt word_ = 0;
};

static_assert(sizeof(InternedId) == 16);

} // namespace velto
