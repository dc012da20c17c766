// Moves a colour from one transfer curve to another, by way of linear light.
#include "velto/mask.h"
#include "velto/srgb.h"

#include <cmath>

namespace velto::pattern
{

VELTO_INTERNED_ID(kSrgb, "srgb");
VELTO_INTERNED_ID(kGamma, "gamma");
VELTO_INTERNED_ID(kRec709, "rec709");
VELTO_INTERNED_ID(kCineon, "cineon");
VELTO_INTERNED_ID(kForward, "forward");

// What the curves `gamma` and `cineon` depend on.
struct CurveParameters
{
    Float gamma;
    Float filmGamma;
    Float blackPoint;
    Float whitePoint;
};

template <class Curve>
static ColorA PerChannel(const ColorA& x, Curve curve)
{
    return {curve(x.r), curve(x.g), curve(x.b), curve(x.a)};
}

static ColorA ToLinear(const ColorA& x, const InternedId& profile, const CurveParameters& p)
{
    if (profile == kSrgb)
        return PerChannel(x, LinearFromSrgb<Float>);
    if (profile == kGamma)
        return PerChannel(x, [&](Float c) { return std::pow(c, p.gamma); });
    if (profile == kRec709)
        return PerChannel(
            x, [](Float c) { return c < 0.081 ? c / 4.5 : std::pow((c + 0.099) / 1.099, 2.2222222222222223); });
    if (profile == kCineon)
        return PerChannel(x, [&](Float c) {
            const Float density = (std::pow(c, p.filmGamma) * 1023.0 - p.whitePoint) / p.blackPoint;
            return (std::pow(10.0, density) - 0.0108) / 0.9892;
        });
    return x;
}

static ColorA FromLinear(const ColorA& x, const InternedId& profile, const CurveParameters& p)
{
    if (profile == kSrgb)
        return PerChannel(x, SrgbFromLinear<Float>);
    if (profile == kGamma)
        return PerChannel(x, [&](Float c) { return p.gamma > 0.0 ? std::pow(c, 1.0 / p.gamma) : 0.0; });
    if (profile == kRec709)
        return PerChannel(x, [](Float c) { return c < 0.018 ? 4.5 * c : 1.099 * std::pow(c, 0.45) - 0.099; });
    if (profile == kCineon)
        return PerChannel(x, [&](Float c) {
            const Float density = std::log10(std::pow(c, 1.0 / p.filmGamma) * 0.9892 + 0.0108);
            return (density * p.blackPoint + p.whitePoint) / 1023.0;
        });
    return x;
}

static ColorA ColorProfile(In<"color", ColorA> x, In<"inProfile", InternedId> inProfile,
    In<"outProfile", InternedId> outProfile, In<"direction", InternedId> direction, In<"gamma", Float> gamma,
    In<"filmgamma", Float> filmGamma, In<"blackpoint", Float> blackPoint, In<"whitepoint", Float> whitePoint)
{
    const bool isForward = *direction == kForward;
    const CurveParameters parameters{*gamma, *filmGamma, *blackPoint, *whitePoint};
    const ColorA linear = ToLinear(*x, isForward ? *inProfile : *outProfile, parameters);
    return FromLinear(linear, isForward ? *outProfile : *inProfile, parameters);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.colorprofile", Masked<ColorProfile>);

} // namespace velto::pattern
