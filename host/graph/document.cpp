#include "document.h"

#include "material.h"
#include "values.h"

#include "host/corenode/convert.h"
#include "host/registry/datatypes.h"
#include "host/registry/dictionary.h"
#include "host/registry/reflection.h"
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
    std::vector<const NodeType*> built; // a described node's inner nodes as its arguments make them; empty: it has none
    std::size_t firstCore = 0;
    std::vector<std::size_t> links;                            // nodes that it reads, for cycles
    std::vector<std::pair<std::string, CoreInput>> parameters; // of a BSDF layer: what the document gives it
};

CoreInput Copy(const CoreInput& input)
{
    CoreInput copy;
    copy.link = input.link;
    copy.connected = input.connected;
    copy.origin = input.origin;
    ThrowIfError(copy.value.CopyFrom(input.value));
    return copy;
}

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
        CheckKeys(root, "", {"version", "nodes", "outputs", "material"});
        const Json* const version = root.Find("version");
        if (!version)
            diagnostics_.Fault("version", "is missing; this host reads version 1");
        else if (!version->IsInteger() || version->AsInteger() != 1)
            diagnostics_.Fault("version", fmt::format("expected 1, got {}", version->Description()));
        if (!ReadNodes(root.Find("nodes")))
            return;
        CheckSettings();
        MakeCoreNodes();
        for (std::size_t i = 0; i < nodes_.size() && !diagnostics_.IsFull(); ++i)
        {
            if (nodes_[i].type)
                ReadInputs(nodes_[i]);
        }
        const Json* const material = root.Find("material");
        if (root.Find("outputs") || !material)
            ReadOutputs(root.Find("outputs"));
        if (material)
            ReadMaterial(*material);
        FindCycle();
        if (!diagnostics_.HasFaults() && !material)
            MakeRoot();
    }

