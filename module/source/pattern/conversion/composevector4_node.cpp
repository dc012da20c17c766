// Makes a vector of four numbers.
#include "velto/node.h"

namespace velto::pattern
{

static Vector4d ComposeVector4(In<"x", Float> x, In<"y", Float> y, In<"z", Float> z, In<"w", Float> w)
{
    return {x, y, z, w};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.composevector4", ComposeVector4);

} // namespace velto::pattern
