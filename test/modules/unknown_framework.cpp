// Requires a framework that no host has.
#include "velto/module.h"

namespace velto::test
{

static constexpr Id kNeeded[] = {"net.velto.core.framework", "net.velto.test.framework"};
static ModuleRecord needy;
static const bool constructed = (needy.ConstructModule("net.velto.test.needy", 0, kNeeded, 2, g_velto), true);

} // namespace velto::test
