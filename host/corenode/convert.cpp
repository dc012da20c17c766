#include "convert.h"

#include "host/registry/datatypes.h"
#include "host/system/shipped.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <limits>
#include <map>

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

using TypeGetter = const DataType* (*)();

struct Entry
{
    TypeGetter from;
    TypeGetter to;
    Conversion call;
};

template <class From, class To>
constexpr Entry Between()
{
    return {&TypeOf<From>, &TypeOf<To>, &Call<From, To>};
}

template <class From, class... To>
constexpr auto FromTo()
{
    return std::array{Between<From, To>()...};
}

template <class From>
constexpr auto FromNumber()
{
    return FromTo<From, Float, Int, Int32, UInt32, Bool, ColorA, Color>();
}

template <std::size_t... N>
constexpr auto Join(const std::array<Entry, N>&... parts)
{
    std::array<Entry, (N + ...)> all{};
    std::size_t count = 0;
    const auto add = [&](const auto& part) {
        for (const Entry& entry : part)
            all[count++] = entry;
    };
    (add(parts), ...);
    return all;
}

constexpr auto kTable = Join(FromNumber<Float>(), FromNumber<Int>(), FromNumber<Int32>(), FromNumber<UInt32>(),
    FromNumber<Bool>(), FromTo<ColorA, Float, Int, Int32, UInt32, Bool, Color>(),
    FromTo<Color, Float, Int, Int32, UInt32, Bool, ColorA, Vector>(), FromTo<Vector, Color>());

constexpr auto kCalls = [] {
    std::array<Conversion, kTable.size()> calls{};
    for (std::size_t i = 0; i < calls.size(); ++i)
        calls[i] = kTable[i].call;
    return calls;
}();

} // namespace

VELTO_SHIP_FUNCTIONS(ShippedConversions, kCalls);

Conversion FindConversion(const DataType* from, const DataType* to)
{
    using Types = std::pair<const DataType*, const DataType*>;
    static const std::map<Types, Conversion> known = [] {
        std::map<Types, Conversion> all;
        for (const Entry& entry : kTable)
            all[{entry.from(), entry.to()}] = entry.call;
        return all;
    }();
    const auto found = known.find({from, to});
    return found == known.end() ? nullptr : found->second;
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
