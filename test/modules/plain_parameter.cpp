// A node with a parameter that is no port: does not compile.
#include "velto/node.h"

namespace velto::test
{

static Float Scale(In<"x", Float> x, Float factor)
{
    return x * factor;
}

VELTO_CORE_NODE("net.velto.test.scale", Scale);

} // namespace velto::test
