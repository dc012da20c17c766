// Makes a colour of three numbers.
#include "velto/node.h"

namespace velto::pattern
{

static Color ComposeColor(In<"red", Float> red, In<"green", Float> green, In<"blue", Float> blue)
{
    return {red, green, blue};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.composecolor", ComposeColor);

} // namespace velto::pattern
