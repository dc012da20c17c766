// Texts: host objects behind a shared reference, copied on write. Positions and lengths count characters (code points).
#pragma once

#include "velto/system.h"

namespace velto
{

struct StringObject : Object
{
    static Bool Equal(const Ref<StringObject>& a, const Ref<StringObject>& b);
};

// A null `String` is the empty string.
using String = Ref<StringObject>;

// Which part of a string: up to an end position or a number of characters, in one word.
struct PartEnd
{
    Int word;

    static constexpr PartEnd End(Int position) { return {position * 2}; } // -1: the string's end
    static constexpr PartEnd Count(Int count) { return {count * 2 + 1}; }
};

struct StringInterface
{
    static constexpr Id kId{"net.velto.interface.string"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // All: [any thread] null strings are empty; an out parameter receives a reference of its own.

    // A new string from UTF-8. Illegal argument when the bytes are not UTF-8, out of memory.
    VELTO_METHOD(Create, Result(const char* bytes, UInt count, StringObject** string));
    // The string's UTF-8, valid as long as the string is held and not changed.
    VELTO_METHOD(GetBytes, const char*(const StringObject* string, UInt* count));
    VELTO_METHOD(GetLength, Int(const StringObject* string));
    // Appends to `string` in place, after a copy of its own if others hold it. On error `string` is as it was.
    VELTO_METHOD(Append, Result(StringObject** string, const StringObject* tail));
    // The part from `start` up to an end or a count (see `PartEnd`), both held to the string's range. Null without
    // memory.
    VELTO_METHOD(GetPart, StringObject*(const StringObject* string, Int start, Int partEnd));
    // Simple case mapping, character by character. Null without memory.
    VELTO_METHOD(ToUpper, StringObject*(const StringObject* string));
    VELTO_METHOD(ToLower, StringObject*(const StringObject* string));
    // Replaces every occurrence of `search`, from left to right, in place; an empty `search` changes nothing.
    VELTO_METHOD(Replace, Result(StringObject** string, const StringObject* search, const StringObject* replacement));
    // The one empty string.
    VELTO_METHOD(GetEmpty, StringObject*());
};
VELTO_USED_BY_INCLUDERS("velto/string.h", StringInterface);

inline std::string_view Bytes(const String& string)
{
    UInt count = 0;
    const char* const bytes = Bound<StringInterface>().GetBytes(string.Get(), &count);
    return {bytes, count};
}

inline Bool StringObject::Equal(const String& a, const String& b)
{
    return Bytes(a) == Bytes(b);
}

} // namespace velto
