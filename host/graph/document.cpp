#include "document.h"

#include "values.h"

#include "host/registry/datatypes.h"
#include "host/registry/dictionary.h"
#include "host/runtime/convert.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace velto::host
{

namespace
{

bool IsName(std::string_view text)
{
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    return !text.empty() && text.size() <= 256 && !isDigit(text.front()) &&
           std::all_of(text.begin(), text.end(), [&](char c) { return isLetter(c) || isDigit(c); });
}

struct DocumentNode
{
    std::string name;
    const Json* inputs = nullptr; // null: none
    const NodeType* type = nullptr;
    DataDictionary arguments;
    std::size_t firstCore = 0;
    std::vector<std::size_t> links; // nodes that it reads, for cycles
};

class Reader
{
public:
    Reader(NodeCatalog& catalog, const std::vector<Setting>& settings, Diagnostics& diagnostics,
        GraphDocument& document, const GraphLimits& limits)
        : catalog_(catalog), settings_(settings), diagnostics_(diagnostics), document_(document), limits_(limits)
    {
    }

    void Read(const Json& root)
    {
        if (!root.IsObject())
            return diagnostics_.Fault("", fmt::format("expected an object, got {}", root.Description()));
        CheckKeys(root, "", {"version", "nodes", "outputs"});
        const Json* const version = root.Find("version");
        if (!version)
            diagnostics_.Fault("version", "is missing; this host reads version 1");
        else if (!version->IsInteger() || version->AsInteger() != 1)
            diagnostics_.Fault("version", fmt::format("expected 1, got {}", version->Description()));
        if (!ReadNodes(root.Find("nodes")))
            return;
        CheckSettings();
        MakeCoreNodes();
        for (std::size_t i = 0; i < nodes_.size(); ++i)
        {
            if (nodes_[i].type)
                ReadInputs(nodes_[i]);
        }
        ReadOutputs(root.Find("outputs"));
        FindCycle();
    }

private:
    void CheckKeys(const Json& object, const std::string& place, const std::vector<std::string>& known)
    {
        for (const auto& [name, member] : object.GetMembers())
        {
            if (std::find(known.begin(), known.end(), name) == known.end())
                diagnostics_.Fault(Join(place, name), fmt::format("is not known here{}; expected one of {}",
                                                          Suggestion(name, known), fmt::join(known, ", ")));
        }
    }

    static std::string Join(const std::string& place, std::string_view name)
    {
        return place.empty() ? Printable(name) : fmt::format("{}.{}", place, Printable(name));
    }

    bool ReadNodes(const Json* nodes)
    {
        if (!nodes)
        {
            diagnostics_.Fault("nodes", "is missing");
            return false;
        }
        if (!nodes->IsObject())
        {
            diagnostics_.Fault("nodes", fmt::format("expected an object, got {}", nodes->Description()));
            return false;
        }
        if (nodes->GetMembers().size() > limits_.nodes)
        {
            diagnostics_.Fault(
                "nodes", fmt::format("{} nodes; at most {} are taken", nodes->GetMembers().size(), limits_.nodes));
            return false;
        }
        nodes_.reserve(nodes->GetMembers().size());
        for (const auto& [name, json] : nodes->GetMembers())
            ReadNode(name, json);
        return true;
    }

    void ReadNode(const std::string& name, const Json& json)
    {
        const std::string place = Join("nodes", name);
        if (!IsName(name))
            return diagnostics_.Fault(
                place, "a name is letters, digits and _, not starting with a digit, and at most 256 long");
        if (indexOf_.contains(name))
            return; // said when it was parsed
        DocumentNode node;
        node.name = name;
        if (!json.IsObject())
            diagnostics_.Fault(place, fmt::format("expected an object, got {}", json.Description()));
        else
        {
            CheckKeys(json, place, {"type", "inputs", "arguments"});
            ReadType(json, place, node);
            node.inputs = json.Find("inputs");
            if (node.inputs && !node.inputs->IsObject())
            {
                diagnostics_.Fault(
                    place + ".inputs", fmt::format("expected an object, got {}", node.inputs->Description()));
                node.inputs = nullptr;
            }
        }
        indexOf_.emplace(name, nodes_.size());
        names_.push_back(name);
        nodes_.push_back(std::move(node));
    }

    void ReadType(const Json& json, const std::string& place, DocumentNode& node)
    {
        std::string key;
        if (const Json* const arguments = json.Find("arguments"))
        {
            ReadArguments(*arguments, place + ".arguments", diagnostics_, node.arguments);
            key = arguments->Write();
        }
        const Json* const type = json.Find("type");
        if (!type)
            return diagnostics_.Fault(place + ".type", "is missing");
        if (!type->IsString())
            return diagnostics_.Fault(place + ".type", fmt::format("expected a string, got {}", type->Description()));
        node.type = catalog_.Find(type->AsString(), node.arguments, key, place + ".type", diagnostics_);
    }

    void CheckSettings()
    {
        for (const Setting& setting : settings_)
        {
            const std::string what = fmt::format("--set {}.{}", setting.node, setting.port);
            const auto node = indexOf_.find(setting.node);
            if (node == indexOf_.end())
                diagnostics_.Fault(what, "there is no such node" + Suggestion(setting.node, names_));
            else if (const NodeType* const type = nodes_[node->second].type;
                     type && !type->FindPort(setting.port, true) && !HasElements(*type, setting.port))
                diagnostics_.Fault(what, "there is no such input" + Suggestion(setting.port, type->PortNames(true)));
        }
    }

    static bool HasElements(const NodeType& type, const std::string& family)
    {
        return type.FindPort(family + "[0]", true) != nullptr;
    }

    // One core node for every inner node of every type.
    void MakeCoreNodes()
    {
        for (DocumentNode& node : nodes_)
        {
            node.firstCore = document_.graph.nodes.size();
            document_.nodeNames.push_back(node.name);
            if (!node.type)
                continue;
            for (const InnerNode& inner : node.type->inner)
            {
                CoreNode core;
                core.name = node.name;
                core.type = inner.type;
                core.arguments = node.arguments;
                document_.graph.nodes.push_back(std::move(core));
            }
            for (std::size_t i = 0; i < node.type->inner.size(); ++i)
                LinkInner(node, i);
        }
    }

    // What a description gives its inner nodes.
    void LinkInner(const DocumentNode& node, std::size_t index)
    {
        CoreNode& core = document_.graph.nodes[node.firstCore + index];
        for (const InnerNode::Given& given : node.type->inner[index].given)
        {
            CoreInput input;
            if (given.link)
                input.link = CorePort{node.firstCore + given.from.node, given.from.port};
            else
                input.value.CopyFrom(given.value).Ignore();
            core.inputs[given.port] = std::move(input);
        }
    }

    // The inputs that the document gives, then the defaults of the others.
    void ReadInputs(DocumentNode& node)
    {
        const std::string place = fmt::format("nodes.{}.inputs", node.name);
        std::unordered_set<std::string> given;
        const auto read = [&](const std::string& name, const Json& json)
        {
            if (!given.insert(name).second)
                return;
            ReadInput(node, name, json, Join(place, name));
        };
        for (const Setting& setting : settings_)
        {
            if (setting.node == node.name)
                read(setting.port, setting.value);
        }
        if (node.inputs)
        {
            for (const auto& [name, json] : node.inputs->GetMembers())
                read(name, json);
        }
        for (const NodePort& port : node.type->ports)
        {
            if (port.input && !given.contains(port.name))
                GiveDefault(node, port);
        }
    }

    void ReadInput(DocumentNode& node, const std::string& name, const Json& json, const std::string& place)
    {
        if (const NodePort* const port = node.type->FindPort(name, true))
        {
            if (port->IsBundle())
                ReadBundle(node, *port, json, place);
            else if (port->isVariadic)
                ReadElements(node, *port, json, place);
            else
                ReadPort(node, *port, json, place, "", fmt::format("{}.{}", node.name, name));
            return;
        }
        if (HasElements(*node.type, name))
            return ReadFixedElements(node, name, json, place);
        diagnostics_.Fault(place, "there is no such input" + Suggestion(name, node.type->PortNames(true)));
    }

    // A port whose elements are ports of their own, of differing types.
    void ReadFixedElements(DocumentNode& node, const std::string& name, const Json& json, const std::string& place)
    {
        if (!json.IsArray())
            return diagnostics_.Fault(place, fmt::format("expected an array, got {}", json.Description()));
        for (std::size_t i = 0; i < json.Elements().size(); ++i)
        {
            const std::string element = fmt::format("{}[{}]", name, i);
            const std::string elementPlace = fmt::format("{}[{}]", place, i);
            if (const NodePort* const port = node.type->FindPort(element, true))
                ReadPort(node, *port, json.Elements()[i], elementPlace, "", fmt::format("{}.{}", node.name, element));
            else
                diagnostics_.Fault(elementPlace, fmt::format("{} takes {} elements", name, i));
        }
    }

    void ReadElements(DocumentNode& node, const NodePort& port, const Json& json, const std::string& place)
    {
        if (!json.IsArray())
            return diagnostics_.Fault(place, fmt::format("expected an array, got {}", json.Description()));
        SetCount(node, port, json.Elements().size());
        for (std::size_t i = 0; i < json.Elements().size(); ++i)
        {
            const std::string element = fmt::format("[{}]", i);
            ReadPort(node, port, json.Elements()[i], place + element, element,
                fmt::format("{}.{}{}", node.name, port.name, element));
        }
    }

    void ReadBundle(DocumentNode& node, const NodePort& port, const Json& json, const std::string& place)
    {
        if (!json.IsArray())
            return diagnostics_.Fault(place, fmt::format("expected an array of objects, got {}", json.Description()));
        std::vector<std::string> known;
        for (const NodePort& member : port.members)
        {
            known.push_back(member.name);
            SetCount(node, member, json.Elements().size());
        }
        for (std::size_t i = 0; i < json.Elements().size(); ++i)
        {
            const Json& object = json.Elements()[i];
            const std::string element = fmt::format("[{}]", i);
            if (!object.IsObject())
            {
                diagnostics_.Fault(place + element, fmt::format("expected an object, got {}", object.Description()));
                continue;
            }
            CheckKeys(object, place + element, known);
            for (const NodePort& member : port.members)
            {
                const Json* const value = object.Find(member.name);
                if (value)
                    ReadPort(node, member, *value, fmt::format("{}{}.{}", place, element, member.name), element,
                        fmt::format("{}.{}{}.{}", node.name, port.name, element, member.name));
                else
                    Give(node, member, element, DefaultInput(member));
            }
        }
    }

    // Says to the inner nodes how many elements a variadic port of theirs has.
    void SetCount(DocumentNode& node, const NodePort& port, std::size_t count)
    {
        for (const InnerPort& target : port.targets)
        {
            CoreNode& core = document_.graph.nodes[node.firstCore + target.node];
            DataDictionary arguments;
            Id key;
            if (Bound<DataDictionaryInterface>().Alloc(arguments.Receive()).IsError() ||
                Id::Create(target.port, key).IsError())
                continue;
            // Dictionaries are shared; what changes is a copy.
            for (Int i = 0; i < EntryCount(core.arguments.Get()); ++i)
                Bound<DataDictionaryInterface>()
                    .SetData(arguments.Get(), EntryKey(core.arguments.Get(), i), EntryData(core.arguments.Get(), i))
                    .Ignore();
            SetData(arguments, key, static_cast<Int>(count)).Ignore();
            core.arguments = std::move(arguments);
        }
    }

    void ReadPort(DocumentNode& node, const NodePort& port, const Json& json, const std::string& place,
        const std::string& element, const std::string& origin)
    {
        CoreInput input;
        input.origin = origin;
        if (json.IsObject() && (json.Find("from") || !IsDictionary(port)))
        {
            if (!ReadLink(node, port, json, place, input))
                return;
        }
        else
        {
            const DataType* const yields = FunctionResultType(port.type.Get());
            if (!ReadValue(json, yields ? yields : port.type.Get(), place, diagnostics_, input.value))
                return;
            if (json.IsString() && !port.values.empty() &&
                std::find(port.values.begin(), port.values.end(), json.AsString()) == port.values.end())
                diagnostics_.Warning(place, fmt::format("\"{}\" is not known{}; the node's own fallback applies",
                                                Printable(json.AsString()), Suggestion(json.AsString(), port.values)));
        }
        Give(node, port, element, std::move(input));
    }

    static bool IsDictionary(const NodePort& port) { return port.type.Get() == TypeOf<DataDictionary>(); }

    bool ReadLink(
        DocumentNode& node, const NodePort& port, const Json& json, const std::string& place, CoreInput& input)
    {
        CheckKeys(json, place, {"from"});
        const Json* const from = json.Find("from");
        if (!from || !from->IsString())
        {
            diagnostics_.Fault(place, "expected a value or a link {\"from\": \"NODE.PORT\"}");
            return false;
        }
        if (++links_ > limits_.links)
        {
            if (links_ == limits_.links + 1)
                diagnostics_.Fault(place, fmt::format("more than {} links", limits_.links));
            return false;
        }
        const NodePort* source = nullptr;
        CorePort link;
        std::size_t sourceNode = 0;
        if (!FindOutput(from->AsString(), place, source, link, sourceNode))
            return false;
        const DataType* const yields = FunctionResultType(port.type.Get());
        const DataType* const wanted = yields ? yields : port.type.Get();
        if (!IsConvertible(source->type.Get(), wanted))
        {
            diagnostics_.Fault(place, fmt::format("{} is a {}, which does not turn into a {}",
                                          Printable(from->AsString()), TypeName(source->type.Get()), TypeName(wanted)));
            return false;
        }
        node.links.push_back(sourceNode);
        input.link = std::move(link);
        return true;
    }

    // `NODE.PORT`; the name ends at the first dot.
    bool FindOutput(
        const std::string& text, const std::string& place, const NodePort*& port, CorePort& link, std::size_t& index)
    {
        const auto dot = text.find('.');
        if (dot == text.npos)
        {
            diagnostics_.Fault(place, fmt::format("expected NODE.PORT, got \"{}\"", Printable(text)));
            return false;
        }
        const std::string name = text.substr(0, dot);
        const std::string portName = text.substr(dot + 1);
        const auto found = indexOf_.find(name);
        if (found == indexOf_.end())
        {
            diagnostics_.Fault(
                place, fmt::format("there is no node \"{}\"{}", Printable(name), Suggestion(name, names_)));
            return false;
        }
        index = found->second;
        const DocumentNode& node = nodes_[index];
        if (!node.type)
            return false; // its type is the fault, and was reported
        port = node.type->FindPort(portName, false);
        if (!port)
        {
            diagnostics_.Fault(place, fmt::format("{} has no output \"{}\"{}", name, Printable(portName),
                                          Suggestion(portName, node.type->PortNames(false))));
            return false;
        }
        link = {node.firstCore + port->targets[0].node, port->targets[0].port};
        return true;
    }

    // Gives an input to all inner ports that it leads to.
    void Give(const DocumentNode& node, const NodePort& port, const std::string& element, CoreInput input)
    {
        for (std::size_t i = 0; i < port.targets.size(); ++i)
        {
            const InnerPort& target = port.targets[i];
            CoreInput copy;
            copy.link = input.link;
            copy.connected = input.connected;
            copy.origin = input.origin;
            copy.value.CopyFrom(input.value).Ignore();
            document_.graph.nodes[node.firstCore + target.node].inputs[target.port + element] = std::move(copy);
        }
    }

    static CoreInput DefaultInput(const NodePort& port)
    {
        CoreInput input;
        input.connected = false;
        input.value.CopyFrom(port.defaultValue).Ignore();
        return input;
    }

    void GiveDefault(DocumentNode& node, const NodePort& port)
    {
        if (port.IsBundle() && port.defaultElements.IsArray())
            ReadBundle(node, port, port.defaultElements, port.name);
        else if (port.IsBundle())
            ReadBundle(node, port, Json::Array(), port.name);
        else if (port.isVariadic)
            SetCount(node, port, 0);
        else if (!port.defaultValue.IsEmpty())
            Give(node, port, "", DefaultInput(port));
    }

    void ReadOutputs(const Json* outputs)
    {
        if (!outputs)
            return diagnostics_.Fault("outputs", "is missing");
        if (!outputs->IsObject())
            return diagnostics_.Fault("outputs", fmt::format("expected an object, got {}", outputs->Description()));
        if (outputs->GetMembers().empty())
            diagnostics_.Fault("outputs", "is empty; a graph has at least one output");
        for (const auto& [name, json] : outputs->GetMembers())
        {
            const std::string place = Join("outputs", name);
            const NodePort* port = nullptr;
            CorePort link;
            std::size_t node = 0;
            if (name.empty())
                diagnostics_.Fault("outputs", "an output has a name");
            if (!json.IsString())
                diagnostics_.Fault(place, fmt::format("expected \"NODE.PORT\", got {}", json.Description()));
            else if (FindOutput(json.AsString(), place, port, link, node))
                document_.graph.outputs.push_back({name, std::move(link)});
        }
    }

    // Reports one circle, by names.
    void FindCycle()
    {
        enum class Visit : std::uint8_t
        {
            New,
            Open,
            Done,
        };
        std::vector<Visit> visits(nodes_.size(), Visit::New);
        struct Step
        {
            std::size_t node;
            std::size_t next = 0;
        };
        for (std::size_t start = 0; start < nodes_.size(); ++start)
        {
            if (visits[start] != Visit::New)
                continue;
            std::vector<Step> open{{start}};
            visits[start] = Visit::Open;
            while (!open.empty())
            {
                Step& step = open.back();
                if (step.next == nodes_[step.node].links.size())
                {
                    visits[step.node] = Visit::Done;
                    open.pop_back();
                    continue;
                }
                const std::size_t to = nodes_[step.node].links[step.next++];
                if (visits[to] == Visit::New)
                {
                    visits[to] = Visit::Open;
                    open.push_back({to});
                }
                else if (visits[to] == Visit::Open)
                {
                    std::string circle = nodes_[to].name;
                    for (auto at = open.rbegin(); at != open.rend() && at->node != to && circle.size() < 300; ++at)
                        circle += " -> " + nodes_[at->node].name;
                    return diagnostics_.Fault(fmt::format("nodes.{}", nodes_[to].name),
                        fmt::format("the links form a cycle: {} -> {}", circle, nodes_[to].name));
                }
            }
        }
    }

    NodeCatalog& catalog_;
    const std::vector<Setting>& settings_;
    Diagnostics& diagnostics_;
    GraphDocument& document_;
    const GraphLimits& limits_;
    std::vector<DocumentNode> nodes_;
    std::vector<std::string> names_;
    std::unordered_map<std::string, std::size_t> indexOf_;
    std::size_t links_ = 0;
};

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
    Reader(catalog, settings, diagnostics, document, limits).Read(json);
    return !diagnostics.HasFaults();
}

} // namespace velto::host
