// What every module of the tests has: its record and the frameworks that it calls.
#include "velto/module.h"

VELTO_MODULE(VELTO_TEST_MODULE);

namespace velto
{

static CoreFramework coreFramework(g_velto);
static CoreNodesFramework coreNodesFramework(g_velto);

} // namespace velto
