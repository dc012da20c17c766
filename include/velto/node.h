// A node is a function: the parameters of its compute function are its ports, in access order, each stated once.
//
//     static ColorA Tint(In<"color", ColorA> color, In<"amount", Float> amount) { ... }
//     VELTO_CORE_NODE("net.example.tint", Tint);
//
// The return value is the port `result`, behind the others; a node that can fail returns `Result` and has its result as
// an `Out`. What reads slots, declares ports and fills records is derived from the function's type at compile time.
#pragma once

#include "velto/corenodes.h"
#include "velto/module.h"
#include "velto/porttypes.h"

namespace velto
{

// When a port is declared, among a node's ports: shared groups first, state ports last.
enum class PortRank : std::uint8_t
{
    Shared,
    Own,
    State,
};

struct PortSpec
{
    std::string_view name;
    bool input = true;
    PortRank rank = PortRank::Own;
    Int32 marks = 0;
    Result (*type)(const DataType*& type) = nullptr;
    // Of a port that stands for any number of ports: the construction argument that says how many, and whether its
    // elements are named by the ids in that argument (`color#base`) or numbered (`color[0]`).
    std::string_view list = {};
    bool namedElements = false;

    constexpr bool IsVariadic() const { return !list.empty(); }
};

// Where the elements of a variadic port lie, in the node's record.
struct VariadicRange
{
    Int first = -1; // access index
    Int count = 0;
};

// Reads a call's slots.
class PortReader
{
public:
    PortReader(const MicroNode* record, const Binding* binding, Int sample = 0)
        : record_(record), binding_(binding), sample_(sample)
    {
    }

    const Slot& SlotAt(Int index) const
    {
        return *reinterpret_cast<const Slot*>(binding_->frame + binding_->offsets[index]);
    }
    void* Value(Int index) const
    {
        const Slot& slot = SlotAt(index);
        return static_cast<std::byte*>(slot.value) + sample_ * slot.stride;
    }
    bool IsConnected(Int index) const { return (SlotAt(index).flags & slot_flags::kNotConnected) == 0; }
    bool IsInUse(Int index) const { return (SlotAt(index).flags & slot_flags::kNotInUse) == 0; }

    // The node's own words behind the record.
    template <class T>
    const T& Extension(UInt32 word) const
    {
        return *reinterpret_cast<const T*>(reinterpret_cast<const Int*>(record_ + 1) + word);
    }

private:
    const MicroNode* record_;
    const Binding* binding_;
    Int sample_; // 0 but in a batch; strides of single samples are 0
};

// --- The kinds of parameter. Each names its ports, how many words it has in the record, and how it is read. ---

namespace detail
{
template <class T>
inline constexpr bool kHeldByValue = std::is_trivially_copyable_v<T> && sizeof(T) <= 16;

template <class T>
constexpr Result (*kTypeGetter)(const DataType*&) = &GetDataType<T>;
} // namespace detail

// An input. Made from a plain value too, so that a test calls the function directly.
template <FixedString Name, class T>
class In
{
public:
    static constexpr std::array<PortSpec, 1> kPorts{
        PortSpec{.name = Name.View(), .input = true, .type = detail::kTypeGetter<T>}};
    static constexpr UInt32 kWords = 0;
    static In Read(const PortReader& reader, Int index, UInt32)
    {
        return In(*static_cast<const T*>(reader.Value(index)));
    }

    In(const T& value) : value_(Hold(value)) {}

    const T& operator*() const
    {
        if constexpr (detail::kHeldByValue<T>)
            return value_;
        else
            return *value_;
    }
    const T* operator->() const { return &**this; }
    operator const T&() const { return **this; }

private:
    using Held = std::conditional_t<detail::kHeldByValue<T>, T, const T*>;
    static constexpr Held Hold(const T& value)
    {
        if constexpr (detail::kHeldByValue<T>)
            return value;
        else
            return &value;
    }

