// Scales a colour's channels so that the white point becomes white.
#include "velto/mask.h"

namespace velto::pattern
{

static ColorA WhiteBalance(In<"color", ColorA> x, In<"whitePoint", Color> white, Mask mask)
{
    // A channel that the white point lacks cannot be scaled up to white and goes out.
    const auto factor = [](Float c) { return c == 0.0 ? 0.0 : 1.0 / c; };
    return mask.ApplyToColor(*x, {factor(white->r) * x->r, factor(white->g) * x->g, factor(white->b) * x->b, x->a});
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.whitebalance", WhiteBalance);

} // namespace velto::pattern
