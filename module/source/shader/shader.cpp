// Hands the nodes' descriptions to their processors.
#include "../pattern/2d/bakedimagedata.h"
#include "velto/descriptions.h"
#include "velto/porttypes.h"
#include "velto/record.h"

namespace velto
{

VELTO_TRANSLATION_UNIT(0);
VELTO_DEPENDS_ON_LABEL("databaseregister");

VELTO_PUBLISH_DATA_TYPE(SearchPathsType);
VELTO_PUBLISH_DATA_TYPE(pattern::twod::BakedImageData);

static constexpr Id kDatabases[] = {"net.velto.shadernodes.module", "net.velto.patterns.module"};

// What the processors handed out, for the life of the module.
static BaseArray<ProcessedDescription> kept;

// Whether a description is a node's and names a processor that there is.
static bool FindProcessor(const DescriptionObject* description, DescriptionProcessor& processor)
{
    DataDictionary head;
    if (Bound<DescriptionDatabaseInterface>().GetDictionary(description, head.Receive()).IsError())
        return false;
    const Id* const classification = GetData<Id>(head, description::kClassification);
    const Id* const name = GetData<Id>(head, description::kProcessor);
    if (!classification || !(*classification == description::kNode) || !name || name->IsEmpty())
        return false;
    Data found;
    if (Bound<RegistryInterface>().FindEntryValue(registry::kDescriptionProcessors, *name, &found).IsError())
        return false;
    const DescriptionProcessor* const held = found.As<DescriptionProcessor>();
    processor = held ? *held : DescriptionProcessor();
    return static_cast<bool>(processor);
}

static Result ProcessDatabase(const Id& database)
{
    const auto& definitions = Bound<DescriptionDefinitionDatabaseInterface>();
    const auto& descriptions = Bound<DescriptionDatabaseInterface>();
    BaseArray<Id> ids;
    VELTO_TRY(definitions.GetRegisteredDescriptions(database, description::kDataLanguage, &ids));
    for (const Id& id : ids)
    {
        Description description;
        DescriptionProcessor processor;
        if (descriptions.LoadDescription(database, description::kDataLanguage, id, description.Receive()).IsError() ||
            !FindProcessor(description.Get(), processor))
            continue;
        ProcessedDescription result;
        VELTO_TRY(processor->process(processor.Get(), id, description.Get(), &result));
        if (Result appended = kept.Append(result); appended.IsError())
        {
            if (result.destroy)
                result.destroy(result.value);
            return appended;
        }
    }
    return {};
}

static Result ProcessDescriptions()
{
    for (const Id& database : kDatabases)
        VELTO_TRY(ProcessDatabase(database));
    return {};
}

static void FreeDescriptions()
{
    for (Int i = kept.Count() - 1; i >= 0; --i)
    {
        if (kept[i].destroy)
            kept[i].destroy(kept[i].value);
    }
    kept.Reset();
}

static StepRecord processDescriptions(thisUnit, "processdescriptions", &ProcessDescriptions, &FreeDescriptions);

} // namespace velto
