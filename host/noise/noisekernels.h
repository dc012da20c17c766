// The inner loops of noise: lattice gradients of many octaves at once, and the nearest points of a scattered lattice.
// Every set of kernels gives the same bits.
#pragma once

#include "velto/types.h"

#include <span>

namespace velto::host
{

inline constexpr int kMaxOctaves = 16;

// A place in noise space. Places beyond about a thousand million, and those that are no numbers, count as 0.
struct NoisePoint
{
    Float32 x;
    Float32 y;
    Float32 z;
    Float32 time; // in turns of the slowest point, roughly
};

// Independent fields of gradient noise, each with a frequency, a shift of its lattice and a seed.
struct GradientBank
{
    Float32 frequency[kMaxOctaves] = {};
    Float32 shiftX[kMaxOctaves] = {};
    Float32 shiftY[kMaxOctaves] = {};
    Float32 shiftZ[kMaxOctaves] = {};
    UInt32 seed[kMaxOctaves] = {};
};

// The two nearest points of a lattice with one point in every cell.
struct NearestPoints
{
    Float32 f1; // distances in cells
    Float32 f2;
    Int32 id1;
    Int32 id2;
};

// [any thread] All functions are pure.
struct NoiseKernels
{
    const char* name;
    // The first `count` fields of a bank at a point, about -1 to 1 each. `values` has room for `kMaxOctaves` and is
    // aligned to 32.
    void (*gradients3d)(const GradientBank& bank, int count, const NoisePoint& point, Float32* values);
    void (*gradients2d)(const GradientBank& bank, int count, const NoisePoint& point, Float32* values);
    // The same for the first field alone, with the corners of its cell side by side.
    Float32 (*gradient3d)(const GradientBank& bank, const NoisePoint& point);
    Float32 (*gradient2d)(const GradientBank& bank, const NoisePoint& point);
    // The nearest points, exactly. In `nearest3d` they lie anywhere in their cells and stand still; in the others they
    // wander with time and keep a little off the walls.
    void (*nearest3d)(UInt32 seed, const NoisePoint& point, NearestPoints& nearest);
    void (*nearestMoving3d)(UInt32 seed, const NoisePoint& point, NearestPoints& nearest);
    void (*nearestMoving2d)(UInt32 seed, const NoisePoint& point, NearestPoints& nearest);
};

// The kernels for this processor.
const NoiseKernels& BestNoiseKernels();

// All that this processor can run, the plainest first.
std::span<const NoiseKernels* const> AllNoiseKernels();

} // namespace velto::host
