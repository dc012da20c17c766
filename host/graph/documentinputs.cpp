#include "documentscope.h"
#include "material.h"
#include "values.h"

#include "host/corenode/convert.h"
#include "host/registry/datatypes.h"
#include "host/registry/dictionary.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>

namespace velto::host
{

namespace
{

bool HasElements(const NodeType& type, const std::string& family)
{
    return type.FindPort(family + "[0]", true) != nullptr;
}

// The elements of a described variadic port that the node's arguments name, each with its `#`.
std::vector<std::string> NamedElements(const DocumentNode& node, const NodePort& port)
{
    std::vector<std::string> elements;
    if (node.built.empty() || port.namedBy.empty())
        return elements;
    const InnerPort& target = port.targets[0];
    for (const NodePort& inner : node.built[target.node]->ports)
    {
        if (inner.name.starts_with(target.port + "#"))
            elements.push_back(inner.name.substr(target.port.size()));
    }
    return elements;
}

// The variadic port of which `name` is an element that the node's arguments name, or null.
std::pair<const NodePort*, std::string> FindElement(const DocumentNode& node, const std::string& name)
{
    const auto hash = std::min(name.find('#'), name.size());
    const NodePort* const port = node.type->FindPort(name.substr(0, hash), true);
    const std::string element = name.substr(hash);
    if (!port || port->namedBy.empty() || node.built.empty())
        return {};
    const InnerPort& target = port->targets[0];
    return {node.built[target.node]->FindPort(target.port + element, true) ? port : nullptr, element};
}

bool IsDictionary(const NodePort& port)
{
    return port.type.Get() == TypeOf<DataDictionary>();
}

bool ReadLink(DocumentScope& scope, DocumentNode& node, const NodePort& port, const Json& json,
    const std::string& place, CoreInput& input)
{
    CheckKeys(scope, json, place, {"from"});
    const Json* const from = json.Find("from");
    if (!from || !from->IsString())
    {
        scope.diagnostics.Fault(place, "expected a value or a link {\"from\": \"NODE.PORT\"}");
        return false;
    }
    if (++scope.links > scope.options.limits.links)
    {
        if (scope.links == scope.options.limits.links + 1)
            scope.diagnostics.Fault(place, fmt::format("more than {} links", scope.options.limits.links));
        return false;
    }
    const NodePort* source = nullptr;
    CorePort link;
    std::size_t sourceNode = 0;
    if (!FindOutput(scope, from->AsString(), place, source, link, sourceNode))
        return false;
    const DataType* const yields = FunctionResultType(port.type.Get());
    const DataType* const wanted = yields ? yields : port.type.Get();
    if (!IsConvertible(source->type.Get(), wanted))
    {
        scope.diagnostics.Fault(
            place, fmt::format("{} is a {}, which does not turn into a {}", Printable(from->AsString()),
                       TypeName(source->type.Get()), TypeName(wanted)));
        return false;
    }
    for (const InnerPort& target : port.targets)
    {
        if (!node.type || !node.type->isDocument || !target.valueType ||
            IsConvertible(source->type.Get(), target.valueType))
            continue;
        scope.diagnostics.Fault(
            place, fmt::format("{} is a {}, which does not turn into a {}, for which the document needs it",
                       Printable(from->AsString()), TypeName(source->type.Get()), TypeName(target.valueType)));
        return false;
    }
    node.links.push_back(sourceNode);
    input.link = std::move(link);
    return true;
}

// Gives an input to all inner ports that it leads to.
void Give(DocumentScope& scope, DocumentNode& node, const NodePort& port, const std::string& element, CoreInput input)
{
    if (IsLayerNode(*node.type))
        node.parameters.emplace_back(port.name, Copy(input));
    for (const InnerPort& target : port.targets)
    {
        CoreInput copy = Copy(input);
        if (input.link && (target.isFunction || FunctionResultType(port.type.Get())))
            scope.functions.emplace(node.firstCore + target.node, target.port + element);
        if (target.valueType && !input.value.IsEmpty())
            ThrowIfError(
                ConvertValue(input.value, target.valueType, copy.value)); // descriptions promise that it can be
        scope.document.graph.nodes[node.firstCore + target.node].inputs[target.port + element] = std::move(copy);
    }
}

CoreInput DefaultInput(const NodePort& port)
{
    CoreInput input;
    input.connected = false;
    ThrowIfError(input.value.CopyFrom(port.defaultValue));
    return input;
}

// What was given to the input that a port follows where it has nothing of its own.
const CoreInput* FindFollowed(DocumentScope& scope, const DocumentNode& node, const NodePort& port)
{
    const NodePort* const followed = port.follows.empty() ? nullptr : node.type->FindPort(port.follows, true);
    if (!followed || followed->targets.empty())
        return nullptr;
    const InnerPort& target = followed->targets[0];
    const auto& inputs = scope.document.graph.nodes[node.firstCore + target.node].inputs;
    const auto found = inputs.find(target.port);
    return found == inputs.end() ? nullptr : &found->second;
}

// Says to the inner nodes how many elements a variadic port of theirs has.
void SetCount(DocumentScope& scope, DocumentNode& node, const NodePort& port, std::size_t count)
{
    for (const InnerPort& target : port.targets)
    {
        CoreNode& core = scope.document.graph.nodes[node.firstCore + target.node];
        DataDictionary arguments;
        Id key;
        ThrowIfError(Bound<DataDictionaryInterface>().Alloc(arguments.Receive()));
        ThrowIfError(Id::Create(target.port, key));
        // Dictionaries are shared; what changes is a copy.
        for (Int i = 0; i < EntryCount(core.arguments.Get()); ++i)
            ThrowIfError(Bound<DataDictionaryInterface>().SetData(
                arguments.Get(), EntryKey(core.arguments.Get(), i), EntryData(core.arguments.Get(), i)));
        ThrowIfError(SetData(arguments, key, static_cast<Int>(count)));
        core.arguments = std::move(arguments);
    }
}

void ReadPort(DocumentScope& scope, DocumentNode& node, const NodePort& port, const Json& json,
    const std::string& place, const std::string& element, const std::string& origin)
{
    CoreInput input;
    input.origin = origin;
    if (ReadSource(scope, node, port, json, place, input))
        Give(scope, node, port, element, std::move(input));
}

void ReadBundle(
    DocumentScope& scope, DocumentNode& node, const NodePort& port, const Json& json, const std::string& place)
{
    if (!json.IsArray())
        return scope.diagnostics.Fault(place, fmt::format("expected an array of objects, got {}", json.Description()));
    if (!HasFewElements(scope, json, place))
        return;
    std::vector<std::string> known;
    for (const NodePort& member : port.members)
    {
        known.push_back(member.name);
        SetCount(scope, node, member, json.Elements().size());
    }
    for (std::size_t i = 0; i < json.Elements().size(); ++i)
    {
        const Json& object = json.Elements()[i];
        const std::string element = fmt::format("[{}]", i);
        if (!object.IsObject())
        {
            scope.diagnostics.Fault(place + element, fmt::format("expected an object, got {}", object.Description()));
            continue;
        }
        CheckKeys(scope, object, place + element, known);
        for (const NodePort& member : port.members)
        {
            const Json* const value = object.Find(member.name);
            if (value)
                ReadPort(scope, node, member, *value, fmt::format("{}{}.{}", place, element, member.name), element,
                    fmt::format("{}.{}{}.{}", node.name, port.name, element, member.name));
            else
                Give(scope, node, member, element, DefaultInput(member));
        }
    }
}

void ReadElements(
    DocumentScope& scope, DocumentNode& node, const NodePort& port, const Json& json, const std::string& place)
{
    if (!json.IsArray())
        return scope.diagnostics.Fault(place, fmt::format("expected an array, got {}", json.Description()));
    if (!HasFewElements(scope, json, place))
        return;
    SetCount(scope, node, port, json.Elements().size());
    for (std::size_t i = 0; i < json.Elements().size(); ++i)
    {
        const std::string element = fmt::format("[{}]", i);
        ReadPort(scope, node, port, json.Elements()[i], place + element, element,
            fmt::format("{}.{}{}", node.name, port.name, element));
    }
}

// A port whose elements are ports of their own, of differing types.
void ReadFixedElements(
    DocumentScope& scope, DocumentNode& node, const std::string& name, const Json& json, const std::string& place)
{
    if (!json.IsArray())
        return scope.diagnostics.Fault(place, fmt::format("expected an array, got {}", json.Description()));
    for (std::size_t i = 0; i < json.Elements().size(); ++i)
    {
        const std::string element = fmt::format("{}[{}]", name, i);
        const std::string elementPlace = fmt::format("{}[{}]", place, i);
        if (const NodePort* const port = node.type->FindPort(element, true))
            ReadPort(
                scope, node, *port, json.Elements()[i], elementPlace, "", fmt::format("{}.{}", node.name, element));
        else
            scope.diagnostics.Fault(elementPlace, fmt::format("{} takes {} elements", name, i));
    }
}

void ReadInput(
    DocumentScope& scope, DocumentNode& node, const std::string& name, const Json& json, const std::string& place)
{
    if (const NodePort* const port = node.type->FindPort(name, true))
    {
        if (port->IsBundle())
            ReadBundle(scope, node, *port, json, place);
        else if (!port->namedBy.empty())
            scope.diagnostics.Fault(
                place, fmt::format("its elements are named: {}#NAME, by the argument {}", port->name, port->namedBy));
        else if (port->isVariadic)
            ReadElements(scope, node, *port, json, place);
        else
            ReadPort(scope, node, *port, json, place, "", fmt::format("{}.{}", node.name, name));
        return;
    }
    if (HasElements(*node.type, name))
        return ReadFixedElements(scope, node, name, json, place);
    if (const auto [port, element] = FindElement(node, name); port)
        return ReadPort(scope, node, *port, json, place, element, fmt::format("{}.{}", node.name, name));
    scope.diagnostics.Fault(place, "there is no such input" + Suggestion(name, node.type->PortNames(true)));
}

void GiveDefault(DocumentScope& scope, DocumentNode& node, const NodePort& port)
{
    if (port.IsBundle() && port.defaultElements.IsArray())
        ReadBundle(scope, node, port, port.defaultElements, port.name);
    else if (port.IsBundle())
        ReadBundle(scope, node, port, Json::Array(), port.name);
    else if (port.isVariadic && port.namedBy.empty())
        SetCount(scope, node, port, 0);
    else if (port.isVariadic)
        return; // see NamedElements
    else if (!port.defaultValue.IsEmpty())
        Give(scope, node, port, "", DefaultInput(port));
}

// A number, or those of a vector, outside of what a port's description calls sensible.
void WarnOutsideLimits(DocumentScope& scope, const NodePort& port, const Json& json, const std::string& place)
{
    const auto warn = [&](const Json& value, const Json& limit, bool isLowest, const std::string& where) {
        const bool isOutside = value.IsNumber() && limit.IsNumber() &&
                               (isLowest ? value.AsNumber() < limit.AsNumber() : value.AsNumber() > limit.AsNumber());
        if (isOutside)
            scope.diagnostics.Warning(where, fmt::format("{} is {} {}", value.Write(),
                                                 isLowest ? "below the least," : "above the most,", limit.Write()));
    };
    for (const bool isLowest : {true, false})
    {
        const Json& limit = isLowest ? port.minimum : port.maximum;
        warn(json, limit, isLowest, place);
        for (std::size_t i = 0; json.IsArray() && i < json.Elements().size(); ++i)
        {
            const bool isEach = limit.IsArray() && i < limit.Elements().size();
            warn(json.Elements()[i], isEach ? limit.Elements()[i] : limit, isLowest, fmt::format("{}[{}]", place, i));
        }
    }
}

} // namespace

bool FindOutput(DocumentScope& scope, const std::string& text, const std::string& place, const NodePort*& port,
    CorePort& link, std::size_t& index)
{
    const auto dot = text.find('.');
    if (dot == text.npos)
    {
        scope.diagnostics.Fault(place, fmt::format("expected NODE.PORT, got \"{}\"", Printable(text)));
        return false;
    }
    const std::string name = text.substr(0, dot);
    const std::string portName = text.substr(dot + 1);
    const auto found = scope.indexOf.find(name);
    if (found == scope.indexOf.end())
    {
        scope.diagnostics.Fault(
            place, fmt::format("there is no node \"{}\"{}", Printable(name), Suggestion(name, scope.names)));
        return false;
    }
    index = found->second;
    const DocumentNode& node = scope.nodes[index];
    if (!node.type)
        return false; // its type or its arguments are the fault, and were reported
    port = node.type->FindPort(portName, false);
    if (!port)
    {
        scope.diagnostics.Fault(place, fmt::format("{} has no output \"{}\"{}", name, Printable(portName),
                                           Suggestion(portName, node.type->PortNames(false))));
        return false;
    }
    // Programs have no values of this type.
    if (!port->targets.empty())
        link = {node.firstCore + port->targets[0].node, port->targets[0].port};
    return true;
}

bool ReadSource(DocumentScope& scope, DocumentNode& node, const NodePort& port, const Json& json,
    const std::string& place, CoreInput& input)
{
    if (json.IsObject() && json.Find("parameter"))
        return ReadParameterUse(scope, port, json, place, input);
    if (json.IsObject() && (json.Find("from") || !IsDictionary(port)))
        return ReadLink(scope, node, port, json, place, input);
    if (!port.values.empty())
        input.values = &port.values;
    return ReadPortValue(scope, port, json, place, input.value);
}

bool ReadPortValue(DocumentScope& scope, const NodePort& port, const Json& json, const std::string& place, Data& value)
{
    const DataType* const yields = FunctionResultType(port.type.Get());
    const DataType* const type = yields ? yields : port.type.Get();
    if (scope.options.warnsOutsideLimits)
        WarnOutsideLimits(scope, port, json, place);
    if (!json.IsString() || port.values.empty())
        return ReadValue(json, type, place, scope.diagnostics, value);
    const std::string& text = json.AsString();
    if (const std::string_view known = FindValue(text, port.values); !known.empty())
        return ReadValue(known, type, place, scope.diagnostics, value);
    if (type == TypeOf<Id>() && text.empty()) // the node does without
        return ReadValue(json, type, place, scope.diagnostics, value);
    const std::string said = fmt::format("\"{}\" is not known{}", Printable(text), Suggestion(text, port.values));
    // A check reports it. A graph may still hold it if nothing needs it.
    if (!port.hasFallback && scope.options.warnsOutsideLimits)
    {
        scope.diagnostics.Fault(place, said);
        return false;
    }
    scope.diagnostics.Warning(
        place, said + (port.hasFallback ? "; the node's own fallback applies" : "; the node fails where it needs it"));
    return ReadValue(json, type, place, scope.diagnostics, value);
}

void CheckSettings(DocumentScope& scope)
{
    for (const Setting& setting : scope.options.settings)
    {
        if (setting.node.empty())
            continue; // see ReadParameters
        const std::string what = fmt::format("--set {}.{}", setting.node, setting.port);
        const auto node = scope.indexOf.find(setting.node);
        if (node == scope.indexOf.end())
            scope.diagnostics.Fault(what, "there is no such node" + Suggestion(setting.node, scope.names));
        else if (const NodeType* const type = scope.nodes[node->second].type;
                 type && !type->FindPort(setting.port, true) && !HasElements(*type, setting.port) &&
                 !FindElement(scope.nodes[node->second], setting.port).first)
            scope.diagnostics.Fault(what, "there is no such input" + Suggestion(setting.port, type->PortNames(true)));
    }
}

void ReadInputs(DocumentScope& scope, DocumentNode& node)
{
    const std::string place = fmt::format("nodes.{}.inputs", node.name);
    std::unordered_set<std::string> given;
    const auto read = [&](const std::string& name, const Json& json) {
        if (!given.insert(name).second)
            return;
        if (json.IsArray() && HasElements(*node.type, name))
        {
            for (std::size_t i = 0; i < json.Elements().size(); ++i)
                given.insert(fmt::format("{}[{}]", name, i));
        }
        ReadInput(scope, node, name, json, Join(place, name));
    };
    for (const Setting& setting : scope.options.settings)
    {
        if (setting.node == node.name)
            read(setting.port, setting.value);
    }
    // If a port and the port that it follows lead to one inner port, the port's own value wins.
    static const Json none = Json::Object();
    for (const bool follows : {false, true})
    {
        for (const auto& [name, json] : (node.inputs ? *node.inputs : none).GetMembers())
        {
            const NodePort* const port = node.type->FindPort(name, true);
            if (scope.diagnostics.IsFull())
                return;
            if ((port && !port->follows.empty()) == follows && (port || !IsComment(name, json)))
                read(name, json);
        }
    }
    for (const NodePort& port : node.type->ports)
    {
        if (port.input && !given.contains(port.name))
        {
            if (const CoreInput* const followed = FindFollowed(scope, node, port))
                Give(scope, node, port, "", Copy(*followed));
            else
                GiveDefault(scope, node, port);
        }
        for (const std::string& element : NamedElements(node, port))
        {
            if (!given.contains(port.name + element))
                Give(scope, node, port, element, DefaultInput(port));
        }
    }
}

} // namespace velto::host
