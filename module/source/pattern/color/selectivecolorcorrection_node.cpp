// Shifts hue, saturation and luminance of a colour in eight bands of hue, each fading out with the distance from its
// centre.
#include "hsv.h"
#include "velto/mask.h"

#include <numbers>

namespace velto::pattern
{

static constexpr Float kTurn = 2.0 * std::numbers::pi;
static constexpr Float kPi = std::numbers::pi;

struct Band
{
    Float centre; // hue, in turns
    Float power;  // of the fade
};

static constexpr Band kBands[] = {
    {0.0, 30.0},  // red
    {0.08, 30.0}, // orange
    {0.16, 20.0}, // yellow
    {0.32, 3.0},  // green
    {0.5, 10.0},  // aqua
    {0.66, 6.0},  // blue
    {0.72, 8.0},  // purple
    {0.85, 8.0},  // magenta
};

// One parameter that stands for a port a band.
template <FixedString... Names>
struct PerBand
{
    static_assert(sizeof...(Names) == std::size(kBands));
    static constexpr ParameterKind kKind = ParameterKind::Ports;
    static constexpr std::array<PortSpec, sizeof...(Names)> kPorts{
        PortSpec{.name = Names.View(), .input = true, .type = &GetDataType<Float>}...};
    static PerBand Read(const PortReader& reader, Int index, UInt32) { return {reader, index}; }

    // Read when it is asked for: most bands are left alone.
    Float operator[](std::size_t band) const
    {
        return *static_cast<const Float*>(reader.Value(first + static_cast<Int>(band)));
    }

    PortReader reader;
    Int first;
};

using Hues = PerBand<"hueRed", "hueOrange", "hueYellow", "hueGreen", "hueAqua", "hueBlue", "huePurple", "hueMagenta">;
using Saturations = PerBand<"saturationRed", "saturationOrange", "saturationYellow", "saturationGreen",
    "saturationAqua", "saturationBlue", "saturationPurple", "saturationMagenta">;
using Luminances = PerBand<"luminanceRed", "luminanceOrange", "luminanceYellow", "luminanceGreen", "luminanceAqua",
    "luminanceBlue", "luminancePurple", "luminanceMagenta">;

// How far a colour belongs to a band: a fade in hue, which keeps greys out, smoothed at both ends.
static Float Membership(const Hsv& c, const Band& band)
{
    const Float w = std::pow(std::abs(std::cos((c.h - band.centre) * kPi)), band.power) * Clamp01(std::pow(c.s, 0.05));
    if (w <= 0.0)
        return 0.0;
    if (w >= 1.0)
        return 1.0;
    return w * w * (3.0 - 2.0 * w);
}

static ColorA SelectiveColorCorrection(
    In<"color", ColorA> x, Hues hues, Saturations saturations, Luminances luminances, Mask mask)
{
    Color c{Max(x->r, 0.0), Max(x->g, 0.0), Max(x->b, 0.0)};
    for (std::size_t i = 0; i < std::size(kBands); ++i)
    {
        const Float hue = hues[i];
        const Float saturation = saturations[i];
        const Float luminance = luminances[i];
        if (hue == 0.0 && saturation == 0.0 && luminance == 0.0)
            continue;
        const Hsv hsv = RgbToHsv(c);
        const Color shifted = HsvToRgb({WrapHue(hue / kTurn + hsv.h), Clamp01(saturation + hsv.s), hsv.v});
        const Color n = ShiftValue(shifted, luminance);
        const Float t = Membership(hsv, kBands[i]);
        c = {(n.r - c.r) * t + c.r, (n.g - c.g) * t + c.g, (n.b - c.b) * t + c.b};
    }
    return mask.ApplyToColor(*x, {Max(c.r, 0.0), Max(c.g, 0.0), Max(c.b, 0.0), x->a});
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.colorcorrection", SelectiveColorCorrection);

} // namespace velto::pattern