    Held value_;
};

// An input that knows whether anything is connected. Held by address: a value with a flag beside it would be copied
// through memory.
template <FixedString Name, class T>
class Connected
{
public:
    static constexpr auto kPorts = In<Name, T>::kPorts;
    static constexpr UInt32 kWords = 0;
    static Connected Read(const PortReader& reader, Int index, UInt32)
    {
        return Connected(*static_cast<const T*>(reader.Value(index)), reader.IsConnected(index));
    }

    Connected(const T& value, bool connected = true) : value_(&value), connected_(connected) {}

    const T& operator*() const { return *value_; }
    const T* operator->() const { return value_; }
    operator const T&() const { return *value_; }

    bool IsConnected() const { return connected_; }

private:
    const T* value_;
    bool connected_;
};

namespace detail
{

template <FixedString Name, class T, Int32 Marks, PortRank Rank>
class Output
{
public:
    static constexpr std::array<PortSpec, 1> kPorts{
        PortSpec{.name = Name.View(), .input = false, .rank = Rank, .marks = Marks, .type = kTypeGetter<T>}};
    static constexpr UInt32 kWords = 0;

    explicit Output(T& value) : value_(&value) {}

    T& operator*() const { return *value_; }
    T* operator->() const { return value_; }
    template <class U>
    requires std::is_assignable_v<T&, U&&>
    void operator=(U&& value) const { *value_ = std::forward<U>(value); }

private:
    T* value_;
};

} // namespace detail

#define VELTO_OUTPUT_PARAMETER(Parameter, marks, rank)                                                                 \
    template <FixedString Name, class T>                                                                               \
    class Parameter : public detail::Output<Name, T, marks, rank>                                                      \
    {                                                                                                                  \
    public:                                                                                                            \
        using detail::Output<Name, T, marks, rank>::Output;                                                            \
        using detail::Output<Name, T, marks, rank>::operator=;                                                         \
        static Parameter Read(const PortReader& reader, Int index, UInt32)                                             \
        {                                                                                                              \
            return Parameter(*static_cast<T*>(reader.Value(index)));                                                   \
        }                                                                                                              \
    }

// An output that every successful call writes.
VELTO_OUTPUT_PARAMETER(Out, 0, PortRank::Own);
// An output that a successful call may leave as it was.
VELTO_OUTPUT_PARAMETER(Optional, port_mark::kMayStayUnwritten, PortRank::Own);
// An output that is made once per setup and survives between calls.
VELTO_OUTPUT_PARAMETER(Once, port_mark::kOncePerSetup, PortRank::Own);
// A port that survives between calls of one instance.
VELTO_OUTPUT_PARAMETER(State, port_mark::kState, PortRank::State);
#undef VELTO_OUTPUT_PARAMETER

// An output that knows whether anybody reads it, and may stay unwritten.
template <FixedString Name, class T>
class Used : public detail::Output<Name, T, port_mark::kMayStayUnwritten, PortRank::Own>
{
    using Base = detail::Output<Name, T, port_mark::kMayStayUnwritten, PortRank::Own>;

public:
    using Base::operator=;
    static Used Read(const PortReader& reader, Int index, UInt32)
    {
        return Used(*static_cast<T*>(reader.Value(index)), reader.IsInUse(index));
    }

    explicit Used(T& value, bool used = true) : Base(value), used_(used) {}

    bool IsUsed() const { return used_; }

private:
    bool used_;
};

// Any number of inputs of one type. Elements are numbered, `name[0]`, unless `List` names a construction argument with
// ids.
template <FixedString Name, class T, FixedString List = Name>
class Variadic
{
public:
    static constexpr std::array<PortSpec, 1> kPorts{PortSpec{.name = Name.View(),
        .input = true,
        .type = detail::kTypeGetter<T>,
        .list = List.View(),
        .namedElements = List.View() != Name.View()}};
    static constexpr UInt32 kWords = sizeof(VariadicRange) / sizeof(Int);
    static Variadic Read(const PortReader& reader, Int, UInt32 word)
    {
        return Variadic(reader, reader.Extension<VariadicRange>(word));
    }

