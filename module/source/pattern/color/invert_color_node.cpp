// Turns a colour into its negative.
#include "velto/mask.h"

namespace velto::pattern
{

static ColorA InvertColor(In<"color", ColorA> x)
{
    return {1.0 - x->r, 1.0 - x->g, 1.0 - x->b, 1.0 - x->a};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.invertcolor", Masked<InvertColor>);

} // namespace velto::pattern
