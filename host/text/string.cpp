#include "string.h"

#include "host/system/guard.h"
#include "host/system/output.h"

#include <utf8proc.h>

#include <string>

namespace velto::host
{

namespace
{

// The longest string that joining and replacing make: a short document can ask for terabytes.
constexpr std::size_t kMostBytes = std::size_t(1) << 30;

struct HostString : StringObject
{
    explicit HostString(std::string text) : bytes(std::move(text)), length(CountCharacters(bytes)) {}

    // Code points: bytes that do not continue one.
    static Int CountCharacters(std::string_view text)
    {
        Int count = 0;
        for (const char c : text)
            count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
        return count;
    }

    // The byte at which the character `position` starts, or the end for positions beyond it.
    std::size_t ByteOf(Int position) const
    {
        if (position >= length)
            return bytes.size();
        if (length == static_cast<Int>(bytes.size()))
            return static_cast<std::size_t>(position);
        std::size_t byte = 0;
        for (Int seen = 0; byte < bytes.size(); ++byte)
        {
            if ((static_cast<unsigned char>(bytes[byte]) & 0xC0) != 0x80 && seen++ == position)
                break;
        }
        return byte;
    }

    std::string bytes;
    Int length;
};

std::string_view View(const StringObject* string)
{
    return string ? std::string_view(static_cast<const HostString*>(string)->bytes) : std::string_view();
}

bool IsUtf8(std::string_view text)
{
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    auto left = static_cast<utf8proc_ssize_t>(text.size());
    while (left > 0)
    {
        utf8proc_int32_t character = 0;
        const utf8proc_ssize_t read = utf8proc_iterate(bytes, left, &character);
        if (read <= 0)
            return false;
        bytes += read;
        left -= read;
    }
    return true;
}

Result Create(const char* bytes, UInt count, StringObject** string)
{
    return Guarded([&]() -> Result {
        if (!IsUtf8({bytes, count}))
            return MakeError(error::kIllegalArgument, "The bytes are not UTF-8.");
        HostString* const made = NewObject<HostString>(std::string(bytes, count));
        if (!made)
            return OutOfMemory();
        *string = made;
        return {};
    });
}

const char* GetBytes(const StringObject* string, UInt* count)
{
    const std::string_view view = View(string);
    *count = view.size();
    return string ? view.data() : "";
}

Int GetLength(const StringObject* string)
{
    return string ? static_cast<const HostString*>(string)->length : 0;
}

// Replaces `*string` by `changed`, in the same object if nothing else refers to it.
Result Store(StringObject** string, std::string changed)
{
    auto* const held = static_cast<HostString*>(*string);
    if (held && held->references.load(std::memory_order_acquire) == 1)
    {
        held->length = HostString::CountCharacters(changed);
        held->bytes = std::move(changed);
        return {};
    }
    HostString* const made = NewObject<HostString>(std::move(changed));
    if (!made)
        return OutOfMemory();
    String::Adopt(std::exchange(*string, made)) = {};
    return {};
}

Result AppendInPlace(StringObject** string, const StringObject* tail)
{
    return Guarded([&]() -> Result {
        const std::string_view head = View(*string);
        const std::string_view more = View(tail);
        if (head.size() + more.size() > kMostBytes)
            return OutOfMemory();
        auto* const held = static_cast<HostString*>(*string);
        if (held && held->references.load(std::memory_order_acquire) == 1 && held != tail)
        {
            held->bytes.append(more);
            held->length += GetLength(tail);
            return {};
        }
        std::string joined;
        joined.reserve(head.size() + more.size());
        joined.append(head).append(more);
        return Store(string, std::move(joined));
    });
}

// Nodes that join texts go on without the part that failed, so the user is told here.
Result Append(StringObject** string, const StringObject* tail)
{
    Result appended = AppendInPlace(string, tail);
    if (appended.IsError())
        Guarded([] {
            WriteOutput(OutputChannel::Message, LogTarget::Warning, "out of memory: a text lacks a part");
            return Result();
        }).IsOk();
    return appended;
}

StringObject* GetPart(const StringObject* string, Int start, Int partEnd)
{
    try
    {
        if (!string)
            return NewObject<HostString>(std::string());
        const auto* const whole = static_cast<const HostString*>(string);
        const Int length = whole->length;
        start = Min(Max<Int>(start, 0), length);
        const bool isCount = (partEnd & 1) != 0;
        const Int value = partEnd >> 1;
        Int end = 0;
        if (isCount)
            end = value >= length - start ? length : start + Max<Int>(value, 0);
        else
            end = value < 0 ? length : Min(value, length);
        if (end <= start)
            return NewObject<HostString>(std::string());
        const std::size_t from = whole->ByteOf(start);
        return NewObject<HostString>(whole->bytes.substr(from, whole->ByteOf(end) - from));
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

StringObject* MapCharacters(const StringObject* string, utf8proc_int32_t (*map)(utf8proc_int32_t))
{
    try
    {
        const std::string_view text = View(string);
        std::string mapped;
        mapped.reserve(text.size());
        const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
        auto left = static_cast<utf8proc_ssize_t>(text.size());
        while (left > 0)
        {
            utf8proc_int32_t character = 0;
            const utf8proc_ssize_t read = utf8proc_iterate(bytes, left, &character);
            utf8proc_uint8_t encoded[4];
            const utf8proc_ssize_t written = utf8proc_encode_char(map(character), encoded);
            mapped.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(written));
            bytes += read;
            left -= read;
        }
        return NewObject<HostString>(std::move(mapped));
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

Result Replace(StringObject** string, const StringObject* search, const StringObject* replacement)
{
    return Guarded([&]() -> Result {
        const std::string_view text = View(*string);
        const std::string_view what = View(search);
        const std::string_view with = View(replacement);
        std::size_t count = 0;
        const auto findFrom = [&](std::size_t from) { return what.empty() ? text.npos : text.find(what, from); };
        for (std::size_t found = findFrom(0); found != text.npos; found = findFrom(found + what.size()))
            ++count;
        if (count == 0)
            return {};
        const std::size_t kept = text.size() - count * what.size();
        if (!with.empty() && count > (kMostBytes - Min(kept, kMostBytes)) / with.size())
            return OutOfMemory();
        std::string changed;
        changed.reserve(kept + count * with.size());
        std::size_t from = 0;
        for (std::size_t found = findFrom(0); found != text.npos; found = findFrom(from))
        {
            changed.append(text, from, found - from).append(with);
            from = found + what.size();
        }
        changed.append(text, from);
        return Store(string, std::move(changed));
    });
}

StringObject* GetEmpty()
{
    static HostString empty{std::string()};
    empty.references.fetch_add(1, std::memory_order_relaxed); // never ends
    return &empty;
}

} // namespace

Result MakeString(std::string_view text, String& string)
{
    return Create(text.data(), text.size(), string.Receive());
}

const StringInterface& StringService()
{
    static constexpr StringInterface service{
        .Create = {&Create},
        .GetBytes = {&GetBytes},
        .GetLength = {&GetLength},
        .Append = {&Append},
        .GetPart = {&GetPart},
        .ToUpper = {+[](const StringObject* string) { return MapCharacters(string, &utf8proc_toupper); }},
        .ToLower = {+[](const StringObject* string) { return MapCharacters(string, &utf8proc_tolower); }},
        .Replace = {&Replace},
        .GetEmpty = {&GetEmpty},
    };
    return service;
}

} // namespace velto::host
