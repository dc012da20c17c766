#include "changes.h"

#include "host/corenode/convert.h"
#include "host/graph/values.h"
#include "host/system/guard.h"

#include <fmt/format.h>

namespace velto::host
{

ChangeableInputs::ChangeableInputs(const CoreGraph& graph)
{
    for (const CoreNode& node : graph.nodes)
    {
        for (const auto& [port, input] : node.inputs)
            Add(input);
    }
    for (const CoreOutput& output : graph.outputs)
        Add(output.source);
    for (const CoreParameter& parameter : graph.parameters)
        inputs_[parameter.name] = {parameter.type, parameter.values};
}

void ChangeableInputs::Add(const CoreInput& input)
{
    if (!input.origin.empty() && !input.value.IsEmpty())
        inputs_[input.origin] = {input.value.Type(), input.values};
}

bool ChangeableInputs::HasPrefix(const std::string& prefix) const
{
    const auto at = inputs_.lower_bound(prefix);
    return at != inputs_.end() && at->first.starts_with(prefix);
}

void ChangeableInputs::Read(const std::string& origin, const Json& json, const std::string& place,
    Diagnostics& diagnostics, std::vector<InputChange>& changes) const
{
    if (const auto found = inputs_.find(origin); found != inputs_.end())
    {
        InputChange change{origin, {}};
        const std::string_view known = found->second.values && json.IsString()
                                           ? FindValue(json.AsString(), *found->second.values)
                                           : std::string_view();
        if (ReadValue(known.empty() ? json : Json(known), found->second.type, place, diagnostics, change.value))
            changes.push_back(std::move(change));
        return;
    }
    // A whole array, or an element that is an object.
    if (json.IsArray() && HasPrefix(origin + "["))
    {
        const std::size_t count = json.Elements().size();
        for (std::size_t i = 0; i < count; ++i)
            Read(fmt::format("{}[{}]", origin, i), json.Elements()[i], fmt::format("{}[{}]", place, i), diagnostics,
                changes);
        if (HasPrefix(fmt::format("{}[{}]", origin, count)))
            diagnostics.Fault(place, "a list keeps its length");
    }
    else if (json.IsObject() && HasPrefix(origin + "."))
    {
        for (const auto& [name, member] : json.GetMembers())
            Read(fmt::format("{}.{}", origin, name), member, fmt::format("{}.{}", place, Printable(name)), diagnostics,
                changes);
    }
    else
    {
        std::vector<std::string> names;
        for (const auto& [name, input] : inputs_)
            names.push_back(name);
        diagnostics.Fault(place, "the document gives no value for this input" + Suggestion(origin, names));
    }
}

namespace
{

Result ChangeSource(CoreInput& source, const InputChange& change)
{
    if (source.origin != change.origin || source.value.IsEmpty())
        return {};
    Data value;
    VELTO_TRY(ConvertValue(change.value, source.value.Type(), value));
    source.value = std::move(value);
    return {};
}

Result ChangeSources(CoreGraph& graph, const InputChange& change)
{
    for (CoreNode& node : graph.nodes)
    {
        for (auto& [port, input] : node.inputs)
            VELTO_TRY(ChangeSource(input, change));
    }
    for (CoreOutput& output : graph.outputs)
        VELTO_TRY(ChangeSource(output.source, change));
    return {};
}

} // namespace

Result ChangeInputs(Graph& graph, const std::vector<InputChange>& changes)
{
    return Guarded([&]() -> Result {
        bool isOther = false;
        for (const InputChange& change : changes)
        {
            VELTO_TRY(ChangeSources(graph.document.graph, change));
            if (graph.program->restsOn.contains(change.origin))
                isOther = graph.variable.insert(change.origin).second || isOther;
        }
        if (isOther)
            return Recompile(graph);
        for (const InputChange& change : changes)
        {
            // What no output needs has no constant in the program.
            if (graph.setup->TypeOfConstant(change.origin))
                VELTO_TRY(graph.setup->Set(change.origin, change.value));
        }
        return {};
    });
}

} // namespace velto::host
