// Four numbers of a random stream in all the types that ports may have.
#pragma once

#include "truncate.h"
#include "velto/node.h"
#include "velto/random.h"

#include <tuple>

namespace velto::pattern
{

struct RandomValues
{
    Float c[4];

    RandomValues(RandomStream stream, Float minimum, Float maximum)
    {
        for (Float& value : c)
            value = stream.Next01() * (maximum - minimum) + minimum;
    }

    ColorA AsColorA() const { return {c[0], c[1], c[2], c[3]}; }
    Color AsColor() const { return {c[0], c[1], c[2]}; }
    Float AsFloat() const { return c[0]; }
    Int AsInt() const { return Truncate<Int>(c[0]); }
    Vector AsVector3() const { return {c[0], c[1], c[2]}; }
    Vector2d AsVector2() const { return {c[0], c[1]}; }
    Bool AsBool() const { return c[0] >= 0.5; }
};

// One parameter that stands for the outputs of a random value in each type.
class RandomOutputs
{
    using All = std::tuple<Out<"resultColorA", ColorA>, Out<"resultColor", Color>, Out<"resultFloat", Float>,
        Out<"resultInt", Int>, Out<"resultVector3", Vector>, Out<"resultVector2", Vector2d>, Out<"resultBool", Bool>>;
    using Indices = std::make_index_sequence<std::tuple_size_v<All>>;

public:
    static constexpr ParameterKind kKind = ParameterKind::Ports;
    static constexpr auto kPorts = []<std::size_t... I>(std::index_sequence<I...>)
    {
        return std::array{std::tuple_element_t<I, All>::kPorts[0]...};
    }
    (Indices());
    static RandomOutputs Read(const PortReader& reader, Int index, UInt32 word)
    {
        return Read(reader, index, word, Indices());
    }

    void operator=(const RandomValues& values) const
    {
        const auto& [colorA, color, number, integer, vector3, vector2, flag] = outputs_;
        colorA = values.AsColorA();
        color = values.AsColor();
        number = values.AsFloat();
        integer = values.AsInt();
        vector3 = values.AsVector3();
        vector2 = values.AsVector2();
        flag = values.AsBool();
    }

private:
    explicit RandomOutputs(const All& outputs) : outputs_(outputs) {}

    template <std::size_t... I>
    static RandomOutputs Read(const PortReader& reader, Int index, UInt32 word, std::index_sequence<I...>)
    {
        return RandomOutputs(All(std::tuple_element_t<I, All>::Read(reader, index + static_cast<Int>(I), word)...));
    }

    All outputs_;
};

} // namespace velto::pattern
