// Brightens or darkens a colour by stops, as a camera does, with an offset and a gamma behind it.
#include "velto/mask.h"

#include <cmath>

namespace velto::pattern
{

static ColorA Exposure(
    In<"color", ColorA> x, In<"exposure", Float> stops, In<"offset", Float> offset, In<"gamma", Float> gamma)
{
    const Float gain = std::exp2(*stops);
    ColorA y{gain * x->r + offset, gain * x->g + offset, gain * x->b + offset, x->a + 1.0};
    if (gamma != 1.0 && gamma != 0.0)
    {
        const Float exponent = 1.0 / gamma;
        y.r = std::pow(Max(y.r, 0.0), exponent);
        y.g = std::pow(Max(y.g, 0.0), exponent);
        y.b = std::pow(Max(y.b, 0.0), exponent);
    }
    return y;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.exposure", Masked<Exposure>);

} // namespace velto::pattern
