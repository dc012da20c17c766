// Holds a number between two others.
#include "velto/node.h"

namespace velto::toolkit
{

static Float Clamp(In<"value", Float> value, In<"min", Float> min, In<"max", Float> max)
{
    return Min(Max(*value, *min), Max(*max, *min));
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.clamp", Clamp);

} // namespace velto::toolkit
