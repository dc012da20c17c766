// Makes nodes of the descriptions that come with a module.
#include "velto/module.h"
#include "velto/moduledescriptions.h"

namespace velto
{

VELTO_TRANSLATION_UNIT(0);

static constexpr Id kDatabase{VELTO_MODULE_FILE};
static BaseArray<ProcessedDescription> kept;

static Result PublishDescriptions()
{
    Url place;
    VELTO_TRY(GetApplicationUrl(UrlKind::Resource, place));
    VELTO_TRY(EnterDescriptions(VELTO_MODULE_FILE, place));
    VELTO_TRY(Bound<DescriptionDefinitionDatabaseInterface>().RegisterDatabaseWithUrl(kDatabase, place.Get()));
    return ProcessDescriptions(kDatabase, kept);
}

static void WithdrawDescriptions()
{
    FreeDescriptions(kept);
}

static StepRecord descriptions(thisUnit, "descriptions", &PublishDescriptions, &WithdrawDescriptions);

} // namespace velto
