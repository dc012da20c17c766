#include "template.h"

#include "values.h"

#include "host/corenode/forward.h"
#include "host/registry/datatypes.h"
#include "host/registry/reflection.h"
#include "host/registry/registry.h"

#include <fmt/format.h>

namespace velto::host
{

namespace
{

constexpr std::string_view kContextPort = "context";
constexpr std::string_view kLocalContextPort = "contextLocal"; // as nodes name it
constexpr std::string_view kLocalContextId = "contextlocal";   // as graph roots name it

// A port that takes a function has the type of what the function yields, and is marked.
Result Describe(const NodePort& source, const MutablePort& port)
{
    const DataType* const yields = FunctionResultType(source.type.Get());
    const DataType* const type = yields ? yields : source.type.Get();
    VELTO_TRY(port.SetValue(port_attribute::kFixedType, Ref<const DataType>::Share(type)));
    return yields ? port.SetValue(port_attribute::kFunctionResult, true) : Result();
}

Result AddInput(const MutablePort& inputs, const NodePort& source, MutablePort& port)
{
    MutablePort parent = inputs;
    for (std::size_t at = 0; at < source.group.size();)
    {
        const std::size_t end = std::min(source.group.find('.', at), source.group.size());
        const MutablePort outer = parent;
        VELTO_TRY(AddPort(outer, source.group.substr(at, end - at), parent));
        at = end + 1;
    }
    VELTO_TRY(AddPort(parent, source.name == kLocalContextPort ? kLocalContextId : source.name, port));
    if (!source.IsBundle())
        return Describe(source, port);
    const std::size_t elements = source.defaultElements.IsArray() ? source.defaultElements.Elements().size() : 0;
    for (std::size_t i = 0; i < elements; ++i)
    {
        MutablePort element;
        VELTO_TRY(AddPort(port, fmt::format("_{}", i), element));
        for (const NodePort& member : source.members)
        {
            MutablePort child;
            VELTO_TRY(AddPort(element, member.name, child));
            VELTO_TRY(Describe(member, child));
        }
    }
    return {};
}

// The module that knows contexts wires them. Without it a local context that is left alone is that of the sample.
Result SetUpContext(const MutableRoot& root, const MutablePort& inputs)
{
    constexpr std::string_view kSetUp = "net.velto.shadernode.SetupContext";
    if (HasRootFunction(kSetUp))
        return CallRootFunction(kSetUp, root);
    MutablePort context;
    MutablePort local;
    VELTO_TRY(inputs.FindPort(Id::OverStatic(kContextPort), context));
    VELTO_TRY(inputs.FindPort(Id::OverStatic(kLocalContextId), local));
    return context.IsEmpty() || local.IsEmpty() ? Result() : context.Connect(local, wire_mode::kDefaultContext);
}

Result Finalize(const std::string& id, const MutableRoot& root)
{
    const Data* const entry = FindEntry(registry::kDescriptionFinalizers.View(), id);
    const DescriptionFinalizer* const finalizer = entry ? entry->As<DescriptionFinalizer>() : nullptr;
    return finalizer ? (*finalizer)->finalize(finalizer->Get(), &root) : Result();
}

// The defaults that the finalizer gave the elements of a bundle, where the description has none.
void TakeDefaults(const HostNodeSystem& system, Int bundle, NodePort& port)
{
    Json elements = Json::Array();
    const std::vector<Int>& knots = system.ports[static_cast<std::size_t>(bundle)].children;
    for (std::size_t i = 0; i < knots.size(); ++i)
    {
        Json element = port.defaultElements.Elements()[i];
        for (const Int child : system.ports[static_cast<std::size_t>(knots[i])].children)
        {
            const std::string& name = system.ports[static_cast<std::size_t>(child)].name;
            const Data* const value = FindAttribute(system, child, port_attribute::kDefaultValue);
            if (value && !value->IsEmpty() && !element.Find(name))
                element.Add(name, WriteValue(value->Type(), value->Value()));
        }
        elements.Append(std::move(element));
    }
    port.defaultElements = elements;
    port.shownDefault = std::move(elements);
}

// What the root says after its set-up: defaults of bundles, and which port holds the context where nothing else is
// given. `numbers` are those of the type's ports in the root.
void TakeOver(const HostNodeSystem& system, const std::vector<Int>& numbers, NodeType& type)
{
    for (std::size_t i = 0; i < type.ports.size(); ++i)
    {
        if (type.ports[i].IsBundle() && type.ports[i].defaultElements.IsArray())
            TakeDefaults(system, numbers[i], type.ports[i]);
    }
    for (const GraphWire& wire : system.wires)
    {
        if (wire.mode != wire_mode::kDefaultContext)
            continue;
        for (NodePort& port : type.ports)
        {
            if (port.input && port.name == kLocalContextPort)
                port.follows = system.ports[static_cast<std::size_t>(wire.from)].name;
        }
    }
}

// What the root's outputs say of the whole node.
std::string Text(const HostNodeSystem& system, const Id& attribute, std::string_view otherwise)
{
    const Data* const value = FindAttribute(system, HostNodeSystem::kOutputs, attribute);
    const Id* const text = value ? value->As<Id>() : nullptr;
    return std::string(text ? text->View() : otherwise);
}

// A type whose outputs hand inputs on: each forwarding wire becomes a node that programs look through.
std::shared_ptr<NodeType> TypeOfTemplate(const std::string& id, const HostNodeSystem& system)
{
    auto type = std::make_shared<NodeType>();
    type->isDescribed = true;
    type->id = id;
    type->name = id.substr(id.rfind('.') + 1);
    type->label = Text(system, port_attribute::kLabel, type->name);
    type->category = Text(system, port_attribute::kCategory, "Utility");
    type->help = Text(system, port_attribute::kHelp, "");
    for (const GraphWire& wire : system.wires)
    {
        if (wire.mode != wire_mode::kForward)
            continue;
        const std::size_t inner = type->inner.size();
        InnerNode forward;
        forward.type = kForwardNode;
        for (const bool input : {true, false})
        {
            const Int source = input ? wire.from : wire.to;
            const Data* const fixed = FindAttribute(system, source, port_attribute::kFixedType);
            const auto* const held = fixed ? fixed->As<Ref<const DataType>>() : nullptr;
            if (!held)
                return nullptr;
            NodePort port;
            port.name = system.ports[static_cast<std::size_t>(source)].name;
            port.label = port.name;
            port.input = input;
            port.type = *held;
            port.targets.push_back({inner, input ? "in" : "out"});
            if (const Data* const value = FindAttribute(system, source, port_attribute::kDefaultValue))
            {
                ThrowIfError(port.defaultValue.CopyFrom(*value));
                port.shownDefault = WriteValue(value->Type(), value->Value());
            }
            forward.forwarded = *held;
            type->AddPort(std::move(port));
        }
        type->inner.push_back(std::move(forward));
    }
    return type;
}

} // namespace

Result BuildTemplate(NodeType& type, NodeSystem& system)
{
    system = MakeNodeSystem();
    if (!system)
        return OutOfMemory();
    const MutableRoot root(system);
    MutablePort inputs;
    MutablePort outputs;
    VELTO_TRY(root.GetInputs(inputs));
    VELTO_TRY(root.GetOutputs(outputs));
    std::vector<Int> numbers;
    for (const NodePort& port : type.ports)
    {
        MutablePort made;
        if (port.input)
            VELTO_TRY(AddInput(inputs, port, made));
        else
        {
            VELTO_TRY(AddPort(outputs, port.name, made));
            VELTO_TRY(Describe(port, made));
        }
        numbers.push_back(made.Number());
    }
    VELTO_TRY(Finalize(type.id, root));
    VELTO_TRY(SetUpContext(root, inputs));
    VELTO_TRY(root.Commit(0));
    TakeOver(AsHost(system), numbers, type);
    return {};
}

Result BuiltinTypes(std::vector<std::shared_ptr<const NodeType>>& types)
{
    for (const std::string& id : EntryNames(registry::kBuiltinNodes.View()))
    {
        const Data* const entry = FindEntry(registry::kBuiltinNodes.View(), id);
        const BuiltinNode* const node = entry ? entry->As<BuiltinNode>() : nullptr;
        Data made;
        if (node)
            VELTO_TRY((*node)->makeTemplate(node->Get(), &made));
        const NodeSystem* const system = made.As<NodeSystem>();
        if (std::shared_ptr<NodeType> type = system ? TypeOfTemplate(id, AsHost(*system)) : nullptr)
        {
            type->module = ModuleName(PublisherOf(registry::kBuiltinNodes.View(), id));
            types.push_back(std::move(type));
        }
    }
    return {};
}

} // namespace velto::host
