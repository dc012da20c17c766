// A record that follows itself.
#include "velto/module.h"

VELTO_TRANSLATION_UNIT(0);

static velto::LabelRecord label(thisUnit, "label");
static const bool looped = (label.next = &label, true);
