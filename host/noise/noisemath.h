// Arithmetic of noise that is the same to the bit on every machine; libraries differ in powers and sines.
#pragma once

#include "velto/types.h"

#include <bit>
#include <cmath>
#include <initializer_list>

namespace velto::host
{

inline Float32 SmoothStep(Float32 from, Float32 to, Float32 x)
{
    const Float32 t = Min(Max((x - from) / (to - from), 0.0f), 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

inline Float32 Clamp01(Float32 x)
{
    return Min(Max(x, 0.0f), 1.0f);
}

// About the sine of `turns` full turns: parabolas, smooth to the first derivative.
inline Float32 Wave(Float32 turns)
{
    const Float32 q = turns - std::floor(turns) - 0.5f;
    return q * (std::abs(q) * 16.0f - 8.0f);
}

// 0 at whole numbers, 1 halfway between.
inline Float32 Triangle(Float32 x)
{
    return std::abs(2.0f * (x - std::floor(x + 0.5f)));
}

inline Float Log2OfNormal(Float x)
{
    const auto bits = std::bit_cast<UInt>(x);
    Float exponent = static_cast<Float>(static_cast<Int>(bits >> 52) - 1023);
    Float mantissa = std::bit_cast<Float>((bits & 0xFFFFFFFFFFFFF) | 0x3FF0000000000000);
    if (mantissa > 1.4142135623730951)
    {
        mantissa *= 0.5;
        exponent += 1.0;
    }
    // 2 artanh(t) / ln 2
    const Float t = (mantissa - 1.0) / (mantissa + 1.0);
    const Float s = t * t;
    Float sum = 1.0 / 15.0;
    for (const Float term : {1.0 / 13.0, 1.0 / 11.0, 1.0 / 9.0, 1.0 / 7.0, 1.0 / 5.0, 1.0 / 3.0, 1.0})
        sum = sum * s + term;
    return exponent + 2.8853900817779268 * t * sum;
}

inline Float Exp2OfModerate(Float x)
{
    const Float whole = std::floor(x + 0.5);
    const Float y = (x - whole) * 0.6931471805599453;
    Float sum = 1.0 / 39916800.0;
    for (const Float term : {1.0 / 3628800.0, 1.0 / 362880.0, 1.0 / 40320.0, 1.0 / 5040.0, 1.0 / 720.0, 1.0 / 120.0,
             1.0 / 24.0, 1.0 / 6.0, 0.5, 1.0, 1.0})
        sum = sum * y + term;
    return sum * std::bit_cast<Float>(static_cast<UInt>(static_cast<Int>(whole) + 1023) << 52);
}

// A number in [0, 1] to a power, held to [0, 1].
inline Float32 UnitPower(Float32 base, Float exponent)
{
    if (!(base > 1e-30f))
        return exponent > 0.0 ? 0.0f : 1.0f;
    const Float e = Log2OfNormal(base) * exponent;
    if (!(e < 0.0))
        return 1.0f;
    return e < -1000.0 ? 0.0f : static_cast<Float32>(Exp2OfModerate(e));
}

constexpr UInt32 MixBits(UInt32 h)
{
    h = (h ^ (h >> 16)) * 0x7feb352du;
    h = (h ^ (h >> 15)) * 0x846ca68bu;
    return h ^ (h >> 16);
}

// In [0, 1).
constexpr Float32 UnitFloat(UInt32 h)
{
    return static_cast<Float32>(h >> 8) * 0x1p-24f;
}

} // namespace velto::host
