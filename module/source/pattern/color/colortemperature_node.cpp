// Makes a colour warmer or colder, and shifts it between green and magenta.
#include "velto/mask.h"

namespace velto::pattern
{

static constexpr Float kStep = 0.1; // of a channel, at a temperature or tint of 1

static ColorA ColorTemperature(
    In<"color", ColorA> x, In<"temperature", Float> temperature, In<"tint", Float> tint, Mask mask)
{
    return mask.ApplyToColor(*x, {x->r + temperature * kStep, x->g - tint * kStep, x->b - temperature * kStep, x->a});
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.colortemperature", ColorTemperature);

} // namespace velto::pattern
