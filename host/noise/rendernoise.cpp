// The noise classes: sums of octaves of gradient noise or of cells, each with a shape of its own.
//
// Common to all: octaves beyond the whole number fade in by its fraction; an octave finer than the filter fades to its
// mean; the exponent bends the final value.
#include "rendernoise.h"

#include "noisemath.h"

#include "host/registry/registry.h"
#include "velto/porttypes.h"

#include <algorithm>
#include <deque>
#include <stdexcept>
#include <string>

namespace velto::host
{

namespace
{

struct NoiseObjectOf : RenderNoiseInterface
{
    const NoiseClass* noiseClass = nullptr;
    const NoiseKernels* kernels = nullptr;
    GradientBank octaves;
    GradientBank bend; // three fields of frequency 1 that displace
    UInt32 cells[kMaxOctaves] = {};
    Float32 amplitude[kMaxOctaves] = {};
    Float exponent = 1.0;

    void Setup(UInt32 seed, Float lacunarity, Float gain, Float newExponent);
};

Float FiniteOr(Float value, Float otherwise)
{
    return std::abs(value) < 1e6 ? value : otherwise;
}

void NoiseObjectOf::Setup(UInt32 seed, Float lacunarity, Float gain, Float newExponent)
{
    // Classes of one seed do not look like each other.
    UInt32 random = MixBits(seed ^ static_cast<UInt32>(HashBytes(noiseClass->name)));
    const auto next = [&random] { return MixBits(random += 0x9e3779b9u); };
    const auto fill = [&](GradientBank& bank, int i, Float32 frequency) {
        bank.frequency[i] = frequency;
        // Off the lattice, on which gradient noise is 0 in all octaves at once.
        bank.shiftX[i] = UnitFloat(next());
        bank.shiftY[i] = UnitFloat(next());
        bank.shiftZ[i] = UnitFloat(next());
        bank.seed[i] = next();
    };
    const Float32 step = static_cast<Float32>(FiniteOr(lacunarity, 2.0));
    const Float32 fall = static_cast<Float32>(FiniteOr(gain, 0.5));
    Float32 frequency = 1.0f;
    Float32 size = 1.0f;
    for (int i = 0; i < kMaxOctaves; ++i)
    {
        fill(octaves, i, frequency);
        fill(bend, i, 1.0f);
        cells[i] = next();
        amplitude[i] = std::abs(size) > 1e-30f ? size : 0.0f;
        frequency = std::abs(frequency) < 1e9f ? frequency * step : frequency;
        size = std::abs(size) < 1e9f ? size * fall : size;
    }
    exponent = FiniteOr(newExponent, 1.0);
}

} // namespace

// The mean of a shape, which differs between space and the plane. The tests measure all that stand here.
struct Mean
{
    Float32 space;
    Float32 plane;
};

constexpr Mean kMeanSlope = {0.2201f, 0.234f}; // of one octave's distance from 0

// One question to a noise object.
class NoiseSampler
{
public:
    NoiseSampler(const NoiseObjectOf& noise, bool isFlat, const NoisePoint& point, Float32 octaves, Bool absolute,
        Float32 filterWidth)
        : noise_(noise), flat_(isFlat), absolute_(absolute), point_(Usable(point)), filterWidth_(filterWidth)
    {
        // Comparisons with NaN are false: such a number of octaves is 0.
        const Float32 wanted = octaves > 0.0f ? Min(octaves, static_cast<Float32>(kMaxOctaves)) : 0.0f;
        const int whole = static_cast<int>(wanted);
        const Float32 rest = wanted - static_cast<Float32>(whole);
        count_ = Max(whole + (rest > 0.0f ? 1 : 0), 1);
        contrast_ = whole == 0 ? rest : 1.0f; // with less than one octave the first fades to its mean
        weight_[0] = noise.amplitude[0];
        keep_[0] = KeepAt(noise.octaves.frequency[0]);
        if (count_ == 1)
            return;
        // All sixteen are fewer instructions than a loop to `count_`.
        std::copy_n(noise.amplitude, kMaxOctaves, weight_);
        std::fill_n(keep_, kMaxOctaves, 1.0f);
        if (rest > 0.0f)
            weight_[whole] *= rest;
        if (filterWidth == 0.0f)
            return;
        for (int i = 0; i < count_; ++i)
            keep_[i] = Keep(filterWidth * noise.octaves.frequency[i]);
    }

