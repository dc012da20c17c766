// Texts as the host wants them.
#pragma once

#include "velto/string.h"

namespace velto::pattern
{

// The string itself, or the host's empty one in place of none.
inline String OrEmpty(const String& string)
{
    return string ? string : String::Adopt(Bound<StringInterface>().GetEmpty());
}

inline Int Length(const String& string)
{
    const String held = OrEmpty(string);
    return held ? Bound<StringInterface>().GetLength(held.Get()) : 0;
}

// Null without memory.
inline String Part(const String& string, Int start, PartEnd end)
{
    const String held = OrEmpty(string);
    return held ? String::Adopt(Bound<StringInterface>().GetPart(held.Get(), start, end.word)) : String();
}

// Appends `tail` to `text`; a failure leaves `text` empty.
inline void AppendOrDrop(String& text, const String& tail)
{
    const String more = OrEmpty(tail);
    text = OrEmpty(text);
    if (!text || !more)
        return;
    StringObject* appended = text.Detach();
    const Result done = Bound<StringInterface>().Append(&appended, more.Get());
    text = String::Adopt(appended);
    if (done.IsError())
        text = {};
}

} // namespace velto::pattern
