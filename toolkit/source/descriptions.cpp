// Registers the place of the nodes' descriptions, and hands them to their processors.
#include "velto/descriptions.h"
#include "velto/module.h"

namespace velto::toolkit
{

VELTO_TRANSLATION_UNIT(0);

static constexpr Id kDatabase{"net.velto.toolkit.module"};

static BaseArray<ProcessedDescription> kept; // for the life of the module

static Result RegisterDatabase()
{
    const auto& urls = Bound<UrlInterface>();
    Url url;
    VELTO_TRY(GetApplicationUrl(UrlKind::Resource, url));
    UrlObject* place = url.Detach();
    Result appended;
    for (const std::string_view component : {"modules", "toolkit.module"})
    {
        if (appended.IsOk())
            appended = urls.Append(&place, component.data(), component.size());
    }
    url = Url::Adopt(place);
    VELTO_TRY(appended);
    return Bound<DescriptionDefinitionDatabaseInterface>().RegisterDatabaseWithUrl(kDatabase, url.Get());
}

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

static Result ProcessDescriptions()
{
    VELTO_TRY(RegisterDatabase());
    BaseArray<Id> ids;
    VELTO_TRY(Bound<DescriptionDefinitionDatabaseInterface>().GetRegisteredDescriptions(
        kDatabase, description::kDataLanguage, &ids));
    for (const Id& id : ids)
    {
        Description description;
        DescriptionProcessor processor;
        if (Bound<DescriptionDatabaseInterface>()
                .LoadDescription(kDatabase, description::kDataLanguage, id, description.Receive())
                .IsError() ||
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

} // namespace velto::toolkit
