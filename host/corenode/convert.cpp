#include "convert.h"

#include "host/registry/datatypes.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace velto::host
{

namespace
{

// Luminance of linear RGB.
Float Luminance(Float r, Float g, Float b)
{
    return r * 0.2125 + g * 0.7154 + b * 0.0721;
}

// To an integer: towards zero, held to the type's range; NaN is 0.
template <class To>
To Truncate(Float x)
{
    constexpr Float low = static_cast<Float>(std::numeric_limits<To>::min());
    constexpr Float high = static_cast<Float>(std::numeric_limits<To>::max());
    if (std::isnan(x))
        return 0;
    return x <= low ? std::numeric_limits<To>::min() : x >= high ? std::numeric_limits<To>::max() : static_cast<To>(x);
}

template <class To, class From>
To Convert(const From& x)
{
    if constexpr (std::is_arithmetic_v<To> && std::is_arithmetic_v<From>)
    {
        if constexpr (std::is_same_v<To, Bool>)
            return x != From(0);
        else if constexpr (std::is_integral_v<To> && std::is_floating_point_v<From>)
            return Truncate<To>(x);
        else
            return static_cast<To>(x); // between integers: the low bits
    }
    else if constexpr (std::is_arithmetic_v<From>)
    {
        const Float grey = Convert<Float>(x);
        if constexpr (std::is_same_v<To, ColorA>)
            return {grey, grey, grey, 1.0};
        else
            return {grey, grey, grey};
    }
    else if constexpr (std::is_arithmetic_v<To>)
        return Convert<To>(Luminance(x.r, x.g, x.b));
    else if constexpr (std::is_same_v<To, Color> && std::is_same_v<From, ColorA>)
        return {x.r, x.g, x.b};
    else if constexpr (std::is_same_v<To, ColorA> && std::is_same_v<From, Color>)
        return {x.r, x.g, x.b, 1.0};
    else if constexpr (std::is_same_v<To, Color>)
        return {x.x, x.y, x.z};
    else
        return {x.r, x.g, x.b};
}

template <class From, class To>
void Call(Result* out, const MicroNode*, const Binding* binding)
{
    const auto slot = [binding](
                          int i) { return reinterpret_cast<const Slot*>(binding->frame + binding->offsets[i])->value; };
    *static_cast<To*>(slot(1)) = Convert<To>(*static_cast<const From*>(slot(0)));
    ::new (out) Result();
}

struct Entry
{
    const DataType* from;
    const DataType* to;
    Conversion call;
};

template <class From, class To>
Entry Between()
{
    return {TypeOf<From>(), TypeOf<To>(), &Call<From, To>};
}

template <class From>
auto FromNumber()
{
    return std::array{Between<From, Float>(), Between<From, Int>(), Between<From, Int32>(), Between<From, UInt32>(),
        Between<From, Bool>(), Between<From, ColorA>(), Between<From, Color>()};
}

template <class From>
auto ToNumber()
{
    return std::array{Between<From, Float>(), Between<From, Int>(), Between<From, Int32>(), Between<From, UInt32>(),
        Between<From, Bool>()};
}

const std::vector<Entry>& Table()
{
    static const std::vector<Entry> table = [] {
        std::vector<Entry> all{
            Between<ColorA, Color>(), Between<Color, ColorA>(), Between<Vector, Color>(), Between<Color, Vector>()};
        const auto add = [&all](const auto& entries) { all.insert(all.end(), entries.begin(), entries.end()); };
        add(FromNumber<Float>());
        add(FromNumber<Int>());
        add(FromNumber<Int32>());
        add(FromNumber<UInt32>());
        add(FromNumber<Bool>());
        add(ToNumber<ColorA>());
        add(ToNumber<Color>());
        return all;
    }();
    return table;
}

} // namespace

Conversion FindConversion(const DataType* from, const DataType* to)
{
    for (const Entry& entry : Table())
    {
        if (entry.from == from && entry.to == to)
            return entry.call;
    }
    return nullptr;
}

bool IsConvertible(const DataType* from, const DataType* to)
{
    return from == to || FindConversion(from, to) != nullptr;
}

Result ConvertValue(const Data& from, const DataType* to, Data& converted)
{
    if (from.Type() == to || from.IsEmpty())
        return converted.CopyFrom(from);
    const Conversion convert = FindConversion(from.Type(), to);
    if (!convert)
        return MakeError(
            error::kIllegalArgument, fmt::format("{} does not turn into {}", from.Type()->id.View(), to->id.View()));
    VELTO_TRY(converted.Set(to, nullptr));
    Slot slots[2] = {{const_cast<void*>(from.Value()), 0, 0}, {converted.Value(), 0, 0}};
    constexpr UInt32 offsets[2] = {0, sizeof(Slot)};
    const Binding binding{reinterpret_cast<std::byte*>(slots), offsets};
    Result result;
    convert(&result, nullptr, &binding);
    return result;
}

} // namespace velto::host
