// The largest whole number not above a 64-bit float.
#pragma once

#include "velto/types.h"

#include <cmath>

namespace velto
{

// `std::floor` without the call that it costs where the processor's own instruction cannot be taken for granted.
inline Float Floor(Float x)
{
    if (!(std::abs(x) < 0x1p52))
        return std::floor(x);
    const Float whole = static_cast<Float>(static_cast<Int>(x));
    return whole == x ? x : whole > x ? whole - 1.0 : whole; // x itself: the sign of zero stays
}

} // namespace velto
