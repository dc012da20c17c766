// Scales a colour and leaves its alpha.
#include "velto/node.h"

namespace velto::pattern
{

static void Strength(In<"input", ColorA> x, In<"strength", Float> strength, Out<"output", ColorA> output)
{
    output = ColorA{x->r * strength, x->g * strength, x->b * strength, x->a};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.strength", Strength);

} // namespace velto::pattern
