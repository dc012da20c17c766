// Registers the places where the nodes' descriptions lie.
#include "databaseregister.h"
#include "velto/module.h"
#include "velto/moduledescriptions.h"

namespace velto
{

VELTO_TRANSLATION_UNIT(0);

static constexpr Id kDatabases[] = {"net.velto.shadernodes.module", "net.velto.patterns.module"};

// Where they lie, for the life of the module.
static BaseArray<Url> places;

static Result RegisterDatabases()
{
    Url url;
    VELTO_TRY(GetApplicationUrl(UrlKind::Resource, url));
    VELTO_TRY(EnterDescriptions("shadernodes.module", url));
    for (const Id& database : kDatabases)
        VELTO_TRY(Bound<DescriptionDefinitionDatabaseInterface>().RegisterDatabaseWithUrl(database, url.Get()));
    return places.Append(url);
}

// The databases stay registered.
static void FreePlaces()
{
    places.Reset();
}

LabelRecord databaseRegister(thisUnit, "databaseregister");
static StepRecord registerDatabases(thisUnit, "registerdatabases", &RegisterDatabases, &FreePlaces);

} // namespace velto