private:
    void CheckKeys(const Json& object, const std::string& place, const std::vector<std::string>& known)
    {
        for (const auto& [name, member] : object.GetMembers())
        {
            if (std::find(known.begin(), known.end(), name) == known.end())
                diagnostics_.Fault(
                    Join(place, name), fmt::format("is not known here{}{}{}", Suggestion(name, known),
                                           known.empty() ? "" : "; expected one of ", fmt::join(known, ", ")));
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
        {
            if (diagnostics_.IsFull())
                return false;
            ReadNode(name, json);
        }
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
        NodeArguments given{{}, {}, place + ".arguments"};
        const Json* const arguments = json.Find("arguments");
        if (arguments && ReadArguments(*arguments, given.place, diagnostics_, given.values))
            given.key = arguments->Write();
        else
            given.values = {};
        const Json* const type = json.Find("type");
        if (!type)
            return diagnostics_.Fault(place + ".type", "is missing");
        if (!type->IsString())
            return diagnostics_.Fault(place + ".type", fmt::format("expected a string, got {}", type->Description()));
        node.type = catalog_.Find(type->AsString(), given, place + ".type", diagnostics_);
        if (node.type && arguments && (given.key.empty() || !BuildInner(*arguments, given, node)))
            node.type = nullptr; // its arguments are the fault, and were reported
        node.arguments = std::move(given.values);
    }

    // What arguments make of the nodes inside a described one; false and a fault when nothing can be made of them.
    bool BuildInner(const Json& json, const NodeArguments& given, DocumentNode& node)
    {
        std::vector<std::string> known = node.type->arguments;
        for (const InnerNode& inner : node.type->inner)
        {
            if (!node.type->isDescribed)
                continue; // it is the core node itself
            node.built.push_back(
                inner.forwarded ? nullptr : catalog_.Find(inner.type, given, given.place, diagnostics_));
            if (const NodeType* const core = node.built.back())
                known.insert(known.end(), core->arguments.begin(), core->arguments.end());
            else if (!inner.forwarded)
                return false;
        }
        CheckKeys(json, given.place, known);
        return true;
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
                     type && !type->FindPort(setting.port, true) && !HasElements(*type, setting.port) &&
                     !FindElement(nodes_[node->second], setting.port).first)
                diagnostics_.Fault(what, "there is no such input" + Suggestion(setting.port, type->PortNames(true)));
        }
    }

    static bool HasElements(const NodeType& type, const std::string& family)
    {
        return type.FindPort(family + "[0]", true) != nullptr;
    }

    // The elements of a described variadic port that the node's arguments name, each with its `#`.
    static std::vector<std::string> NamedElements(const DocumentNode& node, const NodePort& port)
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
    static std::pair<const NodePort*, std::string> FindElement(const DocumentNode& node, const std::string& name)
    {
        const auto hash = std::min(name.find('#'), name.size());
        const NodePort* const port = node.type->FindPort(name.substr(0, hash), true);
        const std::string element = name.substr(hash);
        if (!port || port->namedBy.empty() || node.built.empty())
            return {};
        const InnerPort& target = port->targets[0];
        return {node.built[target.node]->FindPort(target.port + element, true) ? port : nullptr, element};
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
                core.forwarded = inner.forwarded;
                core.arguments = node.arguments ? node.arguments : inner.arguments;
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
                ThrowIfError(input.value.CopyFrom(given.value));
            core.inputs[given.port] = std::move(input);
        }
    }

    // The inputs that the document gives, then the defaults of the others.
    void ReadInputs(DocumentNode& node)
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
            {
                if (diagnostics_.IsFull())
                    return;
                read(name, json);
            }
        }
        for (const NodePort& port : node.type->ports)
        {
            if (port.input && !given.contains(port.name))
            {
                if (const CoreInput* const followed = FindFollowed(node, port))
                    Give(node, port, "", Copy(*followed));
                else
                    GiveDefault(node, port);
            }
            for (const std::string& element : NamedElements(node, port))
            {
                if (!given.contains(port.name + element))
                    Give(node, port, element, DefaultInput(port));
            }
        }
    }

    // What was given to the input that a port follows where it has nothing of its own.
    const CoreInput* FindFollowed(const DocumentNode& node, const NodePort& port) const
    {
        const NodePort* const followed = port.follows.empty() ? nullptr : node.type->FindPort(port.follows, true);
        if (!followed || followed->targets.empty())
            return nullptr;
        const InnerPort& target = followed->targets[0];
        const auto& inputs = document_.graph.nodes[node.firstCore + target.node].inputs;
        const auto found = inputs.find(target.port);
        return found == inputs.end() ? nullptr : &found->second;
    }

    void ReadInput(DocumentNode& node, const std::string& name, const Json& json, const std::string& place)
    {
        if (const NodePort* const port = node.type->FindPort(name, true))
        {
            if (port->IsBundle())
                ReadBundle(node, *port, json, place);
            else if (!port->namedBy.empty())
                diagnostics_.Fault(place,
                    fmt::format("its elements are named: {}#NAME, by the argument {}", port->name, port->namedBy));
            else if (port->isVariadic)
                ReadElements(node, *port, json, place);
            else
                ReadPort(node, *port, json, place, "", fmt::format("{}.{}", node.name, name));
            return;
        }
        if (HasElements(*node.type, name))
            return ReadFixedElements(node, name, json, place);
        if (const auto [port, element] = FindElement(node, name); port)
            return ReadPort(node, *port, json, place, element, fmt::format("{}.{}", node.name, name));
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

    bool HasFewElements(const Json& json, const std::string& place)
    {
        const std::size_t count = json.Elements().size();
        if (count > limits_.elements)
            diagnostics_.Fault(place, fmt::format("{} elements; at most {} are taken", count, limits_.elements));
        return count <= limits_.elements;
    }

    void ReadElements(DocumentNode& node, const NodePort& port, const Json& json, const std::string& place)
    {
        if (!json.IsArray())
            return diagnostics_.Fault(place, fmt::format("expected an array, got {}", json.Description()));
        if (!HasFewElements(json, place))
            return;
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
        if (!HasFewElements(json, place))
            return;
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

    void ReadPort(DocumentNode& node, const NodePort& port, const Json& json, const std::string& place,
        const std::string& element, const std::string& origin)
    {
        CoreInput input;
        input.origin = origin;
        if (ReadSource(node, port, json, place, input))
            Give(node, port, element, std::move(input));
    }

    // A link or a value for a port.
    bool ReadSource(
        DocumentNode& node, const NodePort& port, const Json& json, const std::string& place, CoreInput& input)
    {
        if (json.IsObject() && (json.Find("from") || !IsDictionary(port)))
            return ReadLink(node, port, json, place, input);
        const DataType* const yields = FunctionResultType(port.type.Get());
        if (!ReadValue(json, yields ? yields : port.type.Get(), place, diagnostics_, input.value))
            return false;
        const bool isId = port.type.Get() == TypeOf<Id>(); // of these an empty one is no mistake
        if (json.IsString() && !port.values.empty() && !(isId && json.AsString().empty()) &&
            std::find(port.values.begin(), port.values.end(), json.AsString()) == port.values.end())
            diagnostics_.Warning(
                place, fmt::format("\"{}\" is not known{}{}", Printable(json.AsString()),
                           Suggestion(json.AsString(), port.values), isId ? "" : "; the node's own fallback applies"));
        return true;
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
            return false; // its type or its arguments are the fault, and were reported
        port = node.type->FindPort(portName, false);
        if (!port)
        {
            diagnostics_.Fault(place, fmt::format("{} has no output \"{}\"{}", name, Printable(portName),
                                          Suggestion(portName, node.type->PortNames(false))));
            return false;
        }
        // A layer is no value of a program.
        if (!port->targets.empty())
            link = {node.firstCore + port->targets[0].node, port->targets[0].port};
        return true;
    }

    // Gives an input to all inner ports that it leads to.
    void Give(DocumentNode& node, const NodePort& port, const std::string& element, CoreInput input)
    {
        if (IsLayerNode(*node.type))
            node.parameters.emplace_back(port.name, Copy(input));
        for (const InnerPort& target : port.targets)
        {
            CoreInput copy = Copy(input);
            if (target.valueType && !input.value.IsEmpty())
                ThrowIfError(
                    ConvertValue(input.value, target.valueType, copy.value)); // descriptions promise that it can be
            document_.graph.nodes[node.firstCore + target.node].inputs[target.port + element] = std::move(copy);
        }
    }

    static CoreInput DefaultInput(const NodePort& port)
    {
        CoreInput input;
        input.connected = false;
        ThrowIfError(input.value.CopyFrom(port.defaultValue));
        return input;
    }

    void GiveDefault(DocumentNode& node, const NodePort& port)
    {
        if (port.IsBundle() && port.defaultElements.IsArray())
            ReadBundle(node, port, port.defaultElements, port.name);
        else if (port.IsBundle())
            ReadBundle(node, port, Json::Array(), port.name);
        else if (port.isVariadic && port.namedBy.empty())
            SetCount(node, port, 0);
        else if (port.isVariadic)
            return; // see NamedElements
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
        if (outputs->GetMembers().size() > limits_.elements)
            return diagnostics_.Fault("outputs",
                fmt::format("{} outputs; at most {} are taken", outputs->GetMembers().size(), limits_.elements));
        for (const auto& [name, json] : outputs->GetMembers())
        {
            if (diagnostics_.IsFull())
                return;
            const std::string place = Join("outputs", name);
            const NodePort* port = nullptr;
            CorePort link;
            std::size_t node = 0;
            if (name.empty())
                diagnostics_.Fault("outputs", "an output has a name");
            if (!json.IsString())
                diagnostics_.Fault(place, fmt::format("expected \"NODE.PORT\", got {}", json.Description()));
            else if (FindOutput(json.AsString(), place, port, link, node))
            {
                if (port->type.Get() == LayerType())
                    diagnostics_.Fault(place, "a BSDF layer is no output; it goes into material.bsdflayers");
                else
                    AddOutput(name, std::move(link));
            }
        }
    }

    void AddOutput(const std::string& name, CorePort link)
    {
        CoreOutput output;
        output.name = name;
        output.source.link = std::move(link);
        document_.graph.outputs.push_back(std::move(output));
    }

    // A root with the context and the outputs, for people who look at the graph.
    void MakeRoot()
    {
        document_.root = MakeNodeSystem();
        if (!document_.root)
            throw std::bad_alloc();
        const MutableRoot root(document_.root);
        MutablePort inputs;
        MutablePort outputs;
        MutablePort port;
        Result made = root.GetInputs(inputs);
        if (made.IsOk())
            made = inputs.AddPort("context", port);
        if (made.IsOk())
            made = root.GetOutputs(outputs);
        for (const CoreOutput& output : document_.graph.outputs)
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
            diagnostics_.Fault("", made.Message());
    }

    // --- Materials: what the document drives becomes outputs, one a channel. ---

    void ReadMaterial(const Json& json)
    {
        if (!json.IsObject())
            return diagnostics_.Fault("material", fmt::format("expected an object, got {}", json.Description()));
        std::vector<std::string> known;
        for (const bsdf::Name& name : bsdf::kMaterialInputs)
        {
            if (name.kind != bsdf::Kind::Context)
                known.emplace_back(name.id);
        }
        CheckKeys(json, "material", known);
        const Json* const layers = json.Find("bsdflayers");
        const Json* const aovs = json.Find("aovs");
        if (!layers || !layers->IsArray() || layers->Elements().empty())
            diagnostics_.Fault("material.bsdflayers", "a material has at least one layer: expected an array of "
                                                      "{\"active\", \"bsdflayer\", \"strength\"}");
        for (const auto& [name, value] : json.GetMembers())
        {
            const bsdf::Name* const input = FindMaterialInput(name);
            const std::string place = Join("material", name);
            if (!input || input->kind == bsdf::Kind::Context)
                continue; // said by CheckKeys
            if (input->kind == bsdf::Kind::Layers)
                ReadEntries(value, place, bsdf::kLayerEntry, [&](std::size_t i, const Json& entry) {
                    ReadLayer(entry, fmt::format("{}[{}]", place, i), fmt::format("layer{}", i + 1));
                });
            else if (input->kind == bsdf::Kind::Outputs)
                ReadEntries(value, place, bsdf::kOutputEntry,
                    [&](std::size_t i, const Json& entry) { ReadAov(entry, fmt::format("{}[{}]", place, i)); });
            else
                DriveChannel(name, name, *input, value, place);
        }
        if (diagnostics_.HasFaults())
            return;
        const auto count = [](const Json* list) { return list && list->IsArray() ? list->Elements().size() : 0; };
        if (Result made = BuildMaterialRoot(count(layers), count(aovs), document_.root); made.IsError())
        {
            ThrowIfOutOfMemory(made);
            return diagnostics_.Fault("material", made.Message());
        }
        TakeArrivingChannels();
    }

    template <std::size_t N, class Visit>
    void ReadEntries(const Json& list, const std::string& place, const bsdf::Name (&members)[N], Visit&& visit)
    {
        if (!list.IsArray())
            return diagnostics_.Fault(place, fmt::format("expected an array of objects, got {}", list.Description()));
        if (!HasFewElements(list, place))
            return;
        std::vector<std::string> known;
        for (const bsdf::Name& member : members)
            known.emplace_back(member.id);
        for (std::size_t i = 0; i < list.Elements().size(); ++i)
        {
            const Json& entry = list.Elements()[i];
            const std::string entryPlace = fmt::format("{}[{}]", place, i);
            if (!entry.IsObject())
            {
                diagnostics_.Fault(entryPlace, fmt::format("expected an object, got {}", entry.Description()));
                continue;
            }
            CheckKeys(entry, entryPlace, known);
            const std::size_t channels = channels_.size();
            visit(i, entry);
            if (!IsActive(entry))
                channels_.resize(channels); // checked, and left out
        }
    }

    static bool IsActive(const Json& entry)
    {
        const Json* const active = entry.Find("active");
        return !active || !active->IsBool() || active->AsBool();
    }

    void ReadLayer(const Json& entry, const std::string& place, const std::string& channel)
    {
        ReadMembers(entry, place, channel, "bsdflayers", bsdf::kLayerEntry);
        const Json* const link = entry.Find("bsdflayer");
        const Json* const from = link && link->IsObject() ? link->Find("from") : nullptr;
        const std::string linkPlace = place + ".bsdflayer";
        if (link && link->IsObject())
            CheckKeys(*link, linkPlace, {"from"});
        if (!from || !from->IsString())
            return diagnostics_.Fault(linkPlace, "expected a link {\"from\": \"NODE.result\"} to a bsdflayer node");
        const NodePort* port = nullptr;
        CorePort ignored;
        std::size_t index = 0;
        if (!FindOutput(from->AsString(), linkPlace, port, ignored, index))
            return;
        if (port->type.Get() != LayerType())
            return diagnostics_.Fault(linkPlace, fmt::format("{} is a {}, expected a BSDF layer",
                                                     Printable(from->AsString()), TypeName(port->type.Get())));
        for (const auto& [name, input] : nodes_[index].parameters)
            channels_.push_back({"bsdflayers", fmt::format("{}.{}", channel, name), Copy(input),
                nodes_[index].type->FindPort(name, true)->type.Get()});
    }

    void ReadAov(const Json& entry, const std::string& place)
    {
        const Json* const id = entry.Find("id");
        std::string channel = "aov.";
        if (!id || !id->IsString() || !IsName(id->AsString()))
            diagnostics_.Fault(place + ".id", "expected a name of letters, digits and _");
        else
            channel += id->AsString();
        if (id && IsActive(entry) && !aovs_.insert(channel).second)
            diagnostics_.Fault(place + ".id", fmt::format("there are two outputs \"{}\"", id->AsString()));
        ReadMembers(entry, place, channel, "aovs", bsdf::kOutputEntry);
    }

    // The members of an entry that are channels: links and values, not the switch that stands for itself. An output's
    // colour is the output.
    template <std::size_t N>
    void ReadMembers(const Json& entry, const std::string& place, const std::string& channel, const std::string& input,
        const bsdf::Name (&members)[N])
    {
        for (const bsdf::Name& member : members)
        {
            const Json* const value = entry.Find(member.id);
            const bool isPlainSwitch = value && member.kind == bsdf::Kind::Switch && value->IsBool();
            if (!value || isPlainSwitch || member.kind == bsdf::Kind::Layer || member.kind == bsdf::Kind::Name)
                continue;
            DriveChannel(input, member.kind == bsdf::Kind::Colour ? channel : fmt::format("{}.{}", channel, member.id),
                member, *value, fmt::format("{}.{}", place, member.id));
        }
    }

    // `input` is the material's input through which the channel arrives.
    void DriveChannel(const std::string& input, const std::string& channel, const bsdf::Name& name, const Json& json,
        const std::string& place)
    {
        NodePort port;
        port.name = name.id;
        port.type = Ref<const DataType>::Share(TypeOfName(name));
        CoreInput source;
        if (ReadSource(material_, port, json, place, source))
            channels_.push_back({input, channel, std::move(source), port.type.Get()});
    }

    // What the module forwarded to the material's output is what the document drives.
    void TakeArrivingChannels()
    {
        std::unordered_set<std::string> names;
        for (const CoreOutput& output : document_.graph.outputs)
            names.insert(output.name);
        for (const std::string& input : ArrivingInputs(AsHost(document_.root)))
        {
            for (Channel& channel : channels_)
            {
                if (channel.input != input)
                    continue;
                if (names.contains(channel.name))
                    diagnostics_.Fault(Join("outputs", channel.name), "the material has a channel of this name");
                document_.graph.outputs.push_back({channel.name, std::move(channel.source), channel.type});
            }
        }
    }

    struct Channel
    {
        std::string input;
        std::string name;
        CoreInput source;
        const DataType* type = nullptr;
    };

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
    DocumentNode material_; // reads, and is read by none
    std::vector<Channel> channels_;
    std::unordered_set<std::string> aovs_; // the names of their channels
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
