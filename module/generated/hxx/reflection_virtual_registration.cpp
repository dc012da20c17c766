// Virtual interfaces that a host finds by name.
#include "velto/record.h"

VELTO_TRANSLATION_UNIT(::velto::record_flags::kGeneratedUnit);
