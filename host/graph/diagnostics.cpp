#include "diagnostics.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace velto::host
{

namespace
{

// Edits that turn one word into the other: letters added, dropped, changed, exchanged with the next one; upper and
// lower case are one.
std::size_t EditDistance(std::string_view a, std::string_view b)
{
    const auto same = [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    };
    std::vector<std::size_t> before;
    std::vector<std::size_t> last(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i)
    {
        std::vector<std::size_t> row(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j)
        {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same(a[i - 1], b[j - 1]) ? 0 : 1)});
            if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1]))
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = std::exchange(last, std::move(row));
    }
    return last[b.size()];
}

} // namespace

std::string_view NearestName(std::string_view word, const std::vector<std::string>& candidates)
{
    constexpr std::size_t kLongestWord = 128;
    // Letters to compare at most: the nodes of a document may be very many.
    constexpr std::size_t kMostWork = 2'000'000;
    std::size_t work = 0;
    if (word.empty() || word.size() > kLongestWord)
        return {};
    std::string_view nearest;
    std::size_t best = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string& candidate : candidates)
    {
        const std::size_t shortest = std::min(word.size(), candidate.size());
        work += 1 + 2 * word.size() * std::min(candidate.size(), kLongestWord);
        if (work > kMostWork || candidate.size() > 2 * kLongestWord || shortest + best <= word.size())
            continue;
        std::size_t distance = EditDistance(word, candidate);
        // The end of a name says as much as all of it: `scale` for `localScale`.
        std::string_view tail(candidate);
        if (tail.size() > word.size() && word.size() >= 3)
        {
            tail.remove_prefix(tail.size() - word.size());
            distance = std::min(distance, EditDistance(word, tail) + 1);
        }
        if (distance < best)
        {
            best = distance;
            nearest = candidate;
        }
    }
    return nearest;
}

std::string Suggestion(std::string_view word, const std::vector<std::string>& candidates)
{
    const std::string_view nearest = NearestName(word, candidates);
    return nearest.empty() ? std::string() : fmt::format("; did you mean \"{}\"?", nearest);
}

std::string Escaped(std::string_view text)
{
    std::string escaped;
    const auto* at = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    auto left = static_cast<utf8proc_ssize_t>(text.size());
    while (left > 0)
    {
        utf8proc_int32_t code = 0;
        const utf8proc_ssize_t taken = utf8proc_iterate(at, left, &code);
        if (taken <= 0)
            escaped += fmt::format("\\x{:02x}", *at);
        else if (code < 0x20 || code == 0x7f)
            escaped += fmt::format("\\x{:02x}", code);
        else if ((code >= 0x80 && code < 0xa0) || code == 0x200e || code == 0x200f ||
                 (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069))
            escaped += fmt::format("\\u{:04x}", code);
        else
            escaped.append(reinterpret_cast<const char*>(at), static_cast<std::size_t>(taken));
        at += std::max<utf8proc_ssize_t>(taken, 1);
        left -= std::max<utf8proc_ssize_t>(taken, 1);
    }
    return escaped;
}

std::string Printable(std::string_view text)
{
    constexpr std::size_t kLongest = 200;
    if (text.size() <= kLongest)
        return Escaped(text);
    // Not in the middle of a character.
    std::size_t end = kLongest;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80)
        --end;
    return Escaped(text.substr(0, end)) + "...";
}

} // namespace velto::host
