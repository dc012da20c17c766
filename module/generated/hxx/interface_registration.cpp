// Virtual interfaces whose objects the module calls.
#include "velto/record.h"

VELTO_TRANSLATION_UNIT(::velto::record_flags::kGeneratedUnit);
