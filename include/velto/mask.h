// The mask: five ports by which a node's effect is limited to a share and to some channels.
#pragma once

#include "velto/node.h"

namespace velto
{

// One parameter that stands for five ports, after a node's own inputs.
class Mask
{
public:
    static constexpr ParameterKind kKind = ParameterKind::Ports;
    static constexpr std::array<PortSpec, 5> kPorts = [] {
        const auto port = [](std::string_view name, Result (*type)(const DataType*&)) {
            return PortSpec{.name = name, .input = true, .rank = PortRank::Shared, .type = type};
        };
        return std::array<PortSpec, 5>{port("maskblend", &GetDataType<Float>), port("maskred", &GetDataType<Bool>),
            port("maskgreen", &GetDataType<Bool>), port("maskblue", &GetDataType<Bool>),
            port("maskalpha", &GetDataType<Bool>)};
    }();
    static Mask Read(const PortReader& reader, Int index, UInt32) { return Mask(reader, index); }

    // Ports are read when they are applied, after the node's own arithmetic, and so are not carried through it.
    Mask(const PortReader& reader, Int index) : reader_(reader), index_(index) {}

    // The input `x` with the adjusted colour `y` laid over it.
    ColorA Apply(const ColorA& x, const ColorA& y) const
    {
        const ColorA rgb = ApplyToColor(x, y);
        return {rgb.r, rgb.g, rgb.b, Channel(3, x.a, y.a)};
    }

    // The same for a node that leaves alpha alone.
    ColorA ApplyToColor(const ColorA& x, const ColorA& y) const
    {
        return {Channel(0, x.r, y.r), Channel(1, x.g, y.g), Channel(2, x.b, y.b), x.a};
    }

    // The share of the adjusted colour; not clamped.
    Float Share() const { return *static_cast<const Float*>(reader_.Value(index_)); }
    Bool TakesAlpha() const { return Takes(3); }

private:
    Bool Takes(Int channel) const { return *static_cast<const Bool*>(reader_.Value(index_ + 1 + channel)); }

    Float Channel(Int channel, Float x, Float y) const
    {
        const Float s = Takes(channel) ? y : x;
        return (s - x) * Share() + x;
    }

    PortReader reader_;
    Int index_;
};

namespace detail
{
template <class Function>
struct MaskedFunction;

template <class First, class... Rest>
struct MaskedFunction<ColorA (*)(First, Rest...)>
{
    template <ColorA (*F)(First, Rest...)>
    static ColorA Call(First x, Rest... rest, Mask mask)
    {
        return mask.Apply(x, F(x, rest...));
    }
};
} // namespace detail

// The function `F` of a colour with the mask after its own inputs: what the mask leaves out is the first input.
template <auto F>
inline constexpr auto Masked = &detail::MaskedFunction<decltype(F)>::template Call<F>;

} // namespace velto
