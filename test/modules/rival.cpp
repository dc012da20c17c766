// A node of its own, whose description takes the id of another module's.
#include "velto/node.h"

namespace velto::test
{

static Float Half(In<"x", Float> x)
{
    return x * 0.5;
}

VELTO_CORE_NODE("net.velto.test.half", Half);

} // namespace velto::test