    Variadic(const PortReader& reader, const VariadicRange& range) : reader_(reader), range_(range) {}

    Int Count() const { return range_.count; }
    const T& operator[](Int i) const { return *static_cast<const T*>(reader_.Value(range_.first + i)); }

private:
    PortReader reader_;
    VariadicRange range_;
};

// A number that the node is built with; no port.
template <FixedString Name, Int Default>
class Argument
{
public:
    static constexpr std::array<PortSpec, 0> kPorts{};
    static constexpr UInt32 kWords = 1;
    static constexpr std::string_view kName = Name.View();
    static constexpr Int kDefault = Default;
    static Argument Read(const PortReader& reader, Int, UInt32 word) { return Argument(reader.Extension<Int>(word)); }

    Argument(Int value) : value_(value) {}
    operator Int() const { return value_; }

private:
    Int value_;
};

// --- From a function to a node. ---

struct ArgumentSpec
{
    std::string_view name;
    Int defaultValue;
    UInt32 word;
};

// What the host needs to know of a node; all of it constant data.
struct NodeTable
{
    const PortSpec* ports = nullptr; // in access order, those that stand for many behind all others
    UInt32 portCount = 0;
    UInt32 variadicCount = 0;
    UInt32 words = 0; // of the record's extension; ranges of the variadic ports come first, in their order
    const ArgumentSpec* arguments = nullptr;
    UInt32 argumentCount = 0;
    MicroNodeKind kind = MicroNodeKind::Sample;
    void (*compute)(Result*, const MicroNode*, const Binding*) = nullptr;
    Result (*access)(MicroNode*, AccessBuilder*) = nullptr;
};

struct CoreNodeDeclaration;

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

Result DescribeAccess(const NodeTable& table, MicroNode* record, AccessBuilder* builder);
Result BuildMicroNodeGroup(const NodeTable& table, const Id& id, const CoreNodeOptions& options,
    const DictionaryObject* arguments, MicroNodeGroup** group);

namespace detail
{

template <class P>
inline constexpr bool kIsVariadicParameter = P::kPorts.size() == 1 && P::kWords == 2;
template <class P>
inline constexpr bool kIsArgumentParameter = P::kPorts.size() == 0;
template <class P>
inline constexpr UInt32 kFixedPorts = kIsVariadicParameter<P> ? 0 : P::kPorts.size();

template <class R>
inline constexpr bool kReturnsValue = !std::is_void_v<R> && !std::is_same_v<R, Result>;

template <auto F, MicroNodeKind Kind>
struct NodeOf;

template <class R, class... P, R (*F)(P...), MicroNodeKind Kind>
struct NodeOf<F, Kind>
{
    static constexpr std::size_t kParameters = sizeof...(P);
    static constexpr UInt32 kFixed = (kFixedPorts<P> + ... + 0) + (kReturnsValue<R> ? 1 : 0);
    static constexpr UInt32 kVariadics = (UInt32(kIsVariadicParameter<P>) + ... + 0);
    static constexpr UInt32 kArguments = (UInt32(kIsArgumentParameter<P>) + ... + 0);

    struct Place
    {
        Int index; // of the parameter's first port; of a variadic parameter none
        UInt32 word;
    };

    static constexpr std::array<Place, kParameters> kPlaces = [] {
        std::array<Place, kParameters> places{};
        std::size_t i = 0;
        Int index = 0;
        UInt32 rangeWord = 0;
        UInt32 argumentWord = kVariadics * 2;
        [[maybe_unused]] const auto place = [&](bool variadic, bool argument, UInt32 ports) {
            places[i++] = {index, argument ? argumentWord : rangeWord};
            index += ports;
            rangeWord += variadic ? 2 : 0;
            argumentWord += argument ? 1 : 0;
        };
        (place(kIsVariadicParameter<P>, kIsArgumentParameter<P>, kFixedPorts<P>), ...);
        return places;
    }();

