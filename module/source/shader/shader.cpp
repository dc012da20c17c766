// Prepares node graphs for the runtime.
#include "velto/record.h"

VELTO_TRANSLATION_UNIT(0);
VELTO_DEPENDS_ON_LABEL("databaseregister");
