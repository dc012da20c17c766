// The module's record.
#include "../source/datadescription_shadernodes/databaseregister.h"
#include "velto/module.h"

VELTO_MODULE("net.velto.shadernodes");
VELTO_DEPENDS_ON_LABEL(velto::databaseRegister, "databaseregister");
