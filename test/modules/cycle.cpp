// Two units that each want to come behind the other.
#include "velto/module.h"

namespace velto::test
{

static TranslationUnitRecord hen("hen", 0, thisModule);
static LabelRecord henLabel(hen, "hen");
static TranslationUnitRecord egg("egg", 0, thisModule);
static LabelRecord eggLabel(egg, "egg");
static DependencyRecord henNeeds{nullptr, 0, &eggLabel, ".egg", nullptr};
static DependencyRecord eggNeeds{nullptr, 0, &henLabel, {}, nullptr};
static const bool linked = (hen.Add(henNeeds), egg.Add(eggNeeds), true);

} // namespace velto::test
