// A module with nothing in it.
#include "velto/module.h"

constinit velto::ModuleExport g_velto;
