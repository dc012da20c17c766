// Builds a node's group in the host from its table, for given construction arguments.
#pragma once

#include "velto/nodetable.h"

#include <cstdio>
#include <span>

namespace velto
{

// What a node may say beyond its function.
struct CoreNodeOptions
{
    bool hasSideEffect = false;
    Optimizer optimizer = nullptr;
    // Rows of four for the host's own optimizer (see `CoreNodesLibInterface::CreateOptimizer`).
    const Int32* optimizerRows = nullptr;
    Int32 optimizerRowCount = 0;
    // The order in which state ports are declared where it is not that of access: a permutation of their access order.
    const UInt32* stateOrder = nullptr;
};

namespace detail
{

// The name of an element of a variadic port; NUL-terminated.
inline Result ElementName(const PortSpec& port, const Id* element, Int number, BaseArray<char>& name)
{
    char digits[24];
    const int length = std::snprintf(digits, sizeof(digits), "[%lld]", static_cast<long long>(number));
    const std::string_view tail =
        element ? element->View() : std::string_view(digits, static_cast<std::size_t>(length));
    name.Clear();
    VELTO_TRY(name.EnsureCapacity(static_cast<Int>(port.name.size() + tail.size() + 2)));
    const auto append = [&name](std::string_view text) {
        for (const char c : text)
            name.Append(c).Ignore(); // there is room
    };
    append(port.name);
    append(element ? "#" : "");
    append(tail);
    return name.Append('\0');
}

// The wildcard that stands for a variadic port of unknown length.
inline Result WildcardName(const PortSpec& port, BaseArray<char>& name)
{
    name.Clear();
    VELTO_TRY(name.Append('.'));
    for (const char c : port.name)
        VELTO_TRY(name.Append(c));
    for (const char c : std::string_view("#*\0", 3))
        VELTO_TRY(name.Append(c));
    return {};
}

inline Result ArgumentError(std::string_view name, const char* expected)
{
    char text[256];
    const int length = std::snprintf(
        text, sizeof(text), "The argument %.*s must be %s.", static_cast<int>(name.size()), name.data(), expected);
    return MakeError(
        error::kIllegalArgument, {text, Min<std::size_t>(static_cast<std::size_t>(length), sizeof(text) - 1)});
}

// The construction argument `name`, which must be a `T`; null where it is not given.
template <class T>
Result GetArgument(const DictionaryObject* arguments, std::string_view name, const char* expected, const T*& value)
{
    const DataType* type = nullptr;
    VELTO_TRY(GetDataType<T>(type)); // without memory for it the argument would seem to be of another type
    const velto::Data* const data = Bound<DataDictionaryInterface>().GetData(arguments, Id::OverStatic(name));
    value = data ? data->As<T>() : nullptr;
    return !data || value ? Result() : ArgumentError(name, expected);
}

// What the construction arguments say of a variadic port.
struct ElementList
{
    const BaseArray<Id>* names = nullptr;
    Int count = -1; // -1: not given

    static Result Of(const PortSpec& port, const DictionaryObject* arguments, ElementList& list)
    {
        if (port.namedElements)
        {
            VELTO_TRY(GetArgument(arguments, port.list, "an array of names", list.names));
            list.count = list.names ? list.names->Count() : -1;
            return {};
        }
        constexpr const char* expected = "a number of elements, 0 or more";
        const Int* count = nullptr;
        VELTO_TRY(GetArgument(arguments, port.list, expected, count));
        list.count = count ? *count : -1;
        return !count || *count >= 0 ? Result() : ArgumentError(port.list, expected);
    }

