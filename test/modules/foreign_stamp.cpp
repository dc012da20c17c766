// A module of another generation.
#include "velto/module.h"

constinit velto::ModuleExport g_velto;

static const bool stamped = (g_velto.stamp = 4711, true);