    static constexpr std::array<PortSpec, kFixed + kVariadics> kPorts = [] {
        std::array<PortSpec, kFixed + kVariadics> ports{};
        std::size_t i = 0;
        [[maybe_unused]] const auto add = [&](const auto& specs, bool wanted) {
            for (const PortSpec& spec : specs)
            {
                if (wanted)
                    ports[i++] = spec;
            }
        };
        (add(P::kPorts, !kIsVariadicParameter<P>), ...);
        if constexpr (kReturnsValue<R>)
            ports[i++] = PortSpec{.name = "result", .input = false, .type = kTypeGetter<R>};
        (add(P::kPorts, kIsVariadicParameter<P>), ...);
        return ports;
    }();

    static constexpr std::array<ArgumentSpec, kArguments> kArgumentSpecs = [] {
        std::array<ArgumentSpec, kArguments> specs{};
        std::size_t parameter = 0;
        std::size_t i = 0;
        [[maybe_unused]] const auto add = [&]<class Q>(const Q*) {
            if constexpr (kIsArgumentParameter<Q>)
                specs[i++] = {Q::kName, Q::kDefault, kPlaces[parameter].word};
            ++parameter;
        };
        (add(static_cast<const P*>(nullptr)), ...);
        return specs;
    }();

    static constexpr bool HasDistinctPorts()
    {
        for (std::size_t i = 0; i < kPorts.size(); ++i)
        {
            for (std::size_t j = 0; j < i; ++j)
            {
                if (kPorts[i].name == kPorts[j].name)
                    return false;
            }
        }
        return true;
    }
    static_assert(HasDistinctPorts(), "two ports of a node have one name");

    template <std::size_t... I>
    static Result Run(const PortReader& reader, std::index_sequence<I...>)
    {
        if constexpr (std::is_same_v<R, Result>)
            return F(P::Read(reader, kPlaces[I].index, kPlaces[I].word)...);
        else if constexpr (std::is_void_v<R>)
            F(P::Read(reader, kPlaces[I].index, kPlaces[I].word)...);
        else
            *static_cast<R*>(reader.Value(kFixed - 1)) = F(P::Read(reader, kPlaces[I].index, kPlaces[I].word)...);
        return {};
    }

    // Flattened: the node's function works on the slots themselves, its parameters cost nothing.
    [[gnu::flatten]] static void Compute(Result* out, const MicroNode* record, const Binding* binding)
    {
        constexpr auto parameters = std::make_index_sequence<kParameters>();
        if constexpr (Kind == MicroNodeKind::Sample)
            ::new (out) Result(Run(PortReader(record, binding), parameters));
        else
        {
            const auto* const head = reinterpret_cast<const FrameHead*>(binding->frame);
            for (Int sample = head->first; sample < head->end; ++sample)
            {
                Result ran = Run(PortReader(record, binding, sample - head->first), parameters);
                if (ran.IsError())
                {
                    ::new (out) Result(std::move(ran));
                    return;
                }
            }
            ::new (out) Result();
        }
    }

    static Result Access(MicroNode* record, AccessBuilder* builder);

