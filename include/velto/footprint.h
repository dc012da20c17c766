// The area of texture space that one sample stands for.
#pragma once

#include "velto/shadingcontext.h"

namespace velto
{

// The extents of the box around a sample's coordinate and its two neighbours; all 0 where the box is not ordered on an
// axis in use (a coordinate is NaN).
template <int Axes>
Vector Footprint(const ShadingContext& context)
{
    const auto extent = [&](Float Vector::*axis) {
        const Float at = context.uvw.*axis;
        const Float u = context.uvwPlusDeltaU.*axis;
        const Float v = context.uvwPlusDeltaV.*axis;
        // Plain comparisons would lose a NaN on one side only; the difference keeps it.
        return Max(Max(at, u), v) - Min(Min(at, u), v);
    };
    Vector box{extent(&Vector::x), extent(&Vector::y), Axes == 3 ? extent(&Vector::z) : 0.0};
    if (box.x >= 0.0 && box.y >= 0.0 && box.z >= 0.0)
        return box;
    return {};
}

} // namespace velto
