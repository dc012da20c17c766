// Publishes one id twice, behind another that is sound.
#include "velto/node.h"

namespace velto::test
{

static Float Zero(In<"x", Float>)
{
    return 0.0;
}

VELTO_CORE_NODE("net.velto.test.first", Zero);
VELTO_CORE_NODE("net.velto.test.twice", Zero);
VELTO_CORE_NODE("net.velto.test.twice", Zero);

} // namespace velto::test
