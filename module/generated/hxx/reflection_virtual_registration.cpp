// The unit of virtual interfaces that a host would find by name. This module offers none.
#include "velto/unit.h"

VELTO_TRANSLATION_UNIT(::velto::record_flags::kGeneratedUnit);
