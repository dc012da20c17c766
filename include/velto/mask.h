// The mask: five ports by which a node's effect is limited to a share and to some channels.
#pragma once

#include "velto/node.h"

namespace velto
{

// One parameter that stands for five ports, behind a node's own inputs.
struct Mask
{
    static constexpr std::array<PortSpec, 5> kPorts = [] {
        const auto port = [](std::string_view name, Result (*type)(const DataType*&)) {
            return PortSpec{.name = name, .input = true, .rank = PortRank::Shared, .type = type};
        };
        return std::array<PortSpec, 5>{port("maskblend", &GetDataType<Float>), port("maskred", &GetDataType<Bool>),
            port("maskgreen", &GetDataType<Bool>), port("maskblue", &GetDataType<Bool>),
            port("maskalpha", &GetDataType<Bool>)};
    }();
    static constexpr UInt32 kWords = 0;
    static Mask Read(const PortReader& reader, Int index, UInt32)
    {
        const auto flag = [&](Int i) { return *static_cast<const Bool*>(reader.Value(index + i)); };
        return {*static_cast<const Float*>(reader.Value(index)), flag(1), flag(2), flag(3), flag(4)};
    }

    Float blend; // share of the adjusted colour; not clamped
    Bool red;
    Bool green;
    Bool blue;
    Bool alpha;

    // The input `x` with the adjusted colour `y` laid over it.
    ColorA Apply(const ColorA& x, const ColorA& y) const
    {
        const ColorA rgb = ApplyToColor(x, y);
        return {rgb.r, rgb.g, rgb.b, Channel(x.a, y.a, alpha)};
    }

    // The same for a node that leaves alpha alone.
    ColorA ApplyToColor(const ColorA& x, const ColorA& y) const
    {
        return {Channel(x.r, y.r, red), Channel(x.g, y.g, green), Channel(x.b, y.b, blue), x.a};
    }

private:
    Float Channel(Float x, Float y, Bool takesPart) const
    {
        const Float s = takesPart ? y : x;
        return (s - x) * blend + x;
    }
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

// The function `F` of a colour with the mask behind its own inputs: what the mask leaves out is the first input.
template <auto F>
inline constexpr auto Masked = &detail::MaskedFunction<decltype(F)>::template Call<F>;

} // namespace velto