    const Id* NameOf(Int i) const { return names ? &(*names)[i] : nullptr; }
};

} // namespace detail

inline Result DescribeAccess(const NodeTable& table, MicroNode* record, AccessBuilder* builder)
{
    const auto& micronode = Bound<MicroNodeInterface>();
    const UInt32 fixed = table.portCount - table.variadicCount;
    for (UInt32 i = 0; i < fixed; ++i)
    {
        const PortSpec& port = table.ports[i];
        VELTO_TRY(micronode.PrivateDescribePortAccess(builder, i, PortKey(port.name, port.input), port.input ? 0 : 1));
    }
    const auto* const ranges = reinterpret_cast<const VariadicRange*>(record + 1);
    BaseArray<char> family;
    for (UInt32 v = 0; v < table.variadicCount; ++v)
    {
        VELTO_TRY(detail::WildcardName(table.ports[fixed + v], family));
        VELTO_TRY(micronode.PrivateExportPortAccess(builder, ranges[v].first, family.Data(), kExportAccessFlags));
    }
    return {};
}

namespace detail
{

inline Result CreatePort(MicroNodeGroup* group, const PortSpec& port, UInt key, const char* name)
{
    const DataType* type = nullptr;
    VELTO_TRY(port.type(type));
    return Bound<MicroNodeGroupInterface>().PrivateCreatePort(
        group, key, name, port.input ? port_flags::kInput : port_flags::kOutput, 0, type, -1);
}

// The fixed ports in order of declaration: shared groups, the node's own, state ports.
inline Result CreateFixedPorts(const NodeTable& table, const CoreNodeOptions& options, MicroNodeGroup* group)
{
    const UInt32 fixed = table.portCount - table.variadicCount;
    const auto create = [&](UInt32 i) {
        const PortSpec& port = table.ports[i];
        return CreatePort(group, port, PortKey(port.name, port.input), port.name.data());
    };
    for (const PortRank rank : {PortRank::Shared, PortRank::Own})
    {
        for (UInt32 i = 0; i < fixed; ++i)
        {
            if (table.ports[i].rank == rank)
                VELTO_TRY(create(i));
        }
    }
    UInt32 firstState = 0;
    while (firstState < fixed && table.ports[firstState].rank != PortRank::State)
        ++firstState;
    for (UInt32 i = firstState, k = 0; i < fixed; ++i)
    {
        if (table.ports[i].rank == PortRank::State)
            VELTO_TRY(create(options.stateOrder ? firstState + options.stateOrder[k++] : i));
    }
    return {};
}

inline Result CreateVariadicPorts(const NodeTable& table, const DictionaryObject* arguments, MicroNodeGroup* group)
{
    BaseArray<char> name;
    for (UInt32 v = table.portCount - table.variadicCount; v < table.portCount; ++v)
    {
        const PortSpec& port = table.ports[v];
        ElementList list;
        VELTO_TRY(ElementList::Of(port, arguments, list));
        if (list.count < 0)
        {
            VELTO_TRY(WildcardName(port, name));
            VELTO_TRY(CreatePort(group, port, kKeyBit, name.Data()));
        }
        for (Int i = 0; i < list.count; ++i)
        {
            VELTO_TRY(ElementName(port, list.NameOf(i), i, name));
            VELTO_TRY(CreatePort(group, port, kKeyBit, name.Data()));
        }
    }
    return {};
}

inline Result SetMarks(const NodeTable& table, MicroNodeGroup* group)
{
    for (const PortSpec& port : std::span(table.ports, table.portCount))
    {
        if (port.marks == 0)
            continue;
        PortMicroNode* node = nullptr;
        MicroNode* implementation = nullptr;
        VELTO_TRY(Bound<MicroNodeGroupInterface>().PrivateGetMicroNode(group, PortKey(port.name, port.input), &node));
        VELTO_TRY(Bound<MicroNodeInterface>().GetImplementation(node, &implementation));
        implementation->flags |= port.marks;
    }
    return {};
}

inline Result MarkUnwritten(const NodeTable& table, MicroNodeGroup* group)
{
    for (const PortSpec& port : std::span(table.ports, table.portCount))
    {
        if (port.mayStayUnwritten)
            VELTO_TRY(Bound<CoreNodesLibInterface>().SetMayStayUnwritten(group, PortKey(port.name, port.input)));
    }
    return {};
}

// Fills in the words that follow the record: the ranges of variadic ports, the arguments.
inline Result FillExtension(const NodeTable& table, const DictionaryObject* arguments, MicroNode* node)
{
    auto* const ranges = reinterpret_cast<VariadicRange*>(node + 1);
    for (UInt32 v = 0; v < table.variadicCount; ++v)
    {
        ElementList list;
        VELTO_TRY(ElementList::Of(table.ports[table.portCount - table.variadicCount + v], arguments, list));
        ranges[v] = list.count < 0 ? VariadicRange{} : VariadicRange{static_cast<Int>(node->portCount), list.count};
        node->portCount += static_cast<UInt>(ranges[v].count);
    }
    auto* const words = reinterpret_cast<Int*>(node + 1);
    for (UInt32 i = 0; i < table.argumentCount; ++i)
    {
        const ArgumentSpec& argument = table.arguments[i];
        const Int* given = nullptr;
        VELTO_TRY(GetArgument(arguments, argument.name, "a whole number", given));
        words[argument.word] = given ? *given : argument.defaultValue;
    }
    return {};
}

inline Result CreateMicroNode(const NodeTable& table, const DictionaryObject* arguments, MicroNode** record)
{
    void* const memory = Allocate(sizeof(MicroNode) + table.words * sizeof(Int));
    if (!memory)
        return OutOfMemory();
    auto* const node = ::new (memory) MicroNode;
    node->kind = table.kind;
    node->destructor = [](MicroNode* self) { Bound<SystemInterface>().Free(self); };
    node->access = table.access;
    node->portCount = table.portCount - table.variadicCount;
    node->compute = table.compute;
    Result filled = FillExtension(table, arguments, node);
    if (filled.IsError())
        node->destructor(node);
    else
        *record = node;
    return filled;
}

} // namespace detail

inline Result BuildMicroNodeGroup(const NodeTable& table, const Id& id, const CoreNodeOptions& options,
    const DictionaryObject* arguments, MicroNodeGroup** group)
{
    const auto& groups = Bound<MicroNodeGroupInterface>();
    Ref<MicroNodeGroup> made;
    VELTO_TRY(groups.Alloc(made.Receive()));
    VELTO_TRY(groups.SetId(made.Get(), id));
    VELTO_TRY(detail::CreateFixedPorts(table, options, made.Get()));
    VELTO_TRY(detail::CreateVariadicPorts(table, arguments, made.Get()));
    VELTO_TRY(detail::SetMarks(table, made.Get()));
    MicroNode* record = nullptr;
    VELTO_TRY(detail::CreateMicroNode(table, arguments, &record));
    VELTO_TRY(groups.AddMicroNode(made.Get(), record));
    VELTO_TRY(Bound<CoreNodeInstanceBaseInterface>().InitFactory(made.Get(), options.hasSideEffect));
    VELTO_TRY(detail::MarkUnwritten(table, made.Get()));
    if (options.optimizer)
        VELTO_TRY(Bound<CoreNodesLibInterface>().SetOptimizer(made.Get(), options.optimizer));
    if (options.optimizerRows)
        VELTO_TRY(Bound<CoreNodesLibInterface>().CreateOptimizer(
            made.Get(), options.optimizerRows, options.optimizerRowCount));
    VELTO_TRY(groups.PrivateFinalize(made.Get()));
    *group = made.Detach();
    return {};
}

} // namespace velto
