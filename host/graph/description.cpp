#include "description.h"

#include "descriptionfiles.h"
#include "template.h"
#include "values.h"

#include "host/corenode/convert.h"
#include "host/corenode/factory.h"
#include "host/corenode/group.h"
#include "host/registry/datatypes.h"
#include "host/registry/registry.h"
#include "host/system/guard.h"
#include "host/system/output.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace velto::host
{

namespace
{

// Makes a node type of a description, with its faults at their places.
class DescriptionReader
{
public:
    DescriptionReader(const Json& json, Diagnostics& diagnostics) : json_(json), diagnostics_(diagnostics) {}

    std::shared_ptr<NodeType> Read()
    {
        type_->isDescribed = true;
        type_->id = Text("id");
        type_->name = type_->id.substr(type_->id.rfind('.') + 1);
        type_->label = Text("label");
        type_->category = Text("category");
        type_->help = Text("help");
        type_->keywords = OptionalText(json_, "keywords");
        ReadNodes();
        if (!diagnostics_.HasFaults())
            ReadPorts();
        ReadButtons();
        return type_;
    }

private:
    std::string Text(const char* name) const
    {
        const Json* const member = json_.Find(name);
        if (member && member->IsString())
            return member->AsString();
        diagnostics_.Fault(name, "expected a string");
        return {};
    }

    static std::string OptionalText(const Json& json, const char* name)
    {
        const Json* const member = json.Find(name);
        return member && member->IsString() ? member->AsString() : std::string();
    }

    void ReadNodes()
    {
        const Json* const nodes = json_.Find("nodes");
        if (!nodes || !nodes->IsObject() || nodes->GetMembers().empty())
            return diagnostics_.Fault("nodes", "expected an object of core nodes");
        for (const auto& [name, json] : nodes->GetMembers())
        {
            const std::string place = "nodes." + name;
            InnerNode inner;
            inner.name = name;
            inner.type = OptionalText(json, "type");
            if (const Json* const arguments = json.Find("arguments"))
                ReadArguments(*arguments, place + ".arguments", diagnostics_, inner.arguments);
            const Data* const entry = FindEntry(registry::kCoreNodes.View(), inner.type);
            const CoreNodeFactory* const factory = entry ? entry->As<CoreNodeFactory>() : nullptr;
            Ref<MicroNodeGroup> group;
            if (!factory)
                diagnostics_.Fault(
                    place + ".type", fmt::format("there is no core node \"{}\"{}", Printable(inner.type),
                                         Suggestion(inner.type, EntryNames(registry::kCoreNodes.View()))));
            else
            {
                TryBuild(*factory, inner.arguments, place + ".arguments", group);
                TryBuild(*factory, {}, place, group);
            }
            type_->inner.push_back(std::move(inner));
            groups_.push_back(std::move(group));
        }
        if (diagnostics_.HasFaults())
            return;
        for (std::size_t i = 0; i < type_->inner.size(); ++i)
        {
            if (const Json* const inputs = nodes->GetMembers()[i].second.Find("inputs"))
                ReadGiven(i, *inputs, fmt::format("nodes.{}.inputs", type_->inner[i].name));
        }
    }

    void TryBuild(const CoreNodeFactory& factory, const DataDictionary& arguments, const std::string& place,
        Ref<MicroNodeGroup>& group)
    {
        const Result made = CreateGroup(factory, arguments, group);
        ThrowIfOutOfMemory(made);
        if (made.IsError())
            diagnostics_.Fault(place, made.Message());
    }

    // What the description gives an inner node: a value, or a link to another inner node.
    void ReadGiven(std::size_t index, const Json& inputs, const std::string& place)
    {
        for (const auto& [name, json] : inputs.GetMembers())
        {
            const std::string portPlace = fmt::format("{}.{}", place, name);
            const GroupPort* const port = AsHost(groups_[index]).FindPort(name);
            if (!port || !port->input)
            {
                diagnostics_.Fault(portPlace, "there is no such input");
                continue;
            }
            InnerNode::Given given;
            given.port = name;
            if (const Json* const from = json.IsObject() ? json.Find("from") : nullptr)
            {
                InnerPort source;
                const GroupPort* output = nullptr;
                if (!FindPort(from->AsString(), false, portPlace, source, output))
                    continue;
                const DataType* const wanted = ValueType(port->type.Get());
                if (!IsConvertible(output->type.Get(), wanted))
                    diagnostics_.Fault(
                        portPlace, fmt::format("{} is a {}, which does not turn into a {}", from->AsString(),
                                       TypeName(output->type.Get()), TypeName(wanted)));
                given.link = true;
                given.from = source;
            }
            else if (!ReadValue(json, ValueType(port->type.Get()), portPlace, diagnostics_, given.value))
                continue;
            type_->inner[index].given.push_back(std::move(given));
        }
    }

    // `node.port` of the inner nodes.
    bool FindPort(
        const std::string& text, bool input, const std::string& place, InnerPort& found, const GroupPort*& port)
    {
        const auto dot = text.find('.');
        const std::string name = text.substr(0, dot);
        for (std::size_t i = 0; i < type_->inner.size() && dot != text.npos; ++i)
        {
            if (type_->inner[i].name != name)
                continue;
            found = {i, text.substr(dot + 1)};
            port = AsHost(groups_[i]).FindPort(found.port);
            if (port && port->input == input)
                return true;
        }
        diagnostics_.Fault(
            place, fmt::format("the nodes have no {} \"{}\"", input ? "input" : "output", Printable(text)));
        return false;
    }

    void ReadPorts()
    {
        for (const char* const side : {"inputs", "outputs"})
        {
            const bool input = side == std::string_view("inputs");
            const Json* const list = json_.Find(side);
            if (!list || !list->IsArray())
            {
                diagnostics_.Fault(side, "expected an array of ports");
                continue;
            }
            for (std::size_t i = 0; i < list->Elements().size(); ++i)
            {
                NodePort port;
                port.input = input;
                if (ReadPort(list->Elements()[i], fmt::format("{}[{}]", side, i), port))
                    type_->AddPort(std::move(port));
            }
        }
    }

    bool ReadPort(const Json& json, const std::string& place, NodePort& port)
    {
        port.name = OptionalText(json, "name");
        if (port.name.empty())
        {
            diagnostics_.Fault(place + ".name", "expected a string");
            return false;
        }
        if (type_->FindPort(port.name, port.input))
            diagnostics_.Fault(place + ".name", fmt::format("there are two ports \"{}\"", port.name));
        port.label = OptionalText(json, "label");
        port.help = OptionalText(json, "help");
        port.group = OptionalText(json, "group");
        port.id = OptionalText(json, "id");
        for (const auto& [key, to] : {std::pair("min", &port.minimum), std::pair("max", &port.maximum)})
        {
            if (const Json* const limit = json.Find(key))
                *to = *limit;
        }
        if (const Json* const bundle = json.Find("bundle"); bundle && port.input)
            return ReadBundle(json, *bundle, place, port);
        if (!ReadTargets(json, place, port))
            return false;
        ReadEnumeration(json, place, port);
        if (const Json* const value = json.Find("default"))
        {
            port.shownDefault = *value;
            // That of every element, where the port is variadic.
            if (!ReadValue(*value, ValueType(port.type.Get()), place + ".default", diagnostics_, port.defaultValue))
                return false;
        }
        return true;
    }

    // What a document's value for a port is.
    static const DataType* ValueType(const DataType* type)
    {
        const DataType* const yields = FunctionResultType(type);
        return yields ? yields : type;
    }

    bool ReadTargets(const Json& json, const std::string& place, NodePort& port)
    {
        std::vector<std::string> names;
        if (const Json* const to = json.Find(port.input ? "to" : "from"))
        {
            if (to->IsString())
                names.push_back(to->AsString());
            for (const Json& element : to->Elements())
                names.push_back(element.AsString());
        }
        if (names.empty())
        {
            diagnostics_.Fault(place, port.input ? "expected \"to\", an array of inputs of the nodes"
                                                 : "expected \"from\", an output of the nodes");
            return false;
        }
        for (const std::string& name : names)
        {
            InnerPort target;
            const GroupPort* inner = nullptr;
            if (!FindPort(name, port.input, place, target, inner))
                return false;
            // Ports of one input may differ where a value of one can stand for the other.
            const DataType* const type = inner->type.Get();
            if (!port.type)
            {
                port.type = inner->type;
                port.isVariadic = inner->wildcard;
                port.namedBy = NamingArgument(AsHost(groups_[target.node]), *inner);
            }
            else if (!IsConvertible(ValueType(port.type.Get()), ValueType(type)))
                diagnostics_.Fault(
                    place, fmt::format("{} is a {}, the port a {}", name, TypeName(type), TypeName(port.type.Get())));
            target.valueType = ValueType(type);
            port.targets.push_back(std::move(target));
        }
        return true;
    }

    void ReadEnumeration(const Json& json, const std::string& place, NodePort& port)
    {
        const Json* const values = json.Find("values");
        if (!values)
            return;
        const Json* const fallback = json.Find("fallback");
        port.hasFallback = !fallback || fallback->AsBool();
        for (const Json& value : values->Elements())
        {
            const std::string id = OptionalText(value, "id");
            if (id.empty())
                diagnostics_.Fault(place + ".values", "expected objects with an id");
            port.values.push_back(id);
            port.valueLabels.push_back(OptionalText(value, "label"));
        }
    }

    bool ReadBundle(const Json& json, const Json& bundle, const std::string& place, NodePort& port)
    {
        if (bundle.Elements().empty())
        {
            diagnostics_.Fault(place + ".bundle", "expected an array of ports");
            return false;
        }
        for (std::size_t i = 0; i < bundle.Elements().size(); ++i)
        {
            const std::string memberPlace = fmt::format("{}.bundle[{}]", place, i);
            NodePort member;
            if (!ReadPort(bundle.Elements()[i], memberPlace, member))
                return false;
            if (!member.isVariadic || !member.namedBy.empty())
                diagnostics_.Fault(memberPlace, "expected a port whose inner port takes any number of elements");
            port.members.push_back(std::move(member));
        }
        if (const Json* const elements = json.Find("default"))
        {
            CheckElements(*elements, place + ".default", port.members);
            port.defaultElements = *elements;
            port.shownDefault = *elements;
        }
        return true;
    }

    void CheckElements(const Json& elements, const std::string& place, const std::vector<NodePort>& members)
    {
        if (!elements.IsArray())
            diagnostics_.Fault(place, "expected an array of objects");
        for (std::size_t i = 0; i < elements.Elements().size(); ++i)
        {
            const std::string elementPlace = fmt::format("{}[{}]", place, i);
            if (!elements.Elements()[i].IsObject())
                diagnostics_.Fault(elementPlace, "expected an object");
            for (const auto& [name, json] : elements.Elements()[i].GetMembers())
            {
                const std::string memberPlace = fmt::format("{}.{}", elementPlace, name);
                const auto member = std::find_if(members.begin(), members.end(),
                    [&wanted = name](const NodePort& port) { return port.name == wanted; });
                Data ignored;
                if (member == members.end())
                    diagnostics_.Fault(memberPlace, "the bundle has no such member");
                else if (member->type)
                    ReadValue(json, ValueType(member->type.Get()), memberPlace, diagnostics_, ignored);
            }
        }
    }

    void ReadButtons()
    {
        const Json* const list = json_.Find("buttons");
        for (std::size_t i = 0; list && i < list->Elements().size(); ++i)
        {
            const Json& json = list->Elements()[i];
            NodeButtons buttons;
            buttons.id = OptionalText(json, "id");
            if (const Json* const commands = json.Find("commands"))
            {
                for (const Json& command : commands->Elements())
                    buttons.commands.push_back(command.IsString() ? command.AsString() : std::string());
            }
            if (buttons.id.empty() || std::count(buttons.commands.begin(), buttons.commands.end(), "") > 0)
                diagnostics_.Fault(fmt::format("buttons[{}]", i), "expected an id, and commands by their ids");
            type_->buttons.push_back(std::move(buttons));
        }
    }

    const Json& json_;
    Diagnostics& diagnostics_;
    std::shared_ptr<NodeType> type_ = std::make_shared<NodeType>();
    std::vector<Ref<MicroNodeGroup>> groups_;
};

struct Made
{
    std::shared_ptr<const NodeType> type;
    std::filesystem::path file;
    std::string publisher;
};

// The node types that the processor has made, as often as it was asked.
std::vector<Made>& Types()
{
    static std::vector<Made> types;
    return types;
}

Result ProcessDescription(
    const DescriptionProcessorObject*, const Id&, const DescriptionObject* description, ProcessedDescription* result)
{
    return Guarded([&]() -> Result {
        const DescriptionFile& file = FileOf(*description);
        Diagnostics diagnostics;
        std::shared_ptr<NodeType> type = DescriptionReader(file.json, diagnostics).Read();
        type->module = ModuleName(Publisher::Current());
        const auto known = std::find_if(Types().begin(), Types().end(),
            [&](const Made& made) { return made.type->id == type->id && made.file != file.path; });
        if (known != Types().end() && known->publisher != Publisher::Current())
            return MakeError(error::kIllegalArgument,
                fmt::format("{} describes {}, which {} does already.", file.path.string(), type->id, known->publisher));
        if (known != Types().end())
            diagnostics.Fault("id", "another description has this id");
        NodeSystem root;
        if (!diagnostics.HasFaults())
        {
            if (Result built = BuildTemplate(*type, root); built.IsError())
            {
                ThrowIfOutOfMemory(built);
                diagnostics.Fault("", built.Message());
            }
        }
        if (diagnostics.HasFaults())
        {
            WarnOnce(file, diagnostics);
            return {};
        }
        Types().push_back({type, file.path, Publisher::Current()});
        result->value = type.get();
        result->destroy = [](void* value) {
            const auto found = std::find_if(
                Types().rbegin(), Types().rend(), [value](const Made& known) { return known.type.get() == value; });
            if (found != Types().rend())
                Types().erase(std::next(found).base());
        };
        return {};
    });
}

} // namespace

std::vector<std::shared_ptr<const NodeType>> DescribedNodes()
{
    std::vector<std::shared_ptr<const NodeType>> nodes;
    std::vector<std::string_view> seen;
    for (const auto& [type, file, publisher] : Types())
    {
        if (std::find(seen.begin(), seen.end(), type->id) != seen.end())
            continue;
        seen.push_back(type->id);
        nodes.push_back(type);
    }
    return nodes;
}

Result RegisterDescriptionProcessor()
{
    static DescriptionProcessorObject processor;
    processor.process = &ProcessDescription;
    processor.references = kImmortal;
    return RegistryService().InsertEntry(registry::kDescriptionProcessors, "net.velto.node.processor.template", [] {
        Data data;
        data.Set(DescriptionProcessor::Share(&processor)).Ignore();
        return data;
    }());
}

} // namespace velto::host
