// A module of another generation.
#include "velto/module.h"

constinit velto::ModuleExport g_velto{.stamp = 4711};