    static constexpr NodeTable kTable{kPorts.data(), kPorts.size(), kVariadics, kVariadics * 2 + kArguments,
        kArgumentSpecs.data(), kArguments, Kind, &Compute, &Access};
};

template <class R, class... P, R (*F)(P...), MicroNodeKind Kind>
Result NodeOf<F, Kind>::Access(MicroNode* record, AccessBuilder* builder)
{
    return DescribeAccess(kTable, record, builder);
}

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
    Int count = -1; // -1: not said

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

// Fills in what stands behind the record: the ranges of variadic ports, the arguments.
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
    for (UInt32 i = 0; i < table.portCount - table.variadicCount; ++i)
    {
        const PortSpec& port = table.ports[i];
        if (port.marks == 0)
            continue;
        PortMicroNode* node = nullptr;
        MicroNode* implementation = nullptr;
        VELTO_TRY(groups.PrivateGetMicroNode(made.Get(), PortKey(port.name, port.input), &node));
        VELTO_TRY(Bound<MicroNodeInterface>().GetImplementation(node, &implementation));
        implementation->flags |= port.marks;
    }
    MicroNode* record = nullptr;
    VELTO_TRY(detail::CreateMicroNode(table, arguments, &record));
    VELTO_TRY(groups.AddMicroNode(made.Get(), record));
    VELTO_TRY(Bound<CoreNodeInstanceBaseInterface>().InitFactory(made.Get(), options.hasSideEffect));
    if (options.optimizer)
        VELTO_TRY(Bound<CoreNodesLibInterface>().SetOptimizer(made.Get(), options.optimizer));
    if (options.optimizerRows)
        VELTO_TRY(Bound<CoreNodesLibInterface>().CreateOptimizer(
            made.Get(), options.optimizerRows, options.optimizerRowCount));
    VELTO_TRY(groups.PrivateFinalize(made.Get()));
    *group = made.Detach();
    return {};
}

// A core node in the registry: a cached factory that builds the node's group on demand.
struct CoreNodeDeclaration : DeclarationRecord
{
    Id nodeId;
    const NodeTable* table;
    CoreNodeOptions options;

    CoreNodeDeclaration(
        TranslationUnitRecord& unit, const Id& id, const NodeTable& nodeTable, const CoreNodeOptions& nodeOptions = {})
        : nodeId(id), table(&nodeTable), options(nodeOptions)
    {
        ConstructPublished(unit, Id(), record_flags::kPublished, registry::kCoreNodes, &CreateFactory);
    }

private:
    static constexpr Int32 kCacheSize = 100;

    static Result CreateFactory(DeclarationRecord* self, Data* value, Id* entry)
    {
        const auto* const node = static_cast<CoreNodeDeclaration*>(self);
        *entry = node->nodeId;
        DataDictionary attributes;
        VELTO_TRY(Bound<DataDictionaryInterface>().Alloc(attributes.Receive()));
        VELTO_TRY(SetData(attributes, kNodeIdKey, node->nodeId));
        CoreNodeFactory factory;
        VELTO_TRY(Bound<FactoryInterface>().PrivateCreateCached(
            attributes.Get(), &BuildGroup, node, kCacheSize, factory.Receive()));
        return value->Set(factory);
    }

    static Result BuildGroup(const void* context, const DictionaryObject* arguments, MicroNodeGroup** group)
    {
        const auto* const node = static_cast<const CoreNodeDeclaration*>(context);
        return BuildMicroNodeGroup(*node->table, node->nodeId, node->options, arguments, group);
    }
};

} // namespace velto

VELTO_TRANSLATION_UNIT(0);
VELTO_DEPENDS_ON("velto/corenodes.h", ::velto::binding<::velto::MicroNodeGroupInterface>);

// Publishes `function` as the core node `id`. What follows are fields of `CoreNodeOptions`: `.hasSideEffect = true`.
#define VELTO_CORE_NODE(id, function, ...)                                                                             \
    static ::velto::CoreNodeDeclaration VELTO_UNIQUE_NAME(coreNode)(thisUnit, id,                                      \
        ::velto::detail::NodeOf<function, ::velto::MicroNodeKind::Sample>::kTable,                                     \
        ::velto::CoreNodeOptions{__VA_ARGS__})

// The same for a node that the host may run over many samples in one call.
#define VELTO_BATCH_NODE(id, function, ...)                                                                            \
    static ::velto::CoreNodeDeclaration VELTO_UNIQUE_NAME(coreNode)(thisUnit, id,                                      \
        ::velto::detail::NodeOf<function, ::velto::MicroNodeKind::Batch>::kTable,                                      \
        ::velto::CoreNodeOptions{__VA_ARGS__})
