// The module's record.
#include "velto/module.h"

VELTO_MODULE("net.velto.toolkit");
