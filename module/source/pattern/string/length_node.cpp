// Counts the characters of a string.
#include "text.h"
#include "velto/node.h"

namespace velto::pattern
{

static Int StringLength(In<"string", String> string)
{
    return Length(*string);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.string.length", StringLength);

} // namespace velto::pattern
