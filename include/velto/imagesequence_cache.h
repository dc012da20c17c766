// Names of numbered pictures.
#pragma once

#include "velto/array.h"
#include "velto/url.h"

#include <cstdio>

namespace velto
{

namespace detail
{

// `directory` and a name in it: `prefix`, zeros, `number`, `suffix`.
inline Result SequenceName(const Url& directory, std::string_view prefix, std::size_t zeros, std::string_view number,
    std::string_view suffix, Url& url)
{
    BaseArray<char> name;
    VELTO_TRY(name.EnsureCapacity(static_cast<Int>(prefix.size() + zeros + number.size() + suffix.size())));
    const auto append = [&name](std::string_view text) {
        for (const char c : text)
            name.Append(c).Ignore(); // there is room
    };
    append(prefix);
    append(std::string_view("000000000").substr(0, zeros));
    append(number);
    append(suffix);
    UrlObject* built = Url(directory).Detach();
    Result appended = Bound<UrlInterface>().Append(&built, name.Data(), static_cast<UInt>(name.Count()));
    url = Url::Adopt(built);
    return appended;
}

} // namespace detail

// Puts the file of frame `frame` in `url`, whose name has a number in it. The number is written as short as there is a
// file for it, with up to 9 digits; `found` tells whether there is one. A name without a number stays where `found` is
// asked for, and is an error otherwise.
inline Result SetSequenceFrame(Url& url, Int frame, Bool* found = nullptr)
{
    constexpr std::size_t kMostDigits = 9;
    const Url given = url; // keeps the text that the views are of
    const std::string_view path = Path(given);
    const std::string_view name = path.substr(path.rfind('/') + 1);

    // These suffixes hold digits of their own.
    const bool skipsSuffix = name.ends_with(".r2k") || name.ends_with(".mp4");
    const auto isDigit = [&name](std::size_t i) { return name[i] >= '0' && name[i] <= '9'; };
    std::size_t end = name.size() - (skipsSuffix ? 4 : 0);
    while (end > 0 && !isDigit(end - 1))
        --end;
    std::size_t begin = end;
    while (begin > 0 && isDigit(begin - 1))
        --begin;
    if (found)
        *found = false;
    if (begin == 0) // no number, or nothing ahead of it
        return found ? Result() : MakeError(error::kIllegalArgument, "Found no or too long number sequence.");

    char digits[24];
    const int length = std::snprintf(digits, sizeof(digits), "%lld", static_cast<long long>(frame));
    const std::string_view number(digits, static_cast<std::size_t>(length));
    const std::string_view prefix = name.substr(0, begin);
    const std::string_view suffix = name.substr(end);
    const auto& urls = Bound<UrlInterface>();
    Url directory;
    VELTO_TRY(urls.GetDirectory(given.Get(), directory.Receive()));
    for (std::size_t width = number.size(); width <= kMostDigits; ++width)
    {
        Url built;
        VELTO_TRY(detail::SequenceName(directory, prefix, width - number.size(), number, suffix, built));
        if (urls.Exists(built.Get()))
        {
            url = std::move(built);
            if (found)
                *found = true;
            return {};
        }
    }
    return detail::SequenceName(directory, prefix, 0, number, suffix, url);
}

} // namespace velto