    const NoisePoint& Point() const { return point_; }

    // `Fbm` at many places that differ in nothing else; false where the octaves are less than one.
    bool FbmAt(OctaveSums& sums) const
    {
        if (contrast_ != 1.0f)
            return false;
        sums.bank = &noise_.octaves;
        sums.weights = weight_;
        sums.count = count_;
        sums.isFlat = flat_;
        sums.time = point_.time;
        noise_.kernels->sumOctaves(sums);
        const Float32 length = WeightLength();
        const Float32 distance = 1.1f / length * Of(kMeanSlope);
        for (Int i = 0; i < sums.places; ++i)
        {
            const Float32 sum = 1.1f * (count_ == 1 ? sums.sum[i] : sums.sum[i] / length);
            const bool isFaded = absolute_ && sums.lost[i] > 0.0f;
            sums.sum[i] = isFaded ? std::sqrt(sum * sum + distance * distance * sums.lost[i]) : sum;
        }
        return true;
    }

    // What the filter leaves of a shape with a frequency of its own.
    Float32 KeepAt(Float32 frequency) const
    {
        return filterWidth_ == 0.0f ? contrast_ : contrast_ * Keep(filterWidth_ * frequency);
    }

    // For shapes that bend the sum of the octaves, whose mean is another where the sum is weaker: the octaves that the
    // filter leaves take the place of the others. The value then fades to `mean` by the share that is left.
    template <class Shape>
    Float32 Settled(Mean mean, Shape shape) const
    {
        if (filterWidth_ == 0.0f && contrast_ == 1.0f)
            return shape(*this);
        NoiseSampler left = *this;
        Float32 all = 0.0f;
        Float32 rest = 0.0f;
        for (int i = 0; i < count_; ++i)
        {
            left.weight_[i] *= keep_[i];
            left.keep_[i] = 1.0f;
            all += weight_[i] * weight_[i];
            rest += left.weight_[i] * left.weight_[i];
        }
        const Float32 middle = Of(mean);
        return rest > 0.0f ? middle + std::sqrt(rest / all) * (shape(left) - middle) : middle;
    }

    // A sum of octaves times `scale`. Without its sign it keeps the distance from 0 of what the filter took away.
    Float32 Signed(Float32 sum, Float32 scale) const
    {
        if (!absolute_)
            return sum;
        Float32 lost = 0.0f;
        for (int i = 0; i < count_; ++i)
            lost += weight_[i] * weight_[i] * (1.0f - keep_[i] * keep_[i]);
        const Float32 distance = scale * Of(kMeanSlope);
        return lost > 0.0f ? std::sqrt(sum * sum + distance * distance * lost) : sum;
    }

    // The octaves at a point, each faded to `mean` by the filter after `shape`, weighted and divided by the weights.
    template <class Shape>
    Float32 Sum(const NoisePoint& at, Mean means, Shape shape) const
    {
        const Float32 mean = Of(means);
        if (count_ == 1) // its weight is 1
            return mean + keep_[0] * (shape(Gradient(noise_.octaves, at)) - mean);
        alignas(32) Float32 g[kMaxOctaves];
        Gradients(noise_.octaves, count_, at, g);
        Float32 sum = 0.0f;
        Float32 norm = 0.0f;
        for (int i = 0; i < count_; ++i)
        {
            sum += weight_[i] * (mean + keep_[i] * (shape(g[i]) - mean));
            norm += std::abs(weight_[i]);
        }
        return sum / norm;
    }

    // The plain octaves, with the same contrast whatever their number is.
    Float32 Fractal(const NoisePoint& at) const
    {
        if (count_ == 1)
            return keep_[0] * Gradient(noise_.octaves, at);
        alignas(32) Float32 g[kMaxOctaves];
        Gradients(noise_.octaves, count_, at, g);
        Float32 sum = 0.0f;
        for (int i = 0; i < count_; ++i)
            sum += weight_[i] * keep_[i] * g[i];
        return sum / WeightLength();
    }

    // About 0 to 1, creased at 0.
    Float32 Turbulence(const NoisePoint& at) const
    {
        return 1.9f * Sum(at, kMeanSlope, [](Float32 g) { return std::abs(g); });
    }

