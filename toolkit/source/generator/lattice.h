// Lattices that close after a whole number of cells. Places are shares of the period in whole 2^-32, which wrap of
// themselves, so that the two edges of a tile have the same bits. Loops over layers are plain: the compiler makes
// vectors of them.
#pragma once

#include "velto/floor.h"

#include <bit>

namespace velto::toolkit
{

inline constexpr int kMostLayers = 16;
inline constexpr int kLanes = 8;

#define VELTO_INLINE [[gnu::always_inline]] inline

// A share of a period; what is no number, or too far away to have a share, is at its beginning.
inline UInt32 ShareOf(Float x)
{
    const Float share = x - Floor(x);
    return share >= 0.0 && share <= 1.0 ? static_cast<UInt32>(static_cast<UInt>(share * 0x1p32)) : 0;
}

// Layers of one noise; each has a lattice of its own, shifted so that no two have a corner in common.
struct LatticeLayers
{
    UInt32 cellsU[kMostLayers] = {};
    UInt32 cellsV[kMostLayers] = {};
    UInt32 cellsW[kMostLayers] = {};
    UInt32 shiftU[kMostLayers] = {};
    UInt32 shiftV[kMostLayers] = {};
    UInt32 shiftW[kMostLayers] = {};
    UInt32 seed[kMostLayers] = {};
};

struct LatticePlace
{
    UInt32 u;
    UInt32 v;
    UInt32 w;
    UInt32 phase; // of what moves, in 2^-32 turns of the slowest
};

inline constexpr UInt32 kPrimeU = 501125321u;
inline constexpr UInt32 kPrimeV = 1136930381u;
inline constexpr UInt32 kPrimeW = 1720413743u;

VELTO_INLINE UInt32 MixBits(UInt32 h)
{
    h = (h ^ (h >> 15)) * 668265261u;
    return h ^ (h >> 16);
}

// About the sine of a phase: parabolas, smooth to the first derivative.
VELTO_INLINE Float32 Wave(UInt32 phase)
{
    const Float32 q = static_cast<Float32>(static_cast<Int32>(phase)) * 0x1p-32f;
    return q * (8.0f - 16.0f * (q < 0.0f ? -q : q));
}

// What a corner moves by: one or two turns a loop, either way. At phase 0 that is nothing, and `kMoves` may be false.
template <bool kMoves>
VELTO_INLINE UInt32 Moved(UInt32 h, UInt32 phase)
{
    if constexpr (!kMoves)
        return 0;
    const UInt32 turns = 1 + ((h >> 3) & 1);
    return (h & 16) != 0 ? turns * phase : 0u - turns * phase;
}

// One axis of a cell.
struct LatticeAxis
{
    UInt32 low; // the corners, times the axis's prime
    UInt32 high;
    Float32 fraction;
};

VELTO_INLINE LatticeAxis AxisAt(UInt32 place, UInt32 cells, UInt32 prime)
{
    const UInt scaled = static_cast<UInt>(place) * cells;
    const auto cell = static_cast<UInt32>(scaled >> 32);
    const UInt32 next = cell + 1 == cells ? 0 : cell + 1;
    const auto rest = static_cast<Int32>(static_cast<UInt32>(scaled) >> 8);
    return {cell * prime, next * prime, static_cast<Float32>(rest) * 0x1p-24f};
}

// Zero slope and curvature at both ends.
VELTO_INLINE Float32 Fade(Float32 t)
{
    return t * t * t * (t * (t * 6.0f - 15.0f) + 10.0f);
}

VELTO_INLINE Float32 Between(Float32 t, Float32 a, Float32 b)
{
    return a + t * (b - a);
}

// A number at each corner, -1 to 1.
struct ValueCorner
{
    template <bool kMoves>
    VELTO_INLINE static Float32 At(UInt32 h, UInt32 phase, Float32, Float32, Float32 = 0.0f)
    {
        const Float32 q = static_cast<Float32>(static_cast<Int32>(h + Moved<kMoves>(h, phase))) * 0x1p-32f;
        return (q < 0.0f ? -q : q) * 4.0f - 1.0f;
    }
};

// A slope at each corner: in the plane any direction, in space one of the twelve edges of a cube, which turns in its
// plane.
struct GradientCorner
{
    template <bool kMoves>
    VELTO_INLINE static Float32 At(UInt32 h, UInt32 phase, Float32 x, Float32 y)
    {
        const UInt32 angle = h + Moved<kMoves>(h, phase);
        return 1.3f * (Wave(angle + 0x40000000u) * x + Wave(angle) * y);
    }
    template <bool kMoves>
    VELTO_INLINE static Float32 At(UInt32 h, UInt32 phase, Float32 x, Float32 y, Float32 z)
    {
        constexpr UInt32 kThird = 0x55555555u;
        const Float32 first = h < kThird ? y : x;
        const Float32 second = h < 2 * kThird ? z : y;
        const Float32 u = (h & 32) != 0 ? first : -first;
        const Float32 v = (h & 64) != 0 ? second : -second;
        if constexpr (!kMoves)
            return u + v;
        const UInt32 turned = Moved<kMoves>(h, phase);
        const Float32 cosine = Wave(turned + 0x40000000u);
        const Float32 sine = Wave(turned);
        return u * (cosine + sine) + v * (cosine - sine);
    }
};

template <class Corner, bool kMoves>
VELTO_INLINE Float32 PlaneLayer(const LatticeLayers& layers, int i, const LatticePlace& at)
{
    const LatticeAxis u = AxisAt(at.u + layers.shiftU[i], layers.cellsU[i], kPrimeU);
    const LatticeAxis v = AxisAt(at.v + layers.shiftV[i], layers.cellsV[i], kPrimeV);
    const UInt32 seed = layers.seed[i];
    const Float32 x = u.fraction;
    const Float32 y = v.fraction;
    const auto corner = [&](UInt32 ofU, UInt32 ofV, Float32 toX, Float32 toY) {
        return Corner::template At<kMoves>(MixBits((ofU + ofV) ^ seed), at.phase, toX, toY);
    };
    const Float32 a = corner(u.low, v.low, x, y);
    const Float32 b = corner(u.high, v.low, x - 1.0f, y);
    const Float32 c = corner(u.low, v.high, x, y - 1.0f);
    const Float32 d = corner(u.high, v.high, x - 1.0f, y - 1.0f);
    const Float32 fade = Fade(x);
    return Between(Fade(y), Between(fade, a, b), Between(fade, c, d));
}

template <class Corner, bool kMoves>
VELTO_INLINE Float32 SpaceLayer(const LatticeLayers& layers, int i, const LatticePlace& at)
{
    const LatticeAxis u = AxisAt(at.u + layers.shiftU[i], layers.cellsU[i], kPrimeU);
    const LatticeAxis v = AxisAt(at.v + layers.shiftV[i], layers.cellsV[i], kPrimeV);
    const LatticeAxis w = AxisAt(at.w + layers.shiftW[i], layers.cellsW[i], kPrimeW);
    const UInt32 seed = layers.seed[i];
    const Float32 x = u.fraction;
    const Float32 y = v.fraction;
    const Float32 z = w.fraction;
    const auto corner = [&](UInt32 ofU, UInt32 ofV, UInt32 ofW, Float32 toX, Float32 toY, Float32 toZ) {
        return Corner::template At<kMoves>(MixBits((ofU + ofV + ofW) ^ seed), at.phase, toX, toY, toZ);
    };
    const Float32 a = corner(u.low, v.low, w.low, x, y, z);
    const Float32 b = corner(u.high, v.low, w.low, x - 1.0f, y, z);
    const Float32 c = corner(u.low, v.high, w.low, x, y - 1.0f, z);
    const Float32 d = corner(u.high, v.high, w.low, x - 1.0f, y - 1.0f, z);
    const Float32 e = corner(u.low, v.low, w.high, x, y, z - 1.0f);
    const Float32 f = corner(u.high, v.low, w.high, x - 1.0f, y, z - 1.0f);
    const Float32 g = corner(u.low, v.high, w.high, x, y - 1.0f, z - 1.0f);
    const Float32 h = corner(u.high, v.high, w.high, x - 1.0f, y - 1.0f, z - 1.0f);
    const Float32 fade = Fade(x);
    const Float32 fadeY = Fade(y);
    return Between(Fade(z), Between(fadeY, Between(fade, a, b), Between(fade, c, d)),
        Between(fadeY, Between(fade, e, f), Between(fade, g, h)));
}

// Calls `layer` for the first `count`: few of them one by one, others in whole lanes, of which the last may be idle.
template <class Layer>
VELTO_INLINE void ForLayers(int count, Layer layer)
{
    if (count <= 2)
    {
        for (int i = 0; i < count; ++i)
            layer(i);
        return;
    }
    for (int begin = 0; begin < count; begin += kLanes)
    {
        for (int i = begin; i < begin + kLanes; ++i)
            layer(i);
    }
}

template <int kAxes, class Corner, bool kMoves>
VELTO_INLINE void EvaluateLayers(const LatticeLayers& layers, int count, const LatticePlace& at, Float32* values)
{
    ForLayers(count, [&](int i) {
        if constexpr (kAxes == 3)
            values[i] = SpaceLayer<Corner, kMoves>(layers, i, at);
        else
            values[i] = PlaneLayer<Corner, kMoves>(layers, i, at);
    });
}

// The two nearest of the points that wander in the cells of a layer, each in its own.
struct NearestInLattice
{
    Float32 f1 = 9.0f; // squares of the distances, in cells
    Float32 f2 = 9.0f;
    UInt32 id = 0; // of the nearest
};

// How far a point strays from the middle of its cell. No point two cells away is then nearer than the second nearest
// of those about a place.
inline constexpr Float32 kStray = 0.36f;

template <int kAxes, bool kMoves>
VELTO_INLINE NearestInLattice FindNearest(const LatticeLayers& layers, int i, const LatticePlace& at)
{
    const UInt scaledU = static_cast<UInt>(at.u + layers.shiftU[i]) * layers.cellsU[i];
    const UInt scaledV = static_cast<UInt>(at.v + layers.shiftV[i]) * layers.cellsV[i];
    const UInt scaledW = static_cast<UInt>(at.w + layers.shiftW[i]) * layers.cellsW[i];
    const auto fraction = [](UInt scaled) {
        return static_cast<Float32>(static_cast<Int32>(static_cast<UInt32>(scaled) >> 8)) * 0x1p-24f;
    };
    const auto neighbour = [](UInt scaled, int step, UInt32 cells) {
        const auto cell = static_cast<UInt32>(scaled >> 32);
        return step < 0 ? (cell == 0 ? cells - 1 : cell - 1) : step == 0 ? cell : cell + 1 == cells ? 0 : cell + 1;
    };
    const Float32 x = fraction(scaledU) - 0.5f;
    const Float32 y = fraction(scaledV) - 0.5f;
    const Float32 z = fraction(scaledW) - 0.5f;
    NearestInLattice nearest;
    for (int stepW = kAxes == 3 ? -1 : 0; stepW <= (kAxes == 3 ? 1 : 0); ++stepW)
    {
        const UInt32 cellW = kAxes == 3 ? neighbour(scaledW, stepW, layers.cellsW[i]) * kPrimeW : 0;
        for (int stepV = -1; stepV <= 1; ++stepV)
        {
            const UInt32 cellV = neighbour(scaledV, stepV, layers.cellsV[i]) * kPrimeV;
            for (int stepU = -1; stepU <= 1; ++stepU)
            {
                const UInt32 cellU = neighbour(scaledU, stepU, layers.cellsU[i]) * kPrimeU;
                const UInt32 h = MixBits((cellU + cellV + cellW) ^ layers.seed[i]);
                const UInt32 h2 = h * 2654435769u;
                const Float32 dx = static_cast<Float32>(stepU) + kStray * Wave(h + Moved<kMoves>(h, at.phase)) - x;
                const Float32 dy = static_cast<Float32>(stepV) + kStray * Wave(h2 + Moved<kMoves>(h2, at.phase)) - y;
                Float32 square = dx * dx + dy * dy;
                if constexpr (kAxes == 3)
                {
                    const UInt32 h3 = h2 * 2654435769u;
                    const Float32 dz =
                        static_cast<Float32>(stepW) + kStray * Wave(h3 + Moved<kMoves>(h3, at.phase)) - z;
                    square += dz * dz;
                }
                const bool isNearest = square < nearest.f1;
                nearest.f2 = isNearest ? nearest.f1 : square < nearest.f2 ? square : nearest.f2;
                nearest.f1 = isNearest ? square : nearest.f1;
                nearest.id = isNearest ? h : nearest.id;
            }
        }
    }
    return nearest;
}

} // namespace velto::toolkit
