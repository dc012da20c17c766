// The plain values that ports hold, and the arithmetic that nodes share.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velto
{

using Float = double;
using Float32 = float;
using Int = std::int64_t;
using UInt = std::uint64_t;
using Int32 = std::int32_t;
using UInt32 = std::uint32_t;
using UInt8 = std::uint8_t;
using Bool = bool;

struct Vector2d
{
    Float x = 0.0;
    Float y = 0.0;
    friend constexpr bool operator==(const Vector2d&, const Vector2d&) = default;
};

struct Vector
{
    Float x = 0.0;
    Float y = 0.0;
    Float z = 0.0;
    friend constexpr bool operator==(const Vector&, const Vector&) = default;
};

struct Vector4d
{
    Float x = 0.0;
    Float y = 0.0;
    Float z = 0.0;
    Float w = 0.0;
    friend constexpr bool operator==(const Vector4d&, const Vector4d&) = default;
};

struct Color
{
    Float r = 0.0;
    Float g = 0.0;
    Float b = 0.0;
    friend constexpr bool operator==(const Color&, const Color&) = default;
};

// A colour with alpha. A new one is opaque black, which is what a result port holds before its first write.
struct ColorA
{
    Float r = 0.0;
    Float g = 0.0;
    Float b = 0.0;
    Float a = 1.0;
    friend constexpr bool operator==(const ColorA&, const ColorA&) = default;
};

inline constexpr ColorA kTransparentBlack{0.0, 0.0, 0.0, 0.0};
inline constexpr ColorA kOpaqueBlack{0.0, 0.0, 0.0, 1.0};

// A point in time or a length of time, in seconds.
struct TimeValue
{
    Float seconds = 0.0;
    friend constexpr bool operator==(const TimeValue&, const TimeValue&) = default;
};

// What the image is made for: 0 the final picture, 1 and 2 previews in which costly nodes limit themselves.
struct RenderMode
{
    Int32 value = 0;
    friend constexpr bool operator==(const RenderMode&, const RenderMode&) = default;
};

constexpr Vector operator+(const Vector& a, const Vector& b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
constexpr Vector operator-(const Vector& a, const Vector& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
constexpr Vector operator-(const Vector& a)
{
    return {-a.x, -a.y, -a.z};
}
constexpr Vector operator*(const Vector& a, Float s)
{
    return {a.x * s, a.y * s, a.z * s};
}
constexpr Float Dot(const Vector& a, const Vector& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

// Comparisons with NaN are false, so the first argument, NaN or not, is what a failed comparison leaves.
template <class T>
constexpr T Max(T value, T lower)
{
    return value < lower ? lower : value;
}

template <class T>
constexpr T Min(T value, T upper)
{
    return value > upper ? upper : value;
}

// min(1, max(0, value)), in that order.
constexpr Float Clamp01(Float value)
{
    return Min(Max(value, 0.0), 1.0);
}

// The share `f` of the way from `from` to `to`, per channel.
constexpr ColorA Mix(const ColorA& from, const ColorA& to, Float f)
{
    return {from.r + (to.r - from.r) * f, from.g + (to.g - from.g) * f, from.b + (to.b - from.b) * f,
        from.a + (to.a - from.a) * f};
}

} // namespace velto
