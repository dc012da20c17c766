// The transfer curve of sRGB, IEC 61966-2-1, over all numbers.
#pragma once

#include <cmath>
#include <concepts>

namespace velto
{

template <std::floating_point T>
inline T LinearFromSrgb(T c)
{
    return c <= T(0.04045) ? c / T(12.92) : std::pow((c + T(0.055)) / T(1.055), T(2.4));
}

template <std::floating_point T>
inline T SrgbFromLinear(T c)
{
    return c <= T(0.0031308) ? c * T(12.92) : T(1.055) * std::pow(c, T(1) / T(2.4)) - T(0.055);
}

} // namespace velto
