// What all shapes share: from a field value to a coverage and a colour.
#pragma once

#include "velto/node.h"

namespace velto::pattern
{

// Up to `lo` 0, from `hi` on 1, smooth between; hard at `lo` where `hi` is not above it.
inline Float SoftStep(Float f, Float lo, Float hi)
{
    if (lo >= f)
        return 0.0;
    const Float width = hi - lo;
    if (width == 0.0 || f >= hi)
        return 1.0;
    const Float x = (f - lo) / width;
    return x * x * (3.0 - (x + x));
}

// The step of a shape whose edge lies where the distance is 1.
inline Float EdgeStep(Float distance, Float innerSoftness, Float outerSoftness)
{
    return SoftStep(distance - 0.5, 0.5 - innerSoftness, outerSoftness + 0.5);
}

inline constexpr Float kLeastScale = 1e-6;

// Where a shape's outputs go.
struct ShapeOutputs
{
    Float& mask;
    Float& distance;
    ColorA& result;

    void WriteEmpty() const
    {
        result = kTransparentBlack;
        mask = 0.0;
        distance = 0.0;
    }
    // `outside` is 0 in the shape, 1 off it.
    void Write(const ColorA& fill, const ColorA& exterior, Float outside, Float field) const
    {
        result = Mix(fill, exterior, outside);
        mask = 1.0 - outside;
        distance = field;
    }
};

} // namespace velto::pattern
