// Gives a colour an alpha, and exchanges those of its channels for which a number is connected.
#include "velto/node.h"

namespace velto::pattern
{

static ColorA ComposeColorA(In<"rgb", Color> rgb, Connected<"red", Float> red, Connected<"green", Float> green,
    Connected<"blue", Float> blue, In<"alpha", Float> alpha)
{
    return {red.IsConnected() ? *red : rgb->r, green.IsConnected() ? *green : rgb->g,
        blue.IsConnected() ? *blue : rgb->b, alpha};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.composecolora", ComposeColorA);

} // namespace velto::pattern