    // Octave by octave from coarse to fine: `next` takes the value so far, the octave, its weight and its filter.
    template <class Next>
    Float32 Fold(const NoisePoint& at, Float32 start, Next next) const
    {
        alignas(32) Float32 g[kMaxOctaves];
        Gradients(noise_.octaves, count_, at, g);
        Float32 value = start;
        for (int i = 0; i < count_; ++i)
            value = next(value, g[i], weight_[i], keep_[i]); // NOLINT(clang-analyzer-core.CallAndMessage)
        return value;
    }

    Float32 WeightSum() const
    {
        Float32 sum = 0.0f;
        for (int i = 0; i < count_; ++i)
            sum += std::abs(weight_[i]);
        return sum;
    }

    // The length of all weights as a vector.
    Float32 WeightLength() const
    {
        Float32 squares = 0.0f;
        for (int i = 0; i < count_; ++i)
            squares += weight_[i] * weight_[i];
        return std::sqrt(squares);
    }

    Float32 Of(Mean mean) const { return flat_ ? mean.plane : mean.space; }

    // A point moved along a field of its own.
    NoisePoint Bent(const NoisePoint& at, Float32 amount, Float32 frequency) const
    {
        alignas(32) Float32 g[kMaxOctaves];
        Gradients(noise_.bend, 3, {at.x * frequency, at.y * frequency, at.z * frequency, at.time}, g);
        return {at.x + amount * g[0], at.y + amount * g[1], at.z + amount * g[2], at.time};
    }

    // Octaves of the two nearest points of a scattered lattice.
    template <class Shape>
    Float32 SumCells(const NoisePoint& at, Mean means, Shape shape) const
    {
        const Float32 mean = Of(means);
        Float32 sum = 0.0f;
        Float32 norm = 0.0f;
        for (int i = 0; i < count_; ++i)
        {
            const Float32 value = keep_[i] > 0.0f ? shape(Nearest(at, i)) : mean;
            sum += weight_[i] * (mean + keep_[i] * (value - mean));
            norm += std::abs(weight_[i]);
        }
        return sum / norm;
    }

    // Octaves of a lattice of boxes: `shape` takes the place in the box, -1 to 1 an axis, and a number of the box's.
    template <class Shape>
    Float32 SumBoxes(const NoisePoint& at, Mean means, Shape shape) const
    {
        const Float32 mean = Of(means);
        Float32 sum = 0.0f;
        Float32 norm = 0.0f;
        for (int i = 0; i < count_; ++i)
        {
            const NoisePoint p = Octave(at, i);
            UInt32 hash = noise_.cells[i];
            const auto enter = [&hash](Float32 x) {
                const Float32 usable = std::abs(x) < 1e9f ? x : 0.0f;
                const Float32 whole = std::floor(usable);
                hash = MixBits(hash ^ static_cast<UInt32>(static_cast<Int32>(whole)));
                return 2.0f * (usable - whole) - 1.0f;
            };
            const Float32 x = enter(p.x);
            const Float32 y = enter(p.y);
            const Float32 z = flat_ ? 0.0f : enter(p.z);
            const Float32 speed = 0.15f + 0.3f * UnitFloat(MixBits(hash));
            const Float32 value = shape(x, y, z, 1.0f - Triangle(0.5f * UnitFloat(hash) + 0.5f + speed * at.time));
            sum += weight_[i] * (mean + keep_[i] * (value - mean));
            norm += std::abs(weight_[i]);
        }
        return sum / norm;
    }

private:
    static NoisePoint Usable(const NoisePoint& point)
    {
        const auto isWithin = [](Float32 x, Float32 limit) { return std::abs(x) < limit; };
        if (isWithin(point.x, 1e9f) && isWithin(point.y, 1e9f) && isWithin(point.z, 1e9f) && isWithin(point.time, 1e7f))
            return point;
        const auto usable = [&](Float32 x, Float32 limit) { return isWithin(x, limit) ? x : 0.0f; };
        return {usable(point.x, 1e9f), usable(point.y, 1e9f), usable(point.z, 1e9f), usable(point.time, 1e7f)};
    }

