// The parameters of a node's function: each names its ports, once, and reads them from a call's slots.
#pragma once

#include "velto/corenodes.h"
#include "velto/porttypes.h"

#include <concepts>

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
    bool mayStayUnwritten = false; // by a successful call
    Result (*type)(const DataType*& type) = nullptr;
    // Of a port that stands for any number of ports: the construction argument that says how many, and whether its
    // elements are named by the ids in that argument (`color#base`) or numbered (`color[0]`).
    std::string_view list = {};
    bool namedElements = false;
};

// Where the elements of a variadic port lie; two words of the node's record.
struct VariadicRange
{
    Int first = -1; // access index
    Int count = 0;
};

#ifdef VELTO_BITCODE
inline constexpr bool kIsBitcode = true;
#else
inline constexpr bool kIsBitcode = false;
#endif

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
    // The same where `index` is not known to the compiler: what is constant among elements lies in constant slots.
    void* ElementValue(Int index) const
    {
        if constexpr (!kIsBitcode)
            return Value(index);
        const auto* const head = reinterpret_cast<const FrameHead*>(binding_->frame);
        return reinterpret_cast<const Slot*>(head->own[0])[index].value;
    }
    bool IsConnected(Int index) const { return (SlotAt(index).flags & slot_flags::kNotConnected) == 0; }
    bool IsInUse(Int index) const { return (SlotAt(index).flags & slot_flags::kNotInUse) == 0; }

    // The node's own words, which follow the record.
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

// What a parameter of a node's function stands for.
enum class ParameterKind : std::uint8_t
{
    Ports,    // the ports in its `kPorts`
    List,     // any number of ports like the one in its `kPorts`; two words of the record hold their range
    Argument, // no port: a word of the record
};

// A parameter states its kind, and reads itself from a call's slots: its ports begin at access index `index`, its words
// of the record at `word`.
template <class P>
concept NodeParameter = requires(const PortReader& reader, Int index, UInt32 word)
{
    requires std::is_same_v<decltype(P::kKind), const ParameterKind>;
    {
        P::Read(reader, index, word)
        } -> std::same_as<P>;
};

// A type that a port may have.
template <class T>
concept PortType = requires
{
    &DataTypeTraits<T>::Get;
};

namespace detail
{
template <class T>
inline constexpr bool kHeldByValue = std::is_trivially_copyable_v<T> && sizeof(T) <= 16;

template <class T>
constexpr Result (*kTypeGetter)(const DataType*&) = &GetDataType<T>;
} // namespace detail

// An input.
template <FixedString Name, PortType T>
class In
{
public:
    static constexpr ParameterKind kKind = ParameterKind::Ports;
    static constexpr std::array<PortSpec, 1> kPorts{
        PortSpec{.name = Name.View(), .input = true, .type = detail::kTypeGetter<T>}};
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
template <FixedString Name, PortType T>
class Connected
{
public:
    static constexpr ParameterKind kKind = ParameterKind::Ports;
    static constexpr auto kPorts = In<Name, T>::kPorts;
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

struct OutputTraits
{
    Int32 marks = 0;
    bool mayStayUnwritten = false;
    PortRank rank = PortRank::Own;
};

template <FixedString Name, class T, OutputTraits Traits>
class Output
{
public:
    static constexpr ParameterKind kKind = ParameterKind::Ports;
    static constexpr std::array<PortSpec, 1> kPorts{PortSpec{.name = Name.View(),
        .input = false,
        .rank = Traits.rank,
        .marks = Traits.marks,
        .mayStayUnwritten = Traits.mayStayUnwritten,
        .type = kTypeGetter<T>}};

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

// What follows the name are fields of `OutputTraits`.
#define VELTO_OUTPUT_PARAMETER(Parameter, ...)                                                                         \
    template <FixedString Name, PortType T>                                                                            \
    class Parameter : public detail::Output<Name, T, detail::OutputTraits{__VA_ARGS__}>                                \
    {                                                                                                                  \
        using Base = detail::Output<Name, T, detail::OutputTraits{__VA_ARGS__}>;                                       \
                                                                                                                       \
    public:                                                                                                            \
        using Base::Base;                                                                                              \
        using Base::operator=;                                                                                         \
        static Parameter Read(const PortReader& reader, Int index, UInt32)                                             \
        {                                                                                                              \
            return Parameter(*static_cast<T*>(reader.Value(index)));                                                   \
        }                                                                                                              \
    }

// An output that every successful call writes.
VELTO_OUTPUT_PARAMETER(Out);
// An output that a successful call may leave as it was.
VELTO_OUTPUT_PARAMETER(Optional, .mayStayUnwritten = true);
// An output that is made once per setup and survives between calls.
VELTO_OUTPUT_PARAMETER(Once, .marks = port_mark::kOncePerSetup);
// A port that survives between calls of one instance.
VELTO_OUTPUT_PARAMETER(State, .marks = port_mark::kState, .rank = PortRank::State);
#undef VELTO_OUTPUT_PARAMETER

// An output that knows whether anybody reads it, and may stay unwritten.
template <FixedString Name, PortType T>
class Used : public Optional<Name, T>
{
public:
    using Optional<Name, T>::operator=;
    static Used Read(const PortReader& reader, Int index, UInt32)
    {
        return Used(*static_cast<T*>(reader.Value(index)), reader.IsInUse(index));
    }

    explicit Used(T& value, bool used = true) : Optional<Name, T>(value), used_(used) {}

    bool IsUsed() const { return used_; }

private:
    bool used_;
};

// Any number of inputs of one type. Elements are numbered, `name[0]`, unless `List` names a construction argument with
// ids.
template <FixedString Name, PortType T, FixedString List = Name>
class Variadic
{
public:
    static constexpr ParameterKind kKind = ParameterKind::List;
    static constexpr std::array<PortSpec, 1> kPorts{PortSpec{.name = Name.View(),
        .input = true,
        .type = detail::kTypeGetter<T>,
        .list = List.View(),
        .namedElements = List.View() != Name.View()}};
    static Variadic Read(const PortReader& reader, Int, UInt32 word)
    {
        return Variadic(reader, reader.Extension<VariadicRange>(word));
    }

    Variadic(const PortReader& reader, const VariadicRange& range) : reader_(reader), range_(range) {}

    Int Count() const { return range_.count; }
    const T& operator[](Int i) const { return *static_cast<const T*>(reader_.ElementValue(range_.first + i)); }

private:
    PortReader reader_;
    VariadicRange range_;
};

// A number that the node is built with; no port.
template <FixedString Name, Int Default>
class Argument
{
public:
    static constexpr ParameterKind kKind = ParameterKind::Argument;
    static constexpr std::string_view kName = Name.View();
    static constexpr Int kDefault = Default;
    static Argument Read(const PortReader& reader, Int, UInt32 word) { return Argument(reader.Extension<Int>(word)); }

    Argument(Int value) : value_(value) {}
    operator Int() const { return value_; }

private:
    Int value_;
};

} // namespace velto
