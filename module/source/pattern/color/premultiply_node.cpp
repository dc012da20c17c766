// Multiplies a colour by its alpha.
#include "velto/mask.h"

namespace velto::pattern
{

static ColorA Premultiply(In<"color", ColorA> x, Mask mask)
{
    return mask.ApplyToColor(*x, {x->r * x->a, x->g * x->a, x->b * x->a, x->a});
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.premultiply", Premultiply);

} // namespace velto::pattern
