// The colour of a body that glows at a temperature.
#include "colormatching5nm.h"
#include "rec709.h"
#include "velto/node.h"

#include <cmath>
#include <numbers>

namespace velto::pattern
{

static constexpr Float kDegrees = 180.0 / std::numbers::pi; // on every temperature
// Planck's law for wavelengths in nm: 2 pi h c^2 and h c / k.
static constexpr Float kFirstRadiation = 3.7417748794402714e29;
static constexpr Float kSecondRadiation = 14387686.6;

static Color Blackbody(In<"temperature", Float> temperature)
{
    const Float kelvin = temperature * kDegrees;
    Float x = 0.0;
    Float y = 0.0;
    Float z = 0.0;
    for (int i = 0; i < kColorMatching5nmRows; ++i)
    {
        const Float wavelength = 5.0 * i + 380.0;
        const Float fifthPower = wavelength * wavelength * wavelength * wavelength * wavelength;
        const Float radiance =
            kFirstRadiation / fifthPower / (std::exp(kSecondRadiation / (wavelength * kelvin)) - 1.0);
        const Float weight = i == 0 || i == kColorMatching5nmRows - 1 ? 0.5 : 1.0;
        const Float* const row = kColorMatching5nm[i];
        x += row[0] * radiance * weight;
        y += row[1] * radiance * weight;
        z += row[2] * radiance * weight;
    }
    const Float largest = Max(Max(x, y), z);
    // Too cold to glow.
    if (!(largest != 0.0))
        return {};
    return Rec709FromXyz(x / largest, y / largest, z / largest);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.blackbody", Blackbody);

} // namespace velto::pattern
