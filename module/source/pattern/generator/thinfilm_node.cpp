// The interference colour of a thin film under the ray of a sample: soap bubbles, oil, tempered metal.
#include "../limits.h"
#include "colormatching1nm.h"
#include "rec709.h"
#include "velto/node.h"

#include <cmath>
#include <numbers>

namespace velto::pattern
{

static constexpr Float32 kShortest = 400.0f; // nm
static constexpr Float32 kLongest = 700.0f;
static constexpr Float32 kSpan = 300.0f;
static constexpr Float32 kLuminousIntegral = 106.856895f; // of y over the whole table
static constexpr Float32 kPi = std::numbers::pi_v<Float32>;
static constexpr Float32 kTwoPi = 2.0f * kPi;
static constexpr Int kMostBands = 100'000;

// The means of the colour matching curves over equal bands of the visible spectrum.
struct ThinFilmInit
{
    BaseArray<Vector> bands;
    Int samples = 0;
    Float32 step = 0.0f;
    Float32 scale = 0.0f;

    Result CopyFrom(const ThinFilmInit& other)
    {
        VELTO_TRY(bands.CopyFrom(other.bands));
        samples = other.samples;
        step = other.step;
        scale = other.scale;
        return {};
    }
    friend bool operator==(const ThinFilmInit&, const ThinFilmInit&) = default;
};

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::ThinFilmInit, "net.velto.render.datatype.thinfilminit");

namespace velto::pattern
{

static Float32 Lerp(Float32 t, Float32 from, Float32 to)
{
    return (1.0f - t) * from + t * to;
}

// The mean of a curve, linear between its rows, over [begin, end], which lies inside the table.
static Float32 MeanOfCurve(int curve, Float32 begin, Float32 end)
{
    const auto wavelength = [](int row) { return static_cast<Float32>(kColorMatching1nmFirst + row); };
    Float32 sum = 0.0f;
    const int first = static_cast<int>(begin) - kColorMatching1nmFirst;
    for (int row = first; row + 1 < kColorMatching1nmRows && end >= wavelength(row); ++row)
    {
        const Float32 a = wavelength(row);
        const Float32 b = wavelength(row + 1);
        const auto value = [&](Float32 at) {
            return Lerp((at - a) / (b - a), kColorMatching1nm[row][curve], kColorMatching1nm[row + 1][curve]);
        };
        const Float32 s = Max(begin, a);
        const Float32 e = Min(end, b);
        sum += (value(s) + value(e)) * 0.5f * (e - s);
    }
    return sum / (end - begin);
}

static Result ThinFilmPre(In<"spectralsamples", Int> spectralSamples, Once<"thinfilminit", ThinFilmInit> table)
{
    // No table that was made holds less than one band.
    if (*spectralSamples == table->samples && *spectralSamples >= 1)
        return {};
    VELTO_TRY(CheckLimit("spectral samples", *spectralSamples, kMostBands));
    const Int count = Max<Int>(*spectralSamples, 1);
    table->bands.Reset();
    table->samples = count;
    table->step = 1.0f / static_cast<Float32>(count);
    table->scale = table->step * kSpan / kLuminousIntegral;
    VELTO_TRY(table->bands.Resize(count));
    for (Int i = 0; i < count; ++i)
    {
        const Float32 begin = Lerp(static_cast<Float32>(i) / static_cast<Float32>(count), kShortest, kLongest);
        const Float32 end = Lerp(static_cast<Float32>(i + 1) / static_cast<Float32>(count), kShortest, kLongest);
        table->bands[i] = {MeanOfCurve(0, begin, end), MeanOfCurve(1, begin, end), MeanOfCurve(2, begin, end)};
    }
    return {};
}

// The reflectance of the film, a wavelength at a time; all in 32 bits.
class Film
{
public:
    Film(Float32 sine, Float32 ior, Float32 thickness)
    {
        const Float32 ci = std::sqrt(Max(1.0f - sine * sine, 0.0f));
        const Float32 refracted = sine / ior;
        const Float32 ct = std::sqrt(Max(1.0f - refracted * refracted, 0.0f));
        const Float32 a = 1.0f / Max(ct + ior * ci, 1e-7f);
        const Float32 b = 1.0f / Max(ci + ior * ct, 1e-7f);
        p1_ = (ior * ci - ct) * a;
        p2_ = (ct - ior * ci) * a;
        s1_ = (ci - ior * ct) * b;
        s2_ = (ior * ct - ci) * b;
        path_ = thickness * ior * ct;
    }

    Float32 Reflectance(Float32 wavelength) const
    {
        const Float32 c = std::cos(2.0f * (kTwoPi / wavelength * path_));
        const Float32 p = Amplitude(p1_, p2_, c);
        const Float32 s = Amplitude(s1_, s2_, c);
        return (p * p + s * s) * 0.5f;
    }

private:
    static Float32 Amplitude(Float32 first, Float32 second, Float32 c)
    {
        const Float32 d = 1.0f + first * second * c;
        const Float32 square = d * d;
        return d * (second * c + first) * (square == 0.0f ? 0.0f : 1.0f / square);
    }

    Float32 p1_; // Fresnel amplitudes of the two faces, parallel and perpendicular
    Float32 p2_;
    Float32 s1_;
    Float32 s2_;
    Float32 path_;
};

static ColorA ThinFilm(In<"context", ShadingContext> context, In<"ior", Float> refractiveIndex,
    In<"thickness", Float> thickness, In<"variation", Float> variation, In<"thinfilminit", ThinFilmInit> table)
{
    if (!context->uvwValid)
        return kTransparentBlack;
    const Vector& ray = context->rayDirection;
    const bool isBack = Dot(context->geometricNormal, ray) > 0.0;
    const Vector normal = isBack ? -context->shadingNormal : context->shadingNormal;
    const Float32 c = static_cast<Float32>(-Dot(normal, ray));
    const Float32 angle = c >= 1.0f ? 0.0f : c <= -1.0f ? kPi : std::acos(c);
    const Float32 ior = static_cast<Float32>(*refractiveIndex);
    const Float32 sine = std::sin(angle);
    const Float32 inverse = 1.0f / ior;
    if (sine >= 1.0f || inverse * inverse * (1.0f - c * c) > 1.0f)
        return {1.0, 1.0, 1.0, 1.0}; // a mirror

    const Film film(sine, ior, Max(static_cast<Float32>(*thickness) + static_cast<Float32>(*variation), 1.0f));
    Vector xyz;
    for (Int i = 0; i < table->bands.Count(); ++i)
    {
        const Float32 wavelength = static_cast<Float32>(i) * table->step * kSpan + kShortest;
        xyz = xyz + table->bands[i] * static_cast<Float>(film.Reflectance(wavelength));
    }
    xyz = xyz * static_cast<Float>(table->scale);
    const Color color = Rec709FromXyz(xyz.x, xyz.y, xyz.z);
    return {color.r, color.g, color.b, 1.0};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.thinfilmpre", ThinFilmPre);
VELTO_CORE_NODE("net.velto.pattern.corenode.generator.thinfilm", ThinFilm);

} // namespace velto::pattern