    // What the filter leaves of a field, by how many of its cells one sample covers.
    static Float32 Keep(Float32 cellsPerSample)
    {
        const Float32 width = std::abs(cellsPerSample);
        return width <= kFilterBegins ? 1.0f
               : width < kFilterEnds  ? 1.0f - SmoothStep(kFilterBegins, kFilterEnds, width)
                                      : 0.0f;
    }

    Float32 Gradient(const GradientBank& bank, const NoisePoint& at) const
    {
        return flat_ ? noise_.kernels->gradient2d(bank, at) : noise_.kernels->gradient3d(bank, at);
    }

    void Gradients(const GradientBank& bank, int count, const NoisePoint& at, Float32* g) const
    {
        if (count == 1)
            g[0] = Gradient(bank, at);
        else
            (flat_ ? noise_.kernels->gradients2d : noise_.kernels->gradients3d)(bank, count, at, g);
    }

    NoisePoint Octave(const NoisePoint& at, int i) const
    {
        const GradientBank& bank = noise_.octaves;
        return {at.x * bank.frequency[i] + bank.shiftX[i], at.y * bank.frequency[i] + bank.shiftY[i],
            at.z * bank.frequency[i] + bank.shiftZ[i], at.time};
    }

    NearestPoints Nearest(const NoisePoint& at, int i) const
    {
        NearestPoints nearest;
        (flat_ ? noise_.kernels->nearestMoving2d : noise_.kernels->nearestMoving3d)(
            noise_.cells[i], Octave(at, i), nearest);
        return nearest;
    }

