// Hue, saturation and value: the colour model that the hue-based operators work in.
#pragma once

#include "velto/types.h"

#include <cmath>

namespace velto::pattern
{

struct Hsv
{
    Float h = 0.0; // turns
    Float s = 0.0;
    Float v = 0.0;
};

inline constexpr Float kGreySaturation = 0.001; // below it a colour has no hue

inline Hsv RgbToHsv(const Color& c)
{
    const Float largest = Max(Max(c.r, c.g), c.b);
    const Float smallest = Min(Min(c.r, c.g), c.b);
    if (!(largest > 0.0))
        return {};
    const Float q = smallest / largest;
    if (1.0 - q < kGreySaturation)
        return {0.0, 0.0, smallest};
    const Float range = largest - smallest;
    Float d = 0.0; // sixths of a turn
    if (c.r == largest)
        d = (c.g - c.b) / range;
    else if (c.g == largest)
        d = (c.b - c.r) / range + 2.0;
    else
        d = (c.r - c.g) / range + 4.0;
    const Float h = d / 6.0;
    return {h < 0.0 ? h + 1.0 : h, 1.0 - q, largest};
}

inline Color HsvToRgb(const Hsv& c)
{
    const Float v = c.v;
    if (c.s < kGreySaturation)
        return {v, v, v};
    const Float x = c.h == 1.0 ? 0.0 : 6.0 * c.h;
    const Float i = std::floor(x);
    const Float f = x - i;
    const Float p = (1.0 - c.s) * v;
    const Float q = (1.0 - c.s * f) * v;
    const Float t = (1.0 - c.s * (1.0 - f)) * v;
    if (i == 1.0)
        return {q, v, p};
    if (i == 2.0)
        return {p, v, t};
    if (i == 3.0)
        return {p, q, v};
    if (i == 4.0)
        return {t, p, v};
    if (i == 5.0)
        return {v, p, q};
    return {v, t, p};
}

inline Float WrapHue(Float h)
{
    const Float wrapped = h - std::trunc(h);
    return wrapped < 0.0 ? wrapped + 1.0 : wrapped;
}

// Moves a colour towards white (`amount` up to 1) or black (down to -1).
inline Color ShiftValue(const Color& c, Float amount)
{
    const Float target = amount >= 0.0 ? 1.0 : 0.0;
    const Float share = amount >= 0.0 ? amount : -amount;
    return {(target - c.r) * share + c.r, (target - c.g) * share + c.g, (target - c.b) * share + c.b};
}

} // namespace velto::pattern
