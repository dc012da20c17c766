// Functions of numbers that are defined everywhere: where mathematics has no result, it is 0.
#pragma once

#include "velto/floor.h"

namespace velto::toolkit
{

inline Float Quotient(Float a, Float b)
{
    return b == 0.0 ? 0.0 : a / b;
}

// With the sign of `b`.
inline Float Remainder(Float a, Float b)
{
    return b == 0.0 ? 0.0 : a - b * Floor(a / b);
}

inline Float Power(Float base, Float exponent)
{
    const bool isUndefined = (base < 0.0 && exponent != Floor(exponent)) || (base == 0.0 && exponent < 0.0);
    return isUndefined ? 0.0 : std::pow(base, exponent);
}

inline Float SquareRoot(Float a)
{
    return a < 0.0 ? 0.0 : std::sqrt(a);
}

// Natural for a base that has no logarithm.
inline Float Logarithm(Float a, Float base)
{
    if (a <= 0.0)
        return 0.0;
    return base > 0.0 && base != 1.0 ? std::log(a) / std::log(base) : std::log(a);
}

inline Float Fraction(Float a)
{
    return a - Floor(a);
}

inline Float Sign(Float a)
{
    return a > 0.0 ? 1.0 : a < 0.0 ? -1.0 : 0.0;
}

// Halves go up.
inline Float Round(Float a)
{
    return Floor(a + 0.5);
}

// From `low` up to `high`, which is `low` again.
inline Float Wrapped(Float a, Float low, Float high)
{
    return low + Remainder(a - low, high - low);
}

// Up to `end` and back to 0.
inline Float PingPong(Float a, Float end)
{
    const Float there = Remainder(a, 2.0 * std::abs(end));
    return Min(there, 2.0 * std::abs(end) - there);
}

// The share of the way from `from` to `to`; a step at `from` where there is none.
inline Float ShareBetween(Float value, Float from, Float to)
{
    return from == to ? (value < from ? 0.0 : 1.0) : (value - from) / (to - from);
}

} // namespace velto::toolkit
