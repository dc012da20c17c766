// The module's record.
#include "velto/module.h"

VELTO_MODULE("net.velto.shadernodes");
VELTO_DEPENDS_ON_LABEL("databaseregister");
