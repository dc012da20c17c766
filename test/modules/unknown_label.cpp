// Depends on a label that no unit has.
#include "velto/module.h"

VELTO_TRANSLATION_UNIT(0);

static velto::DependencyRecord nowhere{nullptr, 0, nullptr, ".nosuchlabel", nullptr};
static const bool added = (thisUnit.Add(nowhere), true);
