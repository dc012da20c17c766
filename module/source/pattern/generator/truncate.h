// Whole numbers from 64-bit floats, defined where the language leaves it open.
#pragma once

#include "velto/types.h"

namespace velto::pattern
{

// Towards zero; what no `T` holds, and NaN, is the least `T`.
template <class T>
constexpr T Truncate(Float value)
{
    constexpr Float kLimit = static_cast<Float>(UInt(1) << (sizeof(T) * 8 - 1));
    constexpr T kLeast = static_cast<T>(UInt(1) << (sizeof(T) * 8 - 1));
    // A value a little below -kLimit still truncates to it.
    const bool fits = value < kLimit && (sizeof(T) == 8 ? value >= -kLimit : value > -kLimit - 1.0);
    return fits ? static_cast<T>(value) : kLeast;
}

} // namespace velto::pattern
