// Edges of repeated figures, as the sample's footprint sees them.
#pragma once

#include "velto/floor.h"
#include "velto/random.h"

namespace velto::toolkit
{

// The share of `width` about `x` that lies on the bars of a wave of period 1: each bar stands in the middle of its
// cell, `bar` wide. A width of 0 asks for the place itself.
inline Float PulseCoverage(Float x, Float width, Float bar)
{
    const Float margin = 0.5 * (1.0 - bar);
    const auto covered = [&](Float at) { return Floor(at) * bar + Min(Max(at - Floor(at) - margin, 0.0), bar); };
    if (width < 1e-9)
        return bar > 0.0 && std::abs(x - Floor(x) - 0.5) <= 0.5 * bar ? 1.0 : 0.0;
    return Clamp01((covered(x + 0.5 * width) - covered(x - 0.5 * width)) / width);
}

// The share of `width` that lies beyond an edge at a distance.
inline Float EdgeCoverage(Float distance, Float width)
{
    return width < 1e-9 ? (distance >= 0.0 ? 1.0 : 0.0) : Clamp01(0.5 + distance / width);
}

inline Float SmoothRise(Float x)
{
    const Float t = Clamp01(x);
    return t * t * (3.0 - 2.0 * t);
}

// 1 where a cell is wider than a sample, 0 where a sample covers it: how much of the cell's own look is left.
inline Float Clarity(Float cellsPerSample)
{
    return 1.0 - SmoothRise(cellsPerSample - 0.5);
}

// A whole number that a port gives, at least 1, and few enough to count cells.
inline Int CellCount(Int wanted)
{
    return Min(Max<Int>(wanted, 1), Int(1) << 20);
}

// The number of a cell in its period.
inline Int WrappedCell(Float cell, Int count)
{
    const auto n = static_cast<Float>(count);
    const Float wrapped = cell - n * Floor(cell / n);
    return wrapped >= 0.0 && wrapped < n ? static_cast<Int>(wrapped) : 0;
}

inline RandomStream CellStream(UInt32 seed, Int cell)
{
    return RandomStream(IntegerHash32(seed * 747796405u + static_cast<UInt32>(cell)));
}

} // namespace velto::toolkit
