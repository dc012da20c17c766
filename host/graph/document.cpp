#include "document.h"

#include "documentscope.h"
#include "material.h"

#include "host/registry/reflection.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

namespace
{

void AddOutput(DocumentScope& scope, const std::string& name, CorePort link)
{
    CoreOutput output;
    output.name = name;
    output.source.link = std::move(link);
    scope.document.graph.outputs.push_back(std::move(output));
}

void ReadOutputs(DocumentScope& scope, const Json* outputs)
{
    if (!outputs)
        return scope.diagnostics.Fault("outputs", "is missing");
    if (!outputs->IsObject())
        return scope.diagnostics.Fault("outputs", fmt::format("expected an object, got {}", outputs->Description()));
    if (outputs->GetMembers().empty())
        scope.diagnostics.Fault("outputs", "is empty; a graph has at least one output");
    if (outputs->GetMembers().size() > scope.limits.elements)
        return scope.diagnostics.Fault("outputs",
            fmt::format("{} outputs; at most {} are taken", outputs->GetMembers().size(), scope.limits.elements));
    for (const auto& [name, json] : outputs->GetMembers())
    {
        if (scope.diagnostics.IsFull())
            return;
        const std::string place = Join("outputs", name);
        const NodePort* port = nullptr;
        CorePort link;
        std::size_t node = 0;
        if (name.empty())
            scope.diagnostics.Fault("outputs", "an output has a name");
        if (!json.IsString())
            scope.diagnostics.Fault(place, fmt::format("expected \"NODE.PORT\", got {}", json.Description()));
        else if (FindOutput(scope, json.AsString(), place, port, link, node))
        {
            if (port->type.Get() == LayerType())
                scope.diagnostics.Fault(place, "a BSDF layer is no output; it goes into material.bsdflayers");
            else
                AddOutput(scope, name, std::move(link));
        }
    }
}

// A root with the context and the outputs, for people who look at the graph.
void MakeRoot(DocumentScope& scope)
{
    scope.document.root = MakeNodeSystem();
    if (!scope.document.root)
        throw std::bad_alloc();
    const MutableRoot root(scope.document.root);
    MutablePort inputs;
    MutablePort outputs;
    MutablePort port;
    Result made = root.GetInputs(inputs);
    if (made.IsOk())
        made = inputs.AddPort("context", port);
    if (made.IsOk())
        made = root.GetOutputs(outputs);
    for (const CoreOutput& output : scope.document.graph.outputs)
    {
        Id id;
        if (made.IsOk())
            made = Id::Create(output.name, id);
        if (made.IsOk())
            made = outputs.AddPort(id, port);
    }
    if (made.IsOk())
        made = CallRootFunction("net.velto.shadernode.SetupContext", root);
    if (made.IsError())
        scope.diagnostics.Fault("", made.Message());
}

void ReadRoot(DocumentScope& scope, const Json& root)
{
    Diagnostics& diagnostics = scope.diagnostics;
    if (!root.IsObject())
        return diagnostics.Fault("", fmt::format("expected an object, got {}", root.Description()));
    CheckKeys(scope, root, "", {"version", "nodes", "outputs", "material"});
    const Json* const version = root.Find("version");
    if (!version)
        diagnostics.Fault("version", "is missing; this host reads version 1");
    else if (!version->IsInteger() || version->AsInteger() != 1)
        diagnostics.Fault("version", fmt::format("expected 1, got {}", version->Description()));
    if (!ReadNodes(scope, root.Find("nodes")))
        return;
    CheckSettings(scope);
    MakeCoreNodes(scope);
    for (std::size_t i = 0; i < scope.nodes.size() && !diagnostics.IsFull(); ++i)
    {
        if (scope.nodes[i].type)
            ReadInputs(scope, scope.nodes[i]);
    }
    const Json* const material = root.Find("material");
    if (root.Find("outputs") || !material)
        ReadOutputs(scope, root.Find("outputs"));
    if (material)
        ReadMaterial(scope, *material);
    ReportCycle(scope);
    if (!diagnostics.HasFaults() && !material)
        MakeRoot(scope);
}

} // namespace

bool ParseSetting(std::string_view text, Setting& setting)
{
    const auto equals = text.find('=');
    const auto dot = text.find('.');
    if (equals == text.npos || dot == text.npos || dot > equals || dot == 0 || dot + 1 == equals)
        return false;
    setting.node = text.substr(0, dot);
    setting.port = text.substr(dot + 1, equals - dot - 1);
    const std::string_view value = text.substr(equals + 1);
    Diagnostics ignored;
    if (!ReadJson(value, setting.value, ignored) || ignored.HasFaults())
        setting.value = Json(value);
    return true;
}

bool ReadDocument(const Json& json, NodeCatalog& catalog, const std::vector<Setting>& settings,
    Diagnostics& diagnostics, GraphDocument& document, const GraphLimits& limits)
{
    DocumentScope scope{catalog, settings, diagnostics, document, limits, {}, {}, {}, 0};
    ReadRoot(scope, json);
    return !diagnostics.HasFaults();
}

} // namespace velto::host
