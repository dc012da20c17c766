// How the image-space filters sample what lies upstream of them.
#pragma once

#include "velto/function.h"

namespace velto::pattern::twod
{

constexpr bool IsPreview(RenderMode mode)
{
    return mode.value == 1 || mode.value == 2;
}

// Previews get by with this many cells an axis.
template <class T>
constexpr T PreviewLimited(T resolution, RenderMode mode)
{
    return IsPreview(mode) ? Min<T>(resolution, 128) : resolution;
}

// Moves the context to a point without extent.
inline void MoveTo(ShadingContext& context, const Vector& point)
{
    context.uvw = point;
    context.uvwPlusDeltaU = point;
    context.uvwPlusDeltaV = point;
}

inline Result Sample(const ColorAFunction& function, const ShadingContext& context, ColorA& color)
{
    color = kOpaqueBlack;
    return function.Invoke(color, context);
}

inline void AddScaled(ColorA& sum, const ColorA& color, Float scale)
{
    sum.r += color.r * scale;
    sum.g += color.g * scale;
    sum.b += color.b * scale;
    sum.a += color.a * scale;
}

} // namespace velto::pattern::twod
