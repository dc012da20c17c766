// From a node's function to constant data: which ports there are, where their values lie, and what runs.
#pragma once

#include "velto/parameters.h"

namespace velto
{

struct ArgumentSpec
{
    std::string_view name;
    Int defaultValue;
    UInt32 word;
};

// What the host needs to know of a node; all of it constant data.
struct NodeTable
{
    const PortSpec* ports = nullptr; // in access order, variadic ones last
    UInt32 portCount = 0;
    UInt32 variadicCount = 0;
    UInt32 words = 0; // of the record's extension; ranges of the variadic ports come first, in their order
    const ArgumentSpec* arguments = nullptr;
    UInt32 argumentCount = 0;
    MicroNodeKind kind = MicroNodeKind::Sample;
    void (*compute)(Result*, const MicroNode*, const Binding*) = nullptr;
    Result (*access)(MicroNode*, AccessBuilder*) = nullptr;
};

Result DescribeAccess(const NodeTable& table, MicroNode* record, AccessBuilder* builder);

namespace detail
{

template <class P>
constexpr UInt32 FixedPorts()
{
    if constexpr (P::kKind == ParameterKind::Ports)
        return P::kPorts.size();
    else
        return 0;
}

template <class R>
inline constexpr bool kReturnsValue = !std::is_void_v<R> && !std::is_same_v<R, Result>;

template <auto F, MicroNodeKind Kind>
struct NodeOf;

template <class R, class... P, R (*F)(P...), MicroNodeKind Kind>
struct NodeOf<F, Kind>
{
    static constexpr std::size_t kParameters = sizeof...(P);
    static constexpr UInt32 kFixed = (FixedPorts<P>() + ... + 0) + (kReturnsValue<R> ? 1 : 0);
    static constexpr UInt32 kVariadics = (UInt32(P::kKind == ParameterKind::List) + ... + 0);
    static constexpr UInt32 kArguments = (UInt32(P::kKind == ParameterKind::Argument) + ... + 0);
    static constexpr UInt32 kRangeWords = sizeof(VariadicRange) / sizeof(Int);

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
        UInt32 argumentWord = kVariadics * kRangeWords;
        [[maybe_unused]] const auto place = [&](ParameterKind kind, UInt32 ports) {
            places[i++] = {index, kind == ParameterKind::Argument ? argumentWord : rangeWord};
            index += ports;
            rangeWord += kind == ParameterKind::List ? kRangeWords : 0;
            argumentWord += kind == ParameterKind::Argument ? 1 : 0;
        };
        (place(P::kKind, FixedPorts<P>()), ...);
        return places;
    }();

    static constexpr std::array<PortSpec, kFixed + kVariadics> kPorts = [] {
        std::array<PortSpec, kFixed + kVariadics> ports{};
        std::size_t i = 0;
        [[maybe_unused]] const auto add = [&]<class Q>(const Q*, ParameterKind wanted) {
            if constexpr (Q::kKind != ParameterKind::Argument)
            {
                for (std::size_t k = 0; k < Q::kPorts.size() && Q::kKind == wanted; ++k)
                    ports[i++] = Q::kPorts[k];
            }
        };
        (add(static_cast<const P*>(nullptr), ParameterKind::Ports), ...);
        if constexpr (kReturnsValue<R>)
            ports[i++] = PortSpec{.name = "result", .input = false, .type = kTypeGetter<R>};
        (add(static_cast<const P*>(nullptr), ParameterKind::List), ...);
        return ports;
    }();

    static constexpr std::array<ArgumentSpec, kArguments> kArgumentSpecs = [] {
        std::array<ArgumentSpec, kArguments> specs{};
        std::size_t parameter = 0;
        std::size_t i = 0;
        [[maybe_unused]] const auto add = [&]<class Q>(const Q*) {
            if constexpr (Q::kKind == ParameterKind::Argument)
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

    static constexpr NodeTable kTable{kPorts.data(), kPorts.size(), kVariadics, kVariadics* kRangeWords + kArguments,
        kArgumentSpecs.data(), kArguments, Kind, &Compute, &Access};
};

template <class R, class... P, R (*F)(P...), MicroNodeKind Kind>
Result NodeOf<F, Kind>::Access(MicroNode* record, AccessBuilder* builder)
{
    return DescribeAccess(kTable, record, builder);
}

inline constexpr NodeTable kNoNode;

template <class Function>
inline constexpr bool kHasPorts = false;
template <class R, class... P>
inline constexpr bool kHasPorts<R (*)(P...)> = (NodeParameter<P> && ...);

} // namespace detail

// Whether all parameters of a function are of the kinds in parameters.h.
template <auto F>
inline constexpr bool kIsNodeFunction = detail::kHasPorts<decltype(F)>;

// The table of a node's function; empty if it is not one, which the macros of node.h then report.
template <auto F, MicroNodeKind Kind = MicroNodeKind::Sample>
constexpr const NodeTable& TableOf()
{
    if constexpr (kIsNodeFunction<F>)
        return detail::NodeOf<F, Kind>::kTable;
    else
        return detail::kNoNode;
}

} // namespace velto
