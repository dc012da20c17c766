// Compiled once for every instruction set. The lanes are eight numbers wide in all of them, in one vector or in two,
// and sums are taken in one order, so that all give the same bits.
#include "noisekernels.h"

#include <cmath>

#define HWY_DISABLED_TARGETS (HWY_AVX3 | HWY_AVX3_DL)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "host/noise/noisekernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace velto::host::HWY_NAMESPACE
{

namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::CappedTag<float, 8>;
using Ints = hn::RebindToSigned<Floats>;
using UInts = hn::RebindToUnsigned<Floats>;
using V = hn::Vec<Floats>;
using I = hn::Vec<Ints>;
using U = hn::Vec<UInts>;

static constexpr int kLanes = static_cast<int>(hn::MaxLanes(Floats()));
static constexpr int kParts = 8 / kLanes; // vectors that eight numbers take

static constexpr UInt32 kPrimeX = 501125321u;
static constexpr UInt32 kPrimeY = 1136930381u;
static constexpr UInt32 kPrimeZ = 1720413743u;
alignas(16) static constexpr UInt32 kPrimes[4] = {kPrimeX, kPrimeY, kPrimeZ, 0};
static constexpr UInt32 kMix = 668265261u;
static constexpr UInt32 kMix2 = 2654435769u;

static constexpr float kFarthest = 1e9f; // whole numbers and their neighbours fit 32 bits up to here

// About the sine of `turns` full turns: parabolas, smooth to the first derivative, exact at quarter turns.
HWY_INLINE V Wave(V turns)
{
    const Floats d;
    const V q = hn::Sub(hn::Sub(turns, hn::Floor(turns)), hn::Set(d, 0.5f));
    return hn::Mul(q, hn::Sub(hn::Mul(hn::Abs(q), hn::Set(d, 16.0f)), hn::Set(d, 8.0f)));
}

HWY_INLINE V Lerp(V t, V a, V b)
{
    return hn::Add(a, hn::Mul(t, hn::Sub(b, a)));
}

// Zero slope and curvature at both ends.
template <class T>
HWY_INLINE T Fade(T t)
{
    const hn::DFromV<T> d;
    const T p = hn::Add(hn::Mul(t, hn::Sub(hn::Mul(t, hn::Set(d, 6.0f)), hn::Set(d, 15.0f))), hn::Set(d, 10.0f));
    return hn::Mul(hn::Mul(hn::Mul(t, t), t), p);
}

// `cells` is the sum of the axes' cells, each times its prime: a sum, since an exclusive or of odd multiples is the
// same for two cells that mirror each other.
HWY_INLINE U Scramble(U cells, U seed)
{
    const UInts d;
    const U h = hn::Xor(cells, seed);
    return hn::Mul(hn::Xor(h, hn::ShiftRight<15>(h)), hn::Set(d, kMix));
}

// Bits 8 to 23 as a number in [0, 1).
HWY_INLINE V MiddleBits(U h)
{
    const Floats d;
    const Ints di;
    const U bits = hn::ShiftRight<16>(hn::ShiftLeft<8>(h));
    return hn::Mul(hn::ConvertTo(d, hn::BitCast(di, bits)), hn::Set(d, 0x1p-16f));
}

HWY_INLINE V HighBits(U h)
{
    const Floats d;
    const Ints di;
    return hn::Mul(hn::ConvertTo(d, hn::BitCast(di, hn::ShiftRight<16>(h))), hn::Set(d, 0x1p-16f));
}

// Turns a second; no two corners keep step.
HWY_INLINE V Speed(V random)
{
    const Floats d;
    return hn::Add(hn::Mul(random, hn::Set(d, 0.3f)), hn::Set(d, 0.15f));
}

template <class T>
HWY_INLINE T Usable(T x)
{
    const hn::DFromV<T> d;
    return hn::IfThenElseZero(hn::Lt(hn::Abs(x), hn::Set(d, kFarthest)), x);
}

// --- Gradient noise ---

// One of the twelve edge directions of a cube. With time it turns in its plane.
template <bool kMoving>
HWY_INLINE V GradientDot3d(U cells, U seed, V x, V y, V z, V time)
{
    const Floats d;
    const Ints di;
    const UInts du;
    const U h = Scramble(cells, seed);
    const I s = hn::BitCast(di, h);
    const I third = hn::Set(di, 715827882);
    const U sign = hn::Set(du, 0x80000000u);
    V u = hn::IfThenElse(hn::RebindMask(d, hn::Lt(s, hn::Neg(third))), y, x);
    V v = hn::IfThenElse(hn::RebindMask(d, hn::Gt(s, third)), y, z);
    u = hn::Xor(u, hn::BitCast(d, hn::And(hn::ShiftLeft<5>(h), sign)));
    v = hn::Xor(v, hn::BitCast(d, hn::And(hn::ShiftLeft<9>(h), sign)));
    if constexpr (kMoving)
    {
        const V turns = hn::Mul(Speed(MiddleBits(h)), time);
        const V sine = Wave(turns);
        const V cosine = Wave(hn::Add(turns, hn::Set(d, 0.25f)));
        u = hn::Mul(u, hn::Add(cosine, sine));
        v = hn::Mul(v, hn::Sub(cosine, sine));
    }
    return hn::Add(u, v);
}

// Any direction.
template <bool kMoving>
HWY_INLINE V GradientDot2d(U cells, U seed, V x, V y, V time)
{
    const Floats d;
    const U h = Scramble(cells, seed);
    V turns = HighBits(h);
    if constexpr (kMoving)
        turns = hn::Add(turns, hn::Mul(Speed(MiddleBits(h)), time));
    const V scale = hn::Set(d, 1.3f);
    return hn::Mul(hn::Add(hn::Mul(Wave(hn::Add(turns, hn::Set(d, 0.25f))), x), hn::Mul(Wave(turns), y)), scale);
}

// One axis of a lattice cell.
struct Axis
{
    V fraction;
    U cell; // times the axis's prime

    HWY_INLINE Axis(V x, UInt32 prime)
    {
        const Ints di;
        const UInts du;
        const V usable = Usable(x);
        const V whole = hn::Floor(usable);
        fraction = hn::Sub(usable, whole);
        cell = hn::Mul(hn::BitCast(du, hn::ConvertTo(di, whole)), hn::Set(du, prime));
    }
    HWY_INLINE Axis() = default;
    HWY_INLINE V Beyond() const { return hn::Sub(fraction, hn::Set(Floats(), 1.0f)); }
    HWY_INLINE U NextCell(UInt32 prime) const { return hn::Add(cell, hn::Set(UInts(), prime)); }
};

// Of the octaves from `i` on, one a lane.
HWY_INLINE Axis OctaveAxis(const GradientBank& bank, int i, float at, const Float32* shift, UInt32 prime)
{
    const Floats d;
    const V frequency = hn::LoadU(d, bank.frequency + i);
    return Axis(hn::Add(hn::Mul(hn::Set(d, at), frequency), hn::LoadU(d, shift + i)), prime);
}

template <bool kMoving>
HWY_INLINE V CellGradient3d(const Axis& x, const Axis& y, const Axis& z, U seed, V time)
{
    const V fadeZ = Fade(z.fraction);
    const auto edge = [&](U cellsXY, V dx, V dy) {
        const V low = GradientDot3d<kMoving>(hn::Add(cellsXY, z.cell), seed, dx, dy, z.fraction, time);
        const V high = GradientDot3d<kMoving>(hn::Add(cellsXY, z.NextCell(kPrimeZ)), seed, dx, dy, z.Beyond(), time);
        return Lerp(fadeZ, low, high);
    };
    const U x1 = x.NextCell(kPrimeX);
    const U y1 = y.NextCell(kPrimeY);
    const V fadeY = Fade(y.fraction);
    const V left = Lerp(fadeY, edge(hn::Add(x.cell, y.cell), x.fraction, y.fraction),
        edge(hn::Add(x.cell, y1), x.fraction, y.Beyond()));
    const V right =
        Lerp(fadeY, edge(hn::Add(x1, y.cell), x.Beyond(), y.fraction), edge(hn::Add(x1, y1), x.Beyond(), y.Beyond()));
    return Lerp(Fade(x.fraction), left, right);
}

template <bool kMoving>
HWY_INLINE V CellGradient2d(const Axis& x, const Axis& y, U seed, V time)
{
    const V fadeY = Fade(y.fraction);
    const auto edge = [&](U cellX, V dx) {
        const V low = GradientDot2d<kMoving>(hn::Add(cellX, y.cell), seed, dx, y.fraction, time);
        const V high = GradientDot2d<kMoving>(hn::Add(cellX, y.NextCell(kPrimeY)), seed, dx, y.Beyond(), time);
        return Lerp(fadeY, low, high);
    };
    const V left = edge(x.cell, x.fraction);
    const V right = edge(x.NextCell(kPrimeX), x.Beyond());
    return Lerp(Fade(x.fraction), left, right);
}

template <bool kMoving>
HWY_INLINE void Gradients3d(const GradientBank& bank, int count, const NoisePoint& point, Float32* values)
{
    const Floats d;
    const UInts du;
    const V time = hn::Set(d, point.time);
    for (int i = 0; i < count; i += kLanes)
    {
        const Axis x = OctaveAxis(bank, i, point.x, bank.shiftX, kPrimeX);
        const Axis y = OctaveAxis(bank, i, point.y, bank.shiftY, kPrimeY);
        const Axis z = OctaveAxis(bank, i, point.z, bank.shiftZ, kPrimeZ);
        const U seed = hn::LoadU(du, bank.seed + i);
        hn::Store(CellGradient3d<kMoving>(x, y, z, seed, time), d, values + i);
    }
}

template <bool kMoving>
HWY_INLINE void Gradients2d(const GradientBank& bank, int count, const NoisePoint& point, Float32* values)
{
    const Floats d;
    const UInts du;
    const V time = hn::Set(d, point.time);
    for (int i = 0; i < count; i += kLanes)
    {
        const Axis x = OctaveAxis(bank, i, point.x, bank.shiftX, kPrimeX);
        const Axis y = OctaveAxis(bank, i, point.y, bank.shiftY, kPrimeY);
        const U seed = hn::LoadU(du, bank.seed + i);
        hn::Store(CellGradient2d<kMoving>(x, y, seed, time), d, values + i);
    }
}

// What the filter leaves of a field.
HWY_INLINE V Keep(V cellsPerSample)
{
    const Floats d;
    const V one = hn::Set(d, 1.0f);
    const V width = hn::Abs(cellsPerSample);
    const V begin = hn::Set(d, kFilterBegins);
    const V t =
        hn::Min(hn::Max(hn::Div(hn::Sub(width, begin), hn::Set(d, kFilterEnds - kFilterBegins)), hn::Zero(d)), one);
    const V smooth = hn::Mul(hn::Mul(t, t), hn::Sub(hn::Set(d, 3.0f), hn::Mul(hn::Set(d, 2.0f), t)));
    const V faded = hn::IfThenElseZero(hn::Lt(width, hn::Set(d, kFilterEnds)), hn::Sub(one, smooth));
    return hn::IfThenElse(hn::Le(width, begin), one, faded);
}

// Places side by side, octave after octave.
template <bool kMoving, bool kFlat>
HWY_INLINE void SumOctaves(OctaveSums& sums)
{
    const Floats d;
    const UInts du;
    const GradientBank& bank = *sums.bank;
    const V time = hn::Set(d, sums.time);
    for (Int place = 0; place < sums.places; place += kLanes)
    {
        const V atX = Usable(hn::Load(d, sums.x + place));
        const V atY = Usable(hn::Load(d, sums.y + place));
        const V atZ = Usable(hn::Load(d, sums.z + place));
        const V width = hn::Load(d, sums.filterWidth + place);
        V sum = hn::Zero(d);
        V lost = hn::Zero(d);
        for (int i = 0; i < sums.count; ++i)
        {
            const V frequency = hn::Set(d, bank.frequency[i]);
            const auto axis = [&](V at, Float32 shift, UInt32 prime) {
                return Axis(hn::Add(hn::Mul(at, frequency), hn::Set(d, shift)), prime);
            };
            const Axis x = axis(atX, bank.shiftX[i], kPrimeX);
            const Axis y = axis(atY, bank.shiftY[i], kPrimeY);
            const U seed = hn::Set(du, bank.seed[i]);
            V gradient;
            if constexpr (kFlat)
                gradient = CellGradient2d<kMoving>(x, y, seed, time);
            else
                gradient = CellGradient3d<kMoving>(x, y, axis(atZ, bank.shiftZ[i], kPrimeZ), seed, time);
            const V keep = Keep(hn::Mul(width, frequency));
            const V weight = hn::Set(d, sums.weights[i]);
            sum = hn::Add(sum, hn::Mul(hn::Mul(weight, keep), gradient));
            lost = hn::Add(lost, hn::Mul(hn::Mul(weight, weight), hn::Sub(hn::Set(d, 1.0f), hn::Mul(keep, keep))));
        }
        hn::Store(sum, d, sums.sum + place);
        hn::Store(lost, d, sums.lost + place);
    }
}

// Corner c lies at (c & 1, c >> 1 & 1, c >> 2) of the cell.
alignas(32) static constexpr Float32 kCornerX[8] = {0, 1, 0, 1, 0, 1, 0, 1};
alignas(32) static constexpr Float32 kCornerY[8] = {0, 0, 1, 1, 0, 0, 1, 1};
alignas(32) static constexpr Float32 kCornerZ[8] = {0, 0, 0, 0, 1, 1, 1, 1};
alignas(32) static constexpr UInt32 kSteps[8] = {
    0, kPrimeX, kPrimeY, kPrimeX + kPrimeY, kPrimeZ, kPrimeX + kPrimeZ, kPrimeY + kPrimeZ, kPrimeX + kPrimeY + kPrimeZ};

HWY_INLINE Axis SpreadAxis(float at, float frequency, float shift, UInt32 prime)
{
    const Floats d;
    return Axis(hn::Add(hn::Mul(hn::Set(d, at), hn::Set(d, frequency)), hn::Set(d, shift)), prime);
}

HWY_INLINE float Lerp(float t, float a, float b)
{
    return a + t * (b - a);
}

// The place of one point in its cell; the axes' cells are summed.
struct Place3d
{
    float fraction[3];
    float fade[3];
    UInt32 cell;

    HWY_INLINE Place3d(const GradientBank& bank, const NoisePoint& point)
    {
#if HWY_TARGET == HWY_SCALAR
        const float at[] = {point.x, point.y, point.z};
        const float shift[] = {bank.shiftX[0], bank.shiftY[0], bank.shiftZ[0]};
        cell = 0;
        for (int i = 0; i < 3; ++i)
        {
            const Axis axis = SpreadAxis(at[i], bank.frequency[0], shift[i], kPrimes[i]);
            fraction[i] = hn::GetLane(axis.fraction);
            fade[i] = hn::GetLane(Fade(axis.fraction));
            cell += hn::GetLane(axis.cell);
        }
#else
        // The axes side by side, put together from broadcasts: a vector loaded from numbers just stored is slow.
        const hn::FixedTag<float, 4> d;
        const hn::FixedTag<Int32, 4> di;
        const hn::FixedTag<UInt32, 4> du;
        const auto join = [d](float x, float y, float z) {
            return hn::ConcatUpperLower(d, hn::Set(d, z), hn::OddEven(hn::Set(d, y), hn::Set(d, x)));
        };
        const auto spread = [](auto axes, float(&numbers)[3]) {
            numbers[0] = hn::GetLane(axes);
            numbers[1] = hn::GetLane(hn::Broadcast<1>(axes));
            numbers[2] = hn::GetLane(hn::Broadcast<2>(axes));
        };
        const auto at = Usable(hn::Add(hn::Mul(join(point.x, point.y, point.z), hn::Set(d, bank.frequency[0])),
            join(bank.shiftX[0], bank.shiftY[0], bank.shiftZ[0])));
        const auto whole = hn::Floor(at);
        const auto fractions = hn::Sub(at, whole);
        spread(fractions, fraction);
        spread(Fade(fractions), fade);
        const auto cells = hn::Mul(hn::BitCast(du, hn::ConvertTo(di, whole)), hn::Load(du, kPrimes));
        cell = hn::GetLane(hn::Add(hn::Add(cells, hn::Broadcast<1>(cells)), hn::Broadcast<2>(cells)));
#endif
    }
};

template <bool kMoving>
HWY_INLINE Float32 Gradient3d(const GradientBank& bank, const NoisePoint& point)
{
    const Floats d;
    const UInts du;
    const Place3d place(bank, point);
    const U seed = hn::Set(du, bank.seed[0]);
    const V time = hn::Set(d, point.time);
    alignas(32) float corners[8];
    for (int part = 0; part < 8; part += kLanes)
    {
        const auto offset = [&](int axis, const Float32* corner) {
            return hn::Sub(hn::Set(d, place.fraction[axis]), hn::Load(d, corner + part));
        };
        const U cells = hn::Add(hn::Set(du, place.cell), hn::Load(du, kSteps + part));
        hn::Store(
            GradientDot3d<kMoving>(cells, seed, offset(0, kCornerX), offset(1, kCornerY), offset(2, kCornerZ), time), d,
            corners + part);
    }
    alignas(16) float edges[4];
#if HWY_TARGET == HWY_SCALAR
    for (int corner = 0; corner < 4; ++corner)
        edges[corner] = Lerp(place.fade[2], corners[corner], corners[corner + 4]);
#else
    const hn::FixedTag<float, 4> d4;
    const auto low = hn::Load(d4, corners);
    const auto high = hn::Load(d4, corners + 4);
    hn::Store(hn::Add(low, hn::Mul(hn::Set(d4, place.fade[2]), hn::Sub(high, low))), d4, edges);
#endif
    const float left = Lerp(place.fade[1], edges[0], edges[2]);
    const float right = Lerp(place.fade[1], edges[1], edges[3]);
    return Lerp(place.fade[0], left, right);
}

template <bool kMoving>
HWY_INLINE Float32 Gradient2d(const GradientBank& bank, const NoisePoint& point)
{
    const Floats d;
    const UInts du;
    const Axis x = SpreadAxis(point.x, bank.frequency[0], bank.shiftX[0], kPrimeX);
    const Axis y = SpreadAxis(point.y, bank.frequency[0], bank.shiftY[0], kPrimeY);
    const U seed = hn::Set(du, bank.seed[0]);
    alignas(32) float corners[8];
    for (int part = 0; part < 4; part += kLanes)
    {
        const U cells = hn::Add(hn::Add(x.cell, y.cell), hn::Load(du, kSteps + part));
        hn::Store(GradientDot2d<kMoving>(cells, seed, hn::Sub(x.fraction, hn::Load(d, kCornerX + part)),
                      hn::Sub(y.fraction, hn::Load(d, kCornerY + part)), hn::Set(d, point.time)),
            d, corners + part);
    }
    const float fadeY = hn::GetLane(Fade(y.fraction));
    const float left = Lerp(fadeY, corners[0], corners[2]);
    const float right = Lerp(fadeY, corners[1], corners[3]);
    return Lerp(hn::GetLane(Fade(x.fraction)), left, right);
}

// --- Nearest points ---

// The cells about a sample, by how near they can be: 1 is the side on which the nearer wall lies, -1 the other. Rows of
// eight; what is over is out of reach.
template <int kDims>
struct Neighbourhood
{
    static constexpr int kNear = kDims == 3 ? 4 : 2; // rows of the 3 x 3 (x 3) cells in the middle
    static constexpr int kRows = kDims == 3 ? 4 + 13 : 2 + 2;
    alignas(32) Float32 x[kRows * 8] = {};
    alignas(32) Float32 y[kRows * 8] = {};
    alignas(32) Float32 z[kRows * 8] = {};

    constexpr Neighbourhood()
    {
        int n = 0;
        const auto add = [&](int cx, int cy, int cz) {
            x[n] = static_cast<Float32>(cx);
            y[n] = static_cast<Float32>(cy);
            z[n] = static_cast<Float32>(cz);
            ++n;
        };
        const auto fill = [&] {
            for (int left = (8 - n % 8) % 8; left > 0; --left)
                add(1 << 28, 0, 0);
        };
        const int depth = kDims == 3 ? 1 : 0;
        for (int away = 0; away <= kDims; ++away) // how many axes lead to the far side
        {
            for (int cz = -depth; cz <= depth; ++cz)
                for (int cy = -1; cy <= 1; ++cy)
                    for (int cx = -1; cx <= 1; ++cx)
                    {
                        if ((cx < 0) + (cy < 0) + (cz < 0) == away)
                            add(cx, cy, cz);
                    }
        }
        fill();
        for (int cz = -2 * depth; cz <= 2 * depth; ++cz)
            for (int cy = -2; cy <= 2; ++cy)
                for (int cx = -2; cx <= 2; ++cx)
                {
                    if (cx == 2 || cx == -2 || cy == 2 || cy == -2 || cz == 2 || cz == -2)
                        add(cx, cy, cz);
                }
        fill();
    }
};

template <int kDims>
static constexpr Neighbourhood<kDims> kNeighbourhood;

// The two smallest of the eight lanes, and of what they saw.
struct LaneMinima
{
    V f1[kParts];
    V f2[kParts];
    I id1[kParts];
    I id2[kParts];

    HWY_INLINE LaneMinima()
    {
        for (int part = 0; part < kParts; ++part)
        {
            f1[part] = hn::Set(Floats(), 3e38f);
            f2[part] = f1[part];
            id1[part] = hn::Zero(Ints());
            id2[part] = id1[part];
        }
    }

    HWY_INLINE void Take(int part, V square, I id)
    {
        const Ints di;
        const auto first = hn::Lt(square, f1[part]);
        const auto second = hn::Lt(square, f2[part]);
        f2[part] = hn::IfThenElse(second, hn::IfThenElse(first, f1[part], square), f2[part]);
        id2[part] = hn::IfThenElse(
            hn::RebindMask(di, second), hn::IfThenElse(hn::RebindMask(di, first), id1[part], id), id2[part]);
        f1[part] = hn::IfThenElse(first, square, f1[part]);
        id1[part] = hn::IfThenElse(hn::RebindMask(di, first), id, id1[part]);
    }

    // The two smallest squares of all.
    HWY_INLINE void Squares(float& first, float& second) const
    {
#if HWY_TARGET == HWY_SCALAR
        first = hn::GetLane(f1[0]);
        second = hn::GetLane(f2[0]);
        for (int part = 1; part < kParts; ++part)
        {
            const float f = hn::GetLane(f1[part]);
            second = HWY_MIN(HWY_MAX(first, f), HWY_MIN(second, hn::GetLane(f2[part])));
            first = HWY_MIN(first, f);
        }
#else
#if HWY_MAX_BYTES >= 32
        const hn::FixedTag<float, 4> d4;
        auto a1 = hn::LowerHalf(d4, f1[0]);
        auto a2 = hn::LowerHalf(d4, f2[0]);
        auto b1 = hn::UpperHalf(d4, f1[0]);
        auto b2 = hn::UpperHalf(d4, f2[0]);
#else
        auto a1 = f1[0];
        auto a2 = f2[0];
        auto b1 = f1[1];
        auto b2 = f2[1];
#endif
        const auto merge = [&] {
            a2 = hn::Min(hn::Max(a1, b1), hn::Min(a2, b2));
            a1 = hn::Min(a1, b1);
        };
        merge();
        b1 = hn::Shuffle1032(a1);
        b2 = hn::Shuffle1032(a2);
        merge();
        b1 = hn::Shuffle2301(a1);
        b2 = hn::Shuffle2301(a2);
        merge();
        first = hn::GetLane(a1);
        second = hn::GetLane(a2);
#endif
    }

    // The lane, and -1 when there is none.
    HWY_INLINE int Find(const V (&squares)[kParts], float square, int except) const
    {
        const Floats d;
        for (int part = 0; part < kParts; ++part)
        {
            auto equal = hn::Eq(squares[part], hn::Set(d, square));
            if (except >= 0 && except / kLanes == part)
                equal =
                    hn::And(equal, hn::Ne(hn::Iota(d, 0.0f), hn::Set(d, static_cast<float>(except - part * kLanes))));
            const auto lane = hn::FindFirstTrue(d, equal);
            if (lane >= 0)
                return part * kLanes + static_cast<int>(lane);
        }
        return -1;
    }

    static HWY_INLINE Int32 Lane(const I (&ids)[kParts], int lane)
    {
        alignas(32) Int32 all[8];
        for (int part = 0; part < kParts; ++part)
            hn::Store(ids[part], Ints(), all + part * kLanes);
        return all[lane & 7];
    }
};

// One axis of a search.
struct SearchAxis
{
    float fraction;
    float side; // of the nearer wall
    UInt32 cell;

    HWY_INLINE explicit SearchAxis(float at)
    {
        const float usable = std::abs(at) < kFarthest ? at : 0.0f;
        const float whole = hn::GetLane(hn::Floor(hn::Set(Floats(), usable)));
        fraction = usable - whole;
        side = fraction < 0.5f ? -1.0f : 1.0f;
        cell = static_cast<UInt32>(static_cast<Int32>(whole));
    }
    // How far the middle cells reach, at least; by the same roundings as the gaps of cells.
    HWY_INLINE float Reach() const
    {
        const float onward = 2.0f * side - fraction;
        return side > 0.0f ? onward : -(onward + 1.0f);
    }
};

template <int kDims, bool kMoving>
class Search
{
public:
    HWY_INLINE Search(UInt32 seed, const NoisePoint& point)
        : x_(point.x), y_(point.y), z_(kDims == 3 ? point.z : 0.0f), seed_(seed), time_(point.time)
    {
    }

    HWY_INLINE void Run(NearestPoints& nearest)
    {
        using Cells = Neighbourhood<kDims>;
        float first = 0.0f;
        float second = 3e38f;
        for (int row = 0; row < Cells::kNear; ++row)
        {
            if (Row(row, second))
                minima_.Squares(first, second);
        }
        float reach = HWY_MIN(x_.Reach(), y_.Reach());
        if constexpr (kDims == 3)
            reach = HWY_MIN(reach, z_.Reach());
        if (reach * reach <= second)
        {
            for (int row = Cells::kNear; row < Cells::kRows; ++row)
            {
                if (Row(row, second))
                    minima_.Squares(first, second);
            }
        }
        nearest.f1 = std::sqrt(first);
        nearest.f2 = std::sqrt(second);
        // Among equals the first lane's.
        const int lane = minima_.Find(minima_.f1, first, -1);
        nearest.id1 = LaneMinima::Lane(minima_.id1, lane);
        const int other = minima_.Find(minima_.f1, second, lane);
        nearest.id2 = other >= 0 ? LaneMinima::Lane(minima_.id1, other)
                                 : LaneMinima::Lane(minima_.id2, minima_.Find(minima_.f2, second, -1));
    }

private:
    // Eight cells; false when none of them can hold one of the two nearest points.
    HWY_INLINE bool Row(int row, float second)
    {
        const Floats d;
        bool taken = false;
        for (int part = 0; part < kParts; ++part)
        {
            const int at = row * 8 + part * kLanes;
            const auto& cells = kNeighbourhood<kDims>;
            const V ox = hn::Mul(hn::Load(d, cells.x + at), hn::Set(d, x_.side));
            const V oy = hn::Mul(hn::Load(d, cells.y + at), hn::Set(d, y_.side));
            const V oz = kDims == 3 ? hn::Mul(hn::Load(d, cells.z + at), hn::Set(d, z_.side)) : hn::Zero(d);
            const V rx = hn::Sub(ox, hn::Set(d, x_.fraction));
            const V ry = hn::Sub(oy, hn::Set(d, y_.fraction));
            const V rz = kDims == 3 ? hn::Sub(oz, hn::Set(d, z_.fraction)) : hn::Zero(d);
            if (row > 0)
            {
                // A point's distance is rounded like its cell's, and no further down, so what is skipped is farther.
                const auto gap = [&](V r) {
                    return hn::Max(hn::Zero(d), hn::Max(r, hn::Neg(hn::Add(r, hn::Set(d, 1.0f)))));
                };
                const V gaps = SquareSum(gap(rx), gap(ry), kDims == 3 ? gap(rz) : hn::Zero(d));
                if (hn::AllFalse(d, hn::Le(gaps, hn::Set(d, second))))
                    continue;
            }
            taken = true;
            Take(part, ox, oy, oz, rx, ry, rz);
        }
        return taken;
    }

    HWY_INLINE void Take(int part, V ox, V oy, V oz, V rx, V ry, V rz)
    {
        const Ints di;
        const UInts du;
        const auto cell = [&](V offset, UInt32 base, UInt32 prime) {
            return hn::Mul(hn::Add(hn::BitCast(du, hn::ConvertTo(di, offset)), hn::Set(du, base)), hn::Set(du, prime));
        };
        U cells = hn::Add(cell(ox, x_.cell, kPrimeX), cell(oy, y_.cell, kPrimeY));
        if constexpr (kDims == 3)
            cells = hn::Add(cells, cell(oz, z_.cell, kPrimeZ));
        U hash = Scramble(cells, hn::Set(du, seed_));
        hash = hn::Xor(hash, hn::ShiftRight<13>(hash));
        const U more = hn::Mul(hash, hn::Set(du, kMix2));
        const V a = HighBits(hash);
        const V b = HighBits(more);
        const V c = MiddleBits(more);
        V dx;
        V dy;
        V dz = hn::Zero(Floats());
        if constexpr (kMoving)
        {
            dx = hn::Add(rx, Wandering(a, b, c));
            dy = hn::Add(ry, Wandering(b, c, a));
            if constexpr (kDims == 3)
                dz = hn::Add(rz, Wandering(c, a, b));
        }
        else
        {
            dx = hn::Add(rx, a);
            dy = hn::Add(ry, b);
            if constexpr (kDims == 3)
                dz = hn::Add(rz, c);
        }
        minima_.Take(part, SquareSum(dx, dy, dz), hn::BitCast(di, hash));
    }

    static HWY_INLINE V SquareSum(V x, V y, V z)
    {
        const V sum = hn::Add(hn::Mul(x, x), hn::Mul(y, y));
        return kDims == 3 ? hn::Add(sum, hn::Mul(z, z)) : sum;
    }

    // A place in [0, 1) that swings about its middle.
    HWY_INLINE V Wandering(V middle, V phase, V speed) const
    {
        const Floats d;
        const V swing = Wave(hn::Add(phase, hn::Mul(Speed(speed), hn::Set(d, time_))));
        return hn::Add(hn::Add(hn::Mul(middle, hn::Set(d, 0.6f)), hn::Set(d, 0.2f)), hn::Mul(swing, hn::Set(d, 0.2f)));
    }

    SearchAxis x_;
    SearchAxis y_;
    SearchAxis z_;
    UInt32 seed_;
    float time_;
    LaneMinima minima_;
};

// --- The table ---

static NoisePoint WithUsableTime(const NoisePoint& point)
{
    return {point.x, point.y, point.z, std::abs(point.time) < 1e7f ? point.time : 0.0f};
}

static void GradientsAt3d(const GradientBank& bank, int count, const NoisePoint& point, Float32* values)
{
    const NoisePoint at = WithUsableTime(point);
    at.time == 0.0f ? Gradients3d<false>(bank, count, at, values) : Gradients3d<true>(bank, count, at, values);
}

static void GradientsAt2d(const GradientBank& bank, int count, const NoisePoint& point, Float32* values)
{
    const NoisePoint at = WithUsableTime(point);
    at.time == 0.0f ? Gradients2d<false>(bank, count, at, values) : Gradients2d<true>(bank, count, at, values);
}

static Float32 GradientAt3d(const GradientBank& bank, const NoisePoint& point)
{
    const NoisePoint at = WithUsableTime(point);
    return at.time == 0.0f ? Gradient3d<false>(bank, at) : Gradient3d<true>(bank, at);
}

static Float32 GradientAt2d(const GradientBank& bank, const NoisePoint& point)
{
    const NoisePoint at = WithUsableTime(point);
    return at.time == 0.0f ? Gradient2d<false>(bank, at) : Gradient2d<true>(bank, at);
}

static void SumOctavesAt(OctaveSums& sums)
{
    if (!(std::abs(sums.time) < 1e7f))
        sums.time = 0.0f;
    if (sums.time == 0.0f)
        sums.isFlat ? SumOctaves<false, true>(sums) : SumOctaves<false, false>(sums);
    else
        sums.isFlat ? SumOctaves<true, true>(sums) : SumOctaves<true, false>(sums);
}

template <int kDims, bool kMoving>
static void NearestAt(UInt32 seed, const NoisePoint& point, NearestPoints& nearest)
{
    Search<kDims, kMoving>(seed, WithUsableTime(point)).Run(nearest);
}

static const NoiseKernels* Kernels()
{
    static constexpr NoiseKernels kernels{
        .name = HWY_STR(HWY_NAMESPACE),
        .gradients3d = &GradientsAt3d,
        .gradients2d = &GradientsAt2d,
        .gradient3d = &GradientAt3d,
        .gradient2d = &GradientAt2d,
        .sumOctaves = &SumOctavesAt,
        .nearest3d = &NearestAt<3, false>,
        .nearestMoving3d = &NearestAt<3, true>,
        .nearestMoving2d = &NearestAt<2, true>,
    };
    return &kernels;
}

} // namespace velto::host::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include <vector>

namespace velto::host
{

HWY_EXPORT(Kernels);

const NoiseKernels& BestNoiseKernels()
{
    static const NoiseKernels& best = *HWY_DYNAMIC_DISPATCH(Kernels)();
    return best;
}

std::span<const NoiseKernels* const> AllNoiseKernels()
{
    static const std::vector<const NoiseKernels*> all = [] {
        std::vector<const NoiseKernels*> kernels{HWY_STATIC_DISPATCH(Kernels)()};
        [[maybe_unused]] const auto supported = hwy::SupportedTargets();
#define VELTO_ADD_TARGET(target)                                                                                       \
    if ((supported & HWY_##target) != 0 && HWY_STATIC_TARGET != HWY_##target)                                          \
    kernels.push_back(N_##target::Kernels())
#if HWY_TARGETS & HWY_SSSE3
        VELTO_ADD_TARGET(SSSE3);
#endif
#if HWY_TARGETS & HWY_SSE4
        VELTO_ADD_TARGET(SSE4);
#endif
#if HWY_TARGETS & HWY_AVX2
        VELTO_ADD_TARGET(AVX2);
#endif
#undef VELTO_ADD_TARGET
        return kernels;
    }();
    return all;
}

} // namespace velto::host

#endif
