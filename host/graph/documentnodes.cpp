#include "documentlibrary.h"
#include "documentscope.h"
#include "values.h"

#include "host/registry/dictionary.h"
#include "host/system/guard.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

namespace
{

Json WithoutComment(const Json& json)
{
    if (!json.IsObject())
        return json;
    Json kept = Json::Object();
    for (const auto& [name, member] : json.GetMembers())
    {
        if (!IsComment(name, member))
            kept.Add(name, member);
    }
    return kept;
}

// What arguments make of the nodes inside a described one; false and a fault when nothing can be made of them.
bool BuildInner(DocumentScope& scope, const Json& json, const NodeArguments& given, DocumentNode& node)
{
    std::vector<std::string> known = node.type->arguments;
    if (node.type->isDocument)
    {
        CheckKeys(scope, json, given.place, {});
        return true;
    }
    for (const InnerNode& inner : node.type->inner)
    {
        if (!node.type->isDescribed)
            continue; // it is the core node itself
        node.built.push_back(
            inner.forwarded ? nullptr : scope.catalog.FindCore(inner.type, given, given.place, scope.diagnostics));
        if (const NodeType* const core = node.built.back())
            known.insert(known.end(), core->arguments.begin(), core->arguments.end());
        else if (!inner.forwarded)
            return false;
    }
    CheckKeys(scope, json, given.place, known);
    return true;
}

// Whether something is given for a port of the node.
bool IsGiven(const DocumentScope& scope, const Json& json, const std::string& name, std::string_view port)
{
    const Json* const inputs = json.Find("inputs");
    return (inputs && inputs->IsObject() && inputs->Find(port)) ||
           std::any_of(scope.options.settings.begin(), scope.options.settings.end(),
               [&](const Setting& setting) { return setting.node == name && setting.port == port; });
}

// The type of a node that is a document. Null and faults when it cannot be read, or makes the whole too large.
const NodeType* FindDocument(
    DocumentScope& scope, const Json& json, const std::string& name, const std::string& file, const std::string& place)
{
    const bool takesContext = IsGiven(scope, json, name, "context") || IsGiven(scope, json, name, "contextLocal");
    const NodeType* const type = scope.library.Find(file, takesContext, place, scope.diagnostics);
    if (!type)
        return nullptr;
    const GraphLimits& limits = scope.options.limits;
    scope.nodeCount += type->documentNodes;
    scope.links += type->documentLinks;
    if (scope.nodeCount <= limits.nodes && scope.links <= limits.links)
        return type;
    scope.diagnostics.Fault(
        place, fmt::format("with what is in it, more than {} nodes or {} links in all", limits.nodes, limits.links));
    return nullptr;
}

void ReadType(
    DocumentScope& scope, const std::string& name, const Json& json, const std::string& place, DocumentNode& node)
{
    NodeArguments given{{}, {}, place + ".arguments"};
    const Json* const arguments = json.Find("arguments");
    if (arguments && ReadArguments(WithoutComment(*arguments), given.place, scope.diagnostics, given.values))
        given.key = arguments->Write();
    else
        given.values = {};
    const Json* const type = json.Find("type");
    if (!type)
        return scope.diagnostics.Fault(place + ".type", "is missing");
    if (!type->IsString())
        return scope.diagnostics.Fault(place + ".type", fmt::format("expected a string, got {}", type->Description()));
    node.typeName = type->AsString();
    const std::string file =
        scope.catalog.Knows(type->AsString()) ? std::string() : scope.library.FindFile(type->AsString());
    if (!file.empty())
        node.type = FindDocument(scope, json, name, file, place + ".type");
    else
        node.type = scope.catalog.Find(type->AsString(), given, place + ".type", scope.diagnostics);
    if (node.type && arguments && (given.key.empty() || !BuildInner(scope, *arguments, given, node)))
        node.type = nullptr; // its arguments are the fault, and were reported
    node.arguments = std::move(given.values);
}

void ReadNode(DocumentScope& scope, const std::string& name, const Json& json)
{
    const std::string place = Join("nodes", name);
    if (!IsName(name))
        return scope.diagnostics.Fault(
            place, "a name is letters, digits and _, not starting with a digit, and at most 256 long");
    if (scope.indexOf.contains(name))
        return; // said when it was parsed
    DocumentNode node;
    node.name = name;
    if (!json.IsObject())
        scope.diagnostics.Fault(place, fmt::format("expected an object, got {}", json.Description()));
    else
    {
        CheckKeys(scope, json, place, {"type", "inputs", "arguments", "ui"});
        CheckInterface(scope, json, place);
        ReadType(scope, name, json, place, node);
        node.inputs = json.Find("inputs");
        if (node.inputs && !node.inputs->IsObject())
        {
            scope.diagnostics.Fault(
                place + ".inputs", fmt::format("expected an object, got {}", node.inputs->Description()));
            node.inputs = nullptr;
        }
    }
    scope.indexOf.emplace(name, scope.nodes.size());
    scope.names.push_back(name);
    scope.nodes.push_back(std::move(node));
}

// What a description gives its inner nodes.
void LinkInner(DocumentScope& scope, const DocumentNode& node, std::size_t index)
{
    CoreNode& core = scope.document.graph.nodes[node.firstCore + index];
    for (const InnerNode::Given& given : node.type->inner[index].given)
    {
        CoreInput input;
        if (given.link)
            input.link = CorePort{node.firstCore + given.from.node, given.from.port};
        else
            ThrowIfError(input.value.CopyFrom(given.value));
        input.connected = given.connected;
        core.inputs[given.port] = std::move(input);
    }
}

} // namespace

bool ReadNodes(DocumentScope& scope, const Json* nodes)
{
    if (!nodes)
    {
        scope.diagnostics.Fault("nodes", "is missing");
        return false;
    }
    if (!nodes->IsObject())
    {
        scope.diagnostics.Fault("nodes", fmt::format("expected an object, got {}", nodes->Description()));
        return false;
    }
    if (nodes->GetMembers().size() > scope.options.limits.nodes)
    {
        scope.diagnostics.Fault("nodes",
            fmt::format("{} nodes; at most {} are taken", nodes->GetMembers().size(), scope.options.limits.nodes));
        return false;
    }
    scope.nodeCount = nodes->GetMembers().size();
    scope.nodes.reserve(nodes->GetMembers().size());
    for (const auto& [name, json] : nodes->GetMembers())
    {
        if (scope.diagnostics.IsFull())
            return false;
        if (IsComment(name, json))
            continue;
        ReadNode(scope, name, json);
    }
    return true;
}

void MakeCoreNodes(DocumentScope& scope)
{
    for (DocumentNode& node : scope.nodes)
    {
        node.firstCore = scope.document.graph.nodes.size();
        scope.document.nodeNames.push_back(node.name);
        scope.document.nodeTypes.push_back(node.typeName);
        if (!node.type)
            continue;
        for (const InnerNode& inner : node.type->inner)
        {
            CoreNode core;
            core.name = node.type->isDocument ? fmt::format("{}/{}", node.name, inner.name) : node.name;
            core.type = inner.type;
            core.forwarded = inner.forwarded;
            core.arguments = node.arguments ? node.arguments : inner.arguments;
            scope.document.graph.nodes.push_back(std::move(core));
        }
        for (std::size_t i = 0; i < node.type->inner.size(); ++i)
            LinkInner(scope, node, i);
    }
}

} // namespace velto::host
