// Makes a vector of three numbers.
#include "velto/node.h"

namespace velto::pattern
{

static Vector ComposeVector3(In<"x", Float> x, In<"y", Float> y, In<"z", Float> z)
{
    return {x, y, z};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.composevector3", ComposeVector3);

} // namespace velto::pattern
