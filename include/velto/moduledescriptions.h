// How a module's descriptions become nodes: it says where they lie, then hands each to the processor that it names.
#pragma once

#include "velto/descriptions.h"
#include "velto/porttypes.h"

namespace velto
{

// From the application's resource directory to where the descriptions of the module file `file` lie in it.
inline Result EnterDescriptions(std::string_view file, Url& place)
{
    const auto& urls = Bound<UrlInterface>();
    UrlObject* url = place.Detach();
    Result appended;
    for (const std::string_view name : {std::string_view("modules"), file})
    {
        if (appended.IsOk())
            appended = urls.Append(&url, name.data(), name.size());
    }
    place = Url::Adopt(url);
    return appended;
}

// Whether a description is a node's and names a processor that there is.
inline bool FindProcessor(const DescriptionObject* description, DescriptionProcessor& processor)
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

// Has all nodes of a database made. What the processors hand out goes to `kept`, for the life of the module.
inline Result ProcessDescriptions(const Id& database, BaseArray<ProcessedDescription>& kept)
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

// Destroys what was kept, the last first.
inline void FreeDescriptions(BaseArray<ProcessedDescription>& kept)
{
    for (Int i = kept.Count() - 1; i >= 0; --i)
    {
        if (kept[i].destroy)
            kept[i].destroy(kept[i].value);
    }
    kept.Reset();
}

} // namespace velto