    const NoiseObjectOf& noise_;
    bool flat_;
    bool absolute_;
    NoisePoint point_;
    Float32 filterWidth_;
    int count_;
    Float32 contrast_;
    Float32 weight_[kMaxOctaves];
    Float32 keep_[kMaxOctaves];
};

namespace
{

// --- The classes, in order of their names ---

Float32 BlisteredTurbulence(const NoiseSampler& s)
{
    const Float32 blister = s.SumCells(s.Point(), {0.215f, 0.36f}, [](const NearestPoints& n) {
        const Float32 dome = Max(1.0f - n.f1 * n.f1 * 2.5f, 0.0f);
        return dome * dome;
    });
    return 0.75f * s.Turbulence(s.Point()) + 0.7f * blister;
}

Float32 Box(const NoiseSampler& s)
{
    return s.SumBoxes(s.Point(), {0.5f, 0.5f}, [](Float32, Float32, Float32, Float32 box) { return box; });
}

// A product of octaves instead of a sum: calm where the coarse ones are low, rough where they are high.
Float32 Buya(const NoiseSampler& s)
{
    const Float32 product = s.Fold(s.Point(), 1.0f, [](Float32 value, Float32 g, Float32 weight, Float32 keep) {
        return value * (1.0f + 1.6f * keep * weight * g);
    });
    return 0.45f * product;
}

// Cushions in the boxes of a lattice, no two of a brightness.
Float32 Cell(const NoiseSampler& s)
{
    return s.SumBoxes(s.Point(), {0.385f, 0.452f}, [](Float32 x, Float32 y, Float32 z, Float32 box) {
        const Float32 wall = Max(Max(std::abs(x), std::abs(y)), std::abs(z));
        const Float32 square = wall * wall;
        return (1.0f - square * square) * (0.35f + 0.65f * box);
    });
}

Float32 CellVoronoi(const NoiseSampler& s)
{
    return s.SumCells(
        s.Point(), {0.5f, 0.5f}, [](const NearestPoints& n) { return UnitFloat(MixBits(static_cast<UInt32>(n.id1))); });
}

// Winding folds with narrow grooves, as of a brain.
Float32 Cranal(const NoiseSampler& s)
{
    return s.SumCells(s.Bent(s.Bent(s.Point(), 0.5f, 1.3f), 0.25f, 3.1f), {0.563f, 0.686f},
        [](const NearestPoints& n) { return SmoothStep(0.0f, 0.3f, n.f2 - n.f1); });
}

// A plane with dents.
Float32 Dents(const NoiseSampler& s)
{
    const Float32 depth = s.Sum(s.Point(), {0.0138f, 0.0165f}, [](Float32 g) {
        const Float32 low = Max(-g, 0.0f);
        return low * low * low;
    });
    return 1.0f - 7.0f * depth;
}

Float32 DisplacedTurbulence(const NoiseSampler& s)
{
    return s.Turbulence(s.Bent(s.Point(), 0.9f, 1.0f));
}

Float32 DisplacedVoronoi(const NoiseSampler& s)
{
    return s.SumCells(
        s.Bent(s.Point(), 0.6f, 1.7f), {0.482f, 0.394f}, [](const NearestPoints& n) { return n.f1 * 0.95f; });
}

// Glowing filaments.
Float32 Electric(const NoiseSampler& s)
{
    return s.Settled({0.28f, 0.254f}, [](const NoiseSampler& left) {
        const Float32 f = left.Fractal(left.Bent(left.Point(), 0.35f, 1.0f));
        return 0.006f / (0.006f + f * f);
    });
}

Float32 Fbm(const NoiseSampler& s)
{
    return s.Signed(1.1f * s.Fractal(s.Point()), 1.1f / s.WeightLength());
}

// Soft clouds drawn out by a slow wind.
Float32 Gaseous(const NoiseSampler& s)
{
    const NoisePoint drawn = s.Bent(s.Bent(s.Point(), 1.6f, 0.5f), 0.8f, 0.9f);
    return SmoothStep(-0.55f, 0.65f, s.Fractal(drawn));
}

// Round blobs that melt into each other.
Float32 Hama(const NoiseSampler& s)
{
    return s.SumCells(s.Point(), {0.488f, 0.56f}, [](const NearestPoints& n) {
        const auto blob = [](Float32 f) {
            const Float32 fall = Max(1.0f - f * f, 0.0f);
            return fall * fall * fall;
        };
        const Float32 field = blob(n.f1) + blob(n.f2);
        return field / (0.5f + field);
    });
}

// Long streaks.
Float32 Luka(const NoiseSampler& s)
{
    const NoisePoint& p = s.Point();
    const NoisePoint bent = s.Bent(p, 0.7f, 0.6f);
    return 0.5f + 0.8f * s.Fractal({bent.x * 0.3f, bent.y * 1.9f, bent.z, p.time});
}

// Bands of equal height, back and forth.
Float32 Mod(const NoiseSampler& s)
{
    return s.Settled(
        {0.5f, 0.5f}, [](const NoiseSampler& left) { return Triangle(2.5f * left.Fractal(left.Point()) + 0.25f); });
}

// Dark veins between plates that crumble at their rims.
Float32 Naki(const NoiseSampler& s)
{
    return s.Settled({0.387f, 0.535f}, [](const NoiseSampler& left) {
        const Float32 turbulence = left.Turbulence(left.Point());
        const Float32 gap = left.SumCells(
            left.Bent(left.Point(), 0.3f, 2.3f), {0.3f, 0.4f}, [](const NearestPoints& n) { return n.f2 - n.f1; });
        return SmoothStep(0.05f, 0.6f, 1.3f * gap + 0.35f * (turbulence - 0.4f));
    });
}

// Bumps with a grained shell.
Float32 Nutous(const NoiseSampler& s)
{
    const Float32 bump =
        s.SumCells(s.Point(), {0.714f, 0.793f}, [](const NearestPoints& n) { return Max(1.0f - n.f1 * n.f1, 0.0f); });
    return bump * (1.1f - 0.7f * s.Turbulence(s.Bent(s.Point(), 1.0f, 1.0f)));
}

// Plateaus with slopes between.
Float32 Ober(const NoiseSampler& s)
{
    const Float32 f = s.Fractal(s.Point());
    return 0.2f + 0.35f * SmoothStep(-0.16f, -0.08f, f) + 0.35f * SmoothStep(0.1f, 0.18f, f) + 0.25f * f;
}

Float32 Perlin(const NoiseSampler& s)
{
    return s.Signed(s.Sum(s.Point(), {}, [](Float32 g) { return g; }), 1.0f / s.WeightSum());
}

// Spots.
Float32 Pezo(const NoiseSampler& s)
{
    return s.SumCells(s.Point(), {0.262f, 0.454f},
        [](const NearestPoints& n) { return 1.0f - SmoothStep(0.32f, 0.42f, n.f1) * (0.75f + 0.25f * Clamp01(n.f2)); });
}

// Craters with rims.
Float32 Poxo(const NoiseSampler& s)
{
    return s.SumCells(s.Point(), {0.592f, 0.505f}, [](const NearestPoints& n) {
        const Float32 r = n.f1 * 2.2f;
        const Float32 inside = Max(1.0f - r * r, 0.0f);
        const Float32 off = (r - 1.0f) * 3.0f;
        const Float32 rim = Max(1.0f - off * off, 0.0f);
        return 0.5f - 0.5f * inside + 0.5f * rim * rim;
    });
}

// Sharp crests; each octave is rough only where the one before is high.
Float32 RidgedMultifractal(const NoiseSampler& s)
{
    const Float32 mean = s.Of({0.612f, 0.59f});
    Float32 share = 1.0f;
    const Float32 sum = s.Fold(s.Point(), 0.0f, [&share, mean](Float32 value, Float32 g, Float32 weight, Float32 keep) {
        Float32 ridge = 1.0f - std::abs(g);
        ridge = mean + keep * (ridge * ridge - mean);
        ridge *= share;
        share = Clamp01(ridge * 1.4f);
        return value + weight * ridge;
    });
    return SmoothStep(0.0f, 1.0f, sum / s.WeightSum());
}

// Scales: each dark at its middle and of a brightness of its own at its edge.
Float32 Sema(const NoiseSampler& s)
{
    return s.SumCells(s.Point(), {0.383f, 0.3f}, [](const NearestPoints& n) {
        return n.f1 * n.f1 * (0.3f + 1.4f * UnitFloat(MixBits(static_cast<UInt32>(n.id1)))) + 0.1f;
    });
}

// Grains where two fields are high together.
Float32 Stupl(const NoiseSampler& s)
{
    return s.Settled({0.243f, 0.262f}, [](const NoiseSampler& left) {
        const NoisePoint& p = left.Point();
        const Float32 a = left.Fractal(p);
        const Float32 b = left.Fractal({p.y * 1.6f + 19.1f, p.x * 1.6f - 7.7f, p.z * 1.6f, p.time});
        return SmoothStep(-0.02f, 0.1f, a * b);
    });
}

Float32 Turbulence(const NoiseSampler& s)
{
    return s.Turbulence(s.Point());
}

// Noise at a place that noise displaces ("variable lattice").
Float32 Vl(const NoiseSampler& s)
{
    const Float32 sum = s.Sum(s.Bent(s.Point(), 1.4f, 1.2f), {}, [](Float32 g) { return g; });
    return s.Signed(1.2f * sum, 1.2f / s.WeightSum());
}

Float32 Voronoi1(const NoiseSampler& s)
{
    return s.SumCells(s.Point(), {0.507f, 0.413f}, [](const NearestPoints& n) { return n.f1; });
}

Float32 Voronoi2(const NoiseSampler& s)
{
    return s.SumCells(s.Point(), {0.291f, 0.399f}, [](const NearestPoints& n) { return (n.f2 - n.f1) * 1.4f; });
}

Float32 Voronoi3(const NoiseSampler& s)
{
    return s.SumCells(s.Point(), {0.528f, 0.51f}, [](const NearestPoints& n) { return n.f2 * n.f2; });
}

// Waves along x that turbulence sets out of step.
Float32 WavyTurbulence(const NoiseSampler& s)
{
    const NoisePoint& p = s.Point();
    return 0.5f + 0.5f * s.KeepAt(1.25f) * Wave(0.22f * p.x + 0.13f * p.y + 1.1f * s.Turbulence(p));
}

// Stripes where one field is above another, as of a zebra.
Float32 Zada(const NoiseSampler& s)
{
    const NoisePoint& p = s.Point();
    const Float32 a = s.Fractal(p);
    const Float32 b = s.Fractal({p.y * 0.8f + 31.7f, p.x * 0.8f - 12.9f, p.z * 0.8f + 5.3f, p.time});
    return SmoothStep(-0.2f, 0.2f, std::abs(a) - std::abs(b));
}

constexpr NoiseClass kClasses[] = {
    {"blisteredturbulence", false, false, &BlisteredTurbulence},
    {"box", false, true, &Box},
    {"buya", false, false, &Buya},
    {"cell", false, false, &Cell},
    {"cellvoronoi", false, true, &CellVoronoi},
    {"cranal", false, false, &Cranal, 1.75f},
    {"dents", false, false, &Dents},
    {"displacedturbulence", false, false, &DisplacedTurbulence},
    {"displacedvoronoi", false, false, &DisplacedVoronoi},
    {"electric", false, false, &Electric, 1.5f},
    {"fbm", true, false, &Fbm},
    {"gaseous", false, false, &Gaseous},
    {"hama", false, false, &Hama},
    {"luka", false, false, &Luka},
    {"mod", false, false, &Mod, 2.5f},
    {"naki", false, false, &Naki},
    {"nutous", false, false, &Nutous},
    {"ober", false, false, &Ober},
    {"perlin", true, false, &Perlin},
    {"pezo", false, false, &Pezo},
    {"poxo", false, false, &Poxo, 1.5f},
    {"ridgedmultifractal", false, false, &RidgedMultifractal},
    {"sema", false, true, &Sema},
    {"stupl", false, false, &Stupl},
    {"turbulence", false, false, &Turbulence},
    {"vl", true, false, &Vl},
    {"voronoi1", false, false, &Voronoi1},
    {"voronoi2", false, false, &Voronoi2},
    {"voronoi3", false, false, &Voronoi3},
    {"wavyturbulence", false, false, &WavyTurbulence},
    {"zada", false, false, &Zada},
};

// --- Objects ---

Result Init(RenderNoiseInterface* self, UInt32 seed, Int32, const DictionaryObject* settings)
{
    const auto setting = [settings](Int key, Float otherwise) {
        const Data* const data = Bound<DataDictionaryInterface>().GetData(settings, key);
        const Float* const value = data ? data->As<Float>() : nullptr;
        return value ? *value : otherwise;
    };
    static_cast<NoiseObjectOf*>(self)->Setup(seed, setting(noise_setting::kLacunarity, 2.0),
        setting(noise_setting::kGain, 0.5), setting(noise_setting::kExponent, 1.0));
    return {};
}

Float32 Finish(const NoiseObjectOf& noise, Float32 value, Bool absolute)
{
    const NoiseClass& noiseClass = *noise.noiseClass;
    const bool isNegative = noiseClass.isSigned && value < 0.0f;
    Float32 size = Clamp01(isNegative ? -value : value);
    if (noise.exponent != 1.0)
        size = UnitPower(size, noise.exponent);
    return isNegative && !absolute ? -size : size;
}

Float32 Sample(const NoiseObjectOf& noise, bool isFlat, const NoisePoint& point, Float32 octaves, Bool absolute,
    Float32 filterWidth)
{
    const NoiseClass& noiseClass = *noise.noiseClass;
    const NoiseSampler sampler(noise, isFlat, point, octaves, absolute, filterWidth * noiseClass.fineness);
    return Finish(noise, noiseClass.value(sampler), absolute);
}

Float32 Noise(const RenderNoiseInterface* self, Float32 x, Float32 y, Float32 z, Float32 time, Float32 octaves,
    Bool absolute, Float32 filterWidth)
{
    return Sample(*static_cast<const NoiseObjectOf*>(self), false, {x, y, z, time}, octaves, absolute, filterWidth);
}

Float32 Noise2d(const RenderNoiseInterface* self, Float32 x, Float32 y, Float32 time, Float32 octaves, Bool absolute,
    Float32 filterWidth)
{
    return Sample(*static_cast<const NoiseObjectOf*>(self), true, {x, y, 0.0f, time}, octaves, absolute, filterWidth);
}

template <class T>
T ArgumentOf(const BlockArgument& argument, Int i)
{
    return static_cast<const T*>(argument.values)[argument.isShared ? 0 : i];
}

template <class T>
bool IsSame(const BlockArgument& argument, Int count)
{
    const T first = ArgumentOf<T>(argument, 0);
    for (Int i = 1; i < count && !argument.isShared; ++i)
    {
        if (!(ArgumentOf<T>(argument, i) == first))
            return false;
    }
    return true;
}

template <bool kIsFlat>
void NoiseBlock(const void* object, Int count, const BlockArgument* arguments, void* results)
{
    const auto& noise = *static_cast<const NoiseObjectOf*>(static_cast<const RenderNoiseInterface*>(object));
    const BlockArgument* const rest = arguments + (kIsFlat ? 2 : 3);
    const BlockArgument& time = rest[0];
    const BlockArgument& octaves = rest[1];
    const BlockArgument& absolute = rest[2];
    const BlockArgument& filterWidth = rest[3];
    auto* const values = static_cast<Float32*>(results);
    const auto pointAt = [&](Int i) {
        const auto number = [&](const BlockArgument& argument) { return ArgumentOf<Float32>(argument, i); };
        return NoisePoint{
            number(arguments[0]), number(arguments[1]), kIsFlat ? 0.0f : number(arguments[2]), number(time)};
    };
    if (noise.noiseClass->value == &Fbm && count > 0 && count <= OctaveSums::kMost && IsSame<Float32>(time, count) &&
        IsSame<Float32>(octaves, count) && IsSame<Bool>(absolute, count))
    {
        OctaveSums sums;
        sums.places = count;
        for (Int i = 0; i < (count + 7) / 8 * 8; ++i)
        {
            const Int from = Min(i, count - 1);
            const NoisePoint point = pointAt(from);
            sums.x[i] = point.x;
            sums.y[i] = point.y;
            sums.z[i] = point.z;
            sums.filterWidth[i] = ArgumentOf<Float32>(filterWidth, from) * noise.noiseClass->fineness;
        }
        const Bool isAbsolute = ArgumentOf<Bool>(absolute, 0);
        const NoiseSampler sampler(
            noise, kIsFlat, pointAt(0), ArgumentOf<Float32>(octaves, 0), isAbsolute, sums.filterWidth[0]);
        if (sampler.FbmAt(sums))
        {
            for (Int i = 0; i < count; ++i)
                values[i] = Finish(noise, sums.sum[i], isAbsolute);
            return;
        }
    }
    for (Int i = 0; i < count; ++i)
        values[i] = Sample(noise, kIsFlat, pointAt(i), ArgumentOf<Float32>(octaves, i), ArgumentOf<Bool>(absolute, i),
            ArgumentOf<Float32>(filterWidth, i));
}

struct HostNoiseClass : RenderNoiseClassObject
{
    const NoiseClass* noiseClass;

