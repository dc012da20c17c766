// Reads a colour's three channels in one colour model and writes them in another, by way of RGB.
#include "hsv.h"
#include "velto/mask.h"

namespace velto::pattern
{

VELTO_INTERNED_ID(kRgb, "rgb");
VELTO_INTERNED_ID(kHsv, "hsv");
VELTO_INTERNED_ID(kHsl, "hsl");
VELTO_INTERNED_ID(kXyz, "xyz");
VELTO_INTERNED_ID(kCmy, "cmy");

enum class Space : std::uint8_t
{
    Unknown,
    Rgb,
    Hsv,
    Hsl,
    Xyz,
    Cmy,
};

static Space ToSpace(const InternedId& id)
{
    if (id == kRgb)
        return Space::Rgb;
    if (id == kHsv)
        return Space::Hsv;
    if (id == kHsl)
        return Space::Hsl;
    if (id == kXyz)
        return Space::Xyz;
    return id == kCmy ? Space::Cmy : Space::Unknown;
}

// The 32-bit floats nearest the published matrices of linear sRGB under D65.
static constexpr Float kXyzToRgb[3][3] = {
    {3.240478992462158, -1.5371500253677368, -0.49853500723838806},
    {-0.9692559838294983, 1.8759909868240356, 0.04155600070953369},
    {0.05564799904823303, -0.20404300093650818, 1.0573110580444336},
};
static constexpr Float kRgbToXyz[3][3] = {
    {0.4124529957771301, 0.3575800061225891, 0.18042300641536713},
    {0.21267099678516388, 0.7151600122451782, 0.0721689984202385},
    {0.01933399960398674, 0.11919300258159637, 0.9502270221710205},
};

static constexpr Float kSixth = 0.16666666666666666;
static constexpr Float kThird = 0.3333333333333333;
static constexpr Float kTwoThirds = 0.6666666666666666;

static Color Transform(const Float (&matrix)[3][3], const Color& c)
{
    const auto row = [&](const Float(&m)[3]) { return m[0] * c.r + m[1] * c.g + m[2] * c.b; };
    return {row(matrix[0]), row(matrix[1]), row(matrix[2])};
}

static Color Complement(const Color& c)
{
    return {1.0 - c.r, 1.0 - c.g, 1.0 - c.b};
}

static Color HslToRgb(Float h, Float s, Float l)
{
    const Float q = l <= 0.5 ? (1.0 + s) * l : l + s - l * s;
    const Float p = 2.0 * l - q;
    if (s == 0.0 || h == -1.0)
        return {l, l, l};
    const auto channel = [p, q](Float t) {
        if (t > 1.0)
            t -= 1.0;
        else if (t < 0.0)
            t += 1.0;
        if (t < kSixth)
            return (q - p) * t / kSixth + p;
        if (t < 0.5)
            return q;
        if (t < kTwoThirds)
            return (q - p) * (kTwoThirds - t) / kSixth + p;
        return p;
    };
    return {channel(h + kThird), channel(h), channel(h - kThird)};
}

static Color RgbToHsl(const Color& c)
{
    const Float largest = Max(Max(c.r, c.g), c.b);
    const Float smallest = Min(Min(c.r, c.g), c.b);
    const Float l = (smallest + largest) * 0.5;
    if (l <= 0.0)
        return {0.0, 0.0, l};
    const Float range = largest - smallest;
    if (range <= 0.0)
        return {0.0, 0.0, l};
    const Float e = l <= 0.5 ? largest + smallest : 2.0 - largest - smallest;
    const Float s = e != 0.0 ? range / e : range;
    const Float rr = (largest - c.r) / range;
    const Float gg = (largest - c.g) / range;
    const Float bb = (largest - c.b) / range;
    Float k = 0.0; // sixths of a turn
    if (c.r == largest)
        k = c.g != smallest ? 1.0 - gg : bb + 5.0;
    else if (c.g == largest)
        k = c.b == smallest ? rr + 1.0 : 3.0 - bb;
    else
        k = c.r != smallest ? 5.0 - rr : gg + 3.0;
    k *= 60.0;
    if (k < 0.0)
        k += 360.0;
    return {k / 360.0, s, l};
}

static Color ToRgb(const Color& c, Space space)
{
    switch (space)
    {
    case Space::Hsv:
        return HsvToRgb({c.r, c.g, c.b});
    case Space::Hsl:
        return HslToRgb(c.r, c.g, c.b);
    case Space::Xyz:
        return Transform(kXyzToRgb, c);
    case Space::Cmy:
        return Complement(c);
    case Space::Rgb:
    case Space::Unknown:
        break;
    }
    return c;
}

static Color FromRgb(const Color& c, Space space)
{
    switch (space)
    {
    case Space::Hsv:
    {
        const Hsv hsv = RgbToHsv(c);
        return {hsv.h, hsv.s, hsv.v};
    }
    case Space::Hsl:
        return RgbToHsl(c);
    case Space::Xyz:
        return Transform(kRgbToXyz, c);
    case Space::Cmy:
        return Complement(c);
    case Space::Rgb:
    case Space::Unknown:
        break;
    }
    return c;
}

static ColorA ColorSpace(
    In<"color", ColorA> x, In<"incolorspace", InternedId> inSpace, In<"outcolorspace", InternedId> outSpace, Mask mask)
{
    const Space from = ToSpace(*inSpace);
    const Space to = ToSpace(*outSpace);
    Color c{x->r, x->g, x->b};
    if (from != to && from != Space::Unknown && to != Space::Unknown)
        c = FromRgb(ToRgb(c, from), to);
    return mask.ApplyToColor(*x, {c.r, c.g, c.b, x->a});
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.colorspace", ColorSpace);

} // namespace velto::pattern
