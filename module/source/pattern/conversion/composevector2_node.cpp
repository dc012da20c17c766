// Makes a vector of two numbers.
#include "velto/node.h"

namespace velto::pattern
{

static Vector2d ComposeVector2(In<"x", Float> x, In<"y", Float> y)
{
    return {x, y};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.composevector2", ComposeVector2);

} // namespace velto::pattern
