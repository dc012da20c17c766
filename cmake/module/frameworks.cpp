// The host frameworks that this module calls.
#include "velto/module.h"

namespace velto
{

static CoreFramework coreFramework(g_velto);
static CoreNodesFramework coreNodesFramework(g_velto);
static ImageFramework imageFramework(g_velto);
static MathFramework mathFramework(g_velto);
static NodesFramework nodesFramework(g_velto);
static RenderFramework renderFramework(g_velto);

} // namespace velto