    explicit HostNoiseClass(const NoiseClass& type) : noiseClass(&type)
    {
        create = [](const RenderNoiseClassObject* self, RenderNoiseInterface** noise) -> Result {
            Ref<RenderNoiseInterface> made =
                MakeNoise(*static_cast<const HostNoiseClass*>(self)->noiseClass, BestNoiseKernels());
            if (!made)
                return OutOfMemory();
            *noise = made.Detach();
            return {};
        };
    }
};

} // namespace

std::span<const NoiseClass> NoiseClasses()
{
    return kClasses;
}

std::array<std::pair<const void*, BlockFunction>, 2> NoiseBlockForms()
{
    return {{{reinterpret_cast<const void*>(&Noise), &NoiseBlock<false>},
        {reinterpret_cast<const void*>(&Noise2d), &NoiseBlock<true>}}};
}

Ref<RenderNoiseInterface> MakeNoise(const NoiseClass& noiseClass, const NoiseKernels& kernels)
{
    NoiseObjectOf* const noise = MakeShared<NoiseObjectOf>().Detach();
    if (!noise)
        return {};
    noise->init = &Init;
    noise->noise = &Noise;
    noise->noise2d = &Noise2d;
    noise->noiseClass = &noiseClass;
    noise->kernels = &kernels;
    noise->Setup(0, 2.0, 0.5, 1.0);
    return Ref<RenderNoiseInterface>::Adopt(noise);
}

void PublishNoiseClasses()
{
    // Never ends, so that the registry may end after it.
    static const auto& classes = *new std::deque<HostNoiseClass>(std::begin(kClasses), std::end(kClasses));
    for (const HostNoiseClass& entry : classes)
    {
        const std::string name = "net.velto.render.rendernoiseclass." + std::string(entry.noiseClass->name);
        if (FindEntry(registry::kRenderNoiseClasses.View(), name))
            continue;
        Data value;
        Result done = value.Set(RenderNoiseClass::Share(&entry));
        if (done.IsOk())
            done = Bound<RegistryInterface>().InsertEntry(registry::kRenderNoiseClasses, Id::OverStatic(name), value);
        if (done.IsError())
            throw std::runtime_error(std::string(done.Message()));
    }
}

} // namespace velto::host
