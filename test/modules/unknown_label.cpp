// Depends on a label that no unit has.
#include "velto/module.h"

VELTO_TRANSLATION_UNIT(0);
VELTO_DEPENDS_ON_LABEL("nosuchlabel");
