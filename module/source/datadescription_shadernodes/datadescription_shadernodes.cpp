// Registers the places where the nodes' descriptions lie.
#include "velto/record.h"

VELTO_TRANSLATION_UNIT(0);

static velto::LabelRecord databaseRegister(thisUnit, "databaseregister");
