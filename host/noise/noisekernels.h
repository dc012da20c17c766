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

// Sums of a bank's first `count` fields at many places of one time: each field weighted, and faded by a filter of so
// many cells of frequency 1.
struct OctaveSums
{
    static constexpr Int kMost = 64; // places; the arrays have room for that many

    const GradientBank* bank = nullptr;
    const Float32* weights = nullptr;
    int count = 0;
    bool isFlat = false;
    Float32 time = 0.0f;
    Int places = 0;
    alignas(32) Float32 x[kMost];
    alignas(32) Float32 y[kMost];
    alignas(32) Float32 z[kMost];
    alignas(32) Float32 filterWidth[kMost];
    alignas(32) Float32 sum[kMost];  // the answer
    alignas(32) Float32 lost[kMost]; // squares of the weights that the filter took away
};

// What a filter leaves of a field of which one sample covers so many cells.
inline constexpr Float32 kFilterBegins = 0.2f;
inline constexpr Float32 kFilterEnds = 0.8f;

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
    void (*sumOctaves)(OctaveSums& sums);
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
