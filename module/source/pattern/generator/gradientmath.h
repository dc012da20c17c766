// The curves between two knots of a gradient, and the encoding in which they may run.
#pragma once

#include "velto/srgb.h"
#include "velto/types.h"

#include <cmath>

namespace velto::pattern
{

// The share of the way from the bias to the right knot.
inline Float AfterBias(Float t, Float bias)
{
    return bias == 1.0 ? 1.0 : Clamp01((t - bias) / (1.0 - bias));
}

// Sends t = bias to one half.
inline Float BiasMap(Float t, Float bias)
{
    if (bias > t)
        return 0.5 * (bias == 0.0 ? (t < 0.0 ? 0.0 : 1.0) : Clamp01(t / bias));
    return 0.5 + 0.5 * AfterBias(t, bias);
}

inline Float SmoothStep01(Float m)
{
    return m <= 0.0 ? 0.0 : m >= 1.0 ? 1.0 : m * m * (3.0 - 2.0 * m);
}

// Runs `curve` on each channel of the colours.
template <class Curve, class... C>
ColorA PerChannel(const Curve& curve, const C&... colors)
{
    return {curve(colors.r...), curve(colors.g...), curve(colors.b...), curve(colors.a...)};
}

// A Catmull-Rom curve from `c0` to `c1`, held to the range of its four knots.
inline ColorA CatmullRom(const ColorA& before, const ColorA& c0, const ColorA& c1, const ColorA& after, Float u)
{
    const auto curve = [u](Float p, Float x, Float y, Float n) {
        const Float a = -0.5 * p + 1.5 * x - 1.5 * y + 0.5 * n;
        const Float b = p - 2.5 * x + 2.0 * y - 0.5 * n;
        const Float c = -0.5 * p + 0.5 * y;
        const Float value = x + u * (c + u * (b + u * a));
        return Min(Max(value, Min(Min(p, x), Min(y, n))), Max(Max(p, x), Max(y, n)));
    };
    return PerChannel(curve, before, c0, c1, after);
}

// A cubic Bézier curve from `c0` to `c1` whose inner control points the bias moves.
inline ColorA CubicBias(const ColorA& c0, const ColorA& c1, Float t, Float bias)
{
    const Float p1 = 0.75 * (1.0 - bias);
    const Float p2 = (1.0 - bias) + 0.25 * bias;
    const Float s = 1.0 - t;
    const Float w0 = s * s * s;
    const Float w1 = 3.0 * t * (s * s);
    const Float w2 = 3.0 * (t * t) * s;
    const Float w3 = t * t * t;
    const auto curve = [&](Float x, Float y) {
        const Float d = y - x;
        return w0 * x + w1 * (x + p1 * d) + w2 * (x + p2 * d) + w3 * y;
    };
    return PerChannel(curve, c0, c1);
}

inline ColorA EncodeSrgb(const ColorA& color)
{
    return {SrgbFromLinear(color.r), SrgbFromLinear(color.g), SrgbFromLinear(color.b), color.a};
}

// Not by `LinearFromSrgb`: the curve passes values below 0 on, and multiplies, which gives other last bits.
inline ColorA DecodeSrgb(const ColorA& color)
{
    const auto decode = [](Float c) {
        if (c <= 0.0)
            return c;
        return c <= 0.04045 ? c * 0.07739938080495357 : std::pow((c + 0.055) * 0.9478672985781991, 2.4);
    };
    return {decode(color.r), decode(color.g), decode(color.b), color.a};
}

} // namespace velto::pattern
