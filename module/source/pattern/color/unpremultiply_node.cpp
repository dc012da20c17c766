// Takes the multiplication by alpha out of a colour again; where there is no alpha, the colour stays.
#include "velto/mask.h"

namespace velto::pattern
{

static ColorA Unpremultiply(In<"color", ColorA> x, Mask mask)
{
    if (x->a == 0.0)
        return mask.ApplyToColor(*x, *x);
    const Float factor = 1.0 / x->a;
    return mask.ApplyToColor(*x, {x->r * factor, x->g * factor, x->b * factor, x->a});
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.unpremultiply", Unpremultiply);

} // namespace velto::pattern
