// Limits on what one sample may cost. No sensible graph comes near them; without them one number in a document asks for
// years of work.
#pragma once

#include "velto/result.h"

#include <cstdio>

namespace velto::pattern
{

[[gnu::cold, gnu::noinline]] inline Result BeyondLimit(const char* what, Int value, Int most)
{
    char text[160];
    const int length = std::snprintf(text, sizeof(text), "The number of %s is %lld; the limit is %lld.", what,
        static_cast<long long>(value), static_cast<long long>(most));
    return MakeError(
        error::kIllegalArgument, {text, Min<std::size_t>(static_cast<std::size_t>(length), sizeof(text) - 1)});
}

// Fails if there are more of `what` than `most`.
inline Result CheckLimit(const char* what, Int value, Int most)
{
    return value <= most ? Result() : BeyondLimit(what, value, most);
}

} // namespace velto::pattern
