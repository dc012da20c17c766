// Keys a colour out by its distance from a reference colour.
#include "velto/node.h"

namespace velto::pattern
{

VELTO_INTERNED_ID(kKeyIn, "keyin");

static Float RisingMask(Float squaredDistance, Float min, Float max)
{
    return max == min ? 0.0 : Clamp01((squaredDistance - min) / (max - min));
}

static void Keyer(In<"color", ColorA> color, In<"key", Color> key, In<"toleranceMin", Float> toleranceMin,
    In<"toleranceMax", Float> toleranceMax, In<"mode", InternedId> mode, Out<"result", ColorA> result,
    Out<"mask", Float> mask)
{
    const Float r = color->r - key->r;
    const Float g = color->g - key->g;
    const Float b = color->b - key->b;
    const Float rising = RisingMask(r * r + g * g + b * b, toleranceMin, toleranceMax);
    const Float m = *mode == kKeyIn ? 1.0 - rising : rising;
    result = ColorA{color->r * m, color->g * m, color->b * m, m};
    mask = m;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.keyer", Keyer);

} // namespace velto::pattern
