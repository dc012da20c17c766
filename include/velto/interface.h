// Interfaces of the host: tables of functions that are bound by name when a module is loaded.
//
// An interface is a struct of `Method` fields. The name that a slot is bound by, `Method@signature-hash`, comes from
// the field's declaration, so a slot is stated once, and a host with another signature is refused instead of called.
#pragma once

#include "velto/record.h"
#include "velto/result.h"

#include <array>
#include <cstdio>
#include <tuple>

namespace velto
{

// A string as a template argument.
template <std::size_t N>
struct FixedString
{
    char text[N] = {};

    constexpr FixedString(const char (&literal)[N])
    {
        for (std::size_t i = 0; i < N; ++i)
            text[i] = literal[i];
    }
    constexpr std::string_view View() const { return {text, N - 1}; }
};

namespace detail
{

constexpr UInt kSignatureSeed = 0xcbf29ce484222325;

// FNV-1a.
constexpr UInt HashSignature(std::string_view text, UInt hash)
{
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return hash;
}

template <class T>
constexpr std::string_view CompilerTypeName()
{
    constexpr std::string_view text = __PRETTY_FUNCTION__;
    constexpr std::size_t begin = text.find("T = ") + 4;
    constexpr std::size_t end = text.find_first_of(";]", begin);
    return text.substr(begin, end - begin);
}

// A type's hash does not depend on the compiler: fundamental types by their size, all others by their qualified name.
template <class T>
struct SignatureHash
{
    static constexpr UInt Of(UInt hash)
    {
        if constexpr (std::is_void_v<T>)
            return HashSignature("void", hash);
        else if constexpr (std::is_same_v<T, bool>)
            return HashSignature("bool", hash);
        else if constexpr (std::is_same_v<T, char>)
            return HashSignature("char", hash);
        else if constexpr (std::is_floating_point_v<T>)
            return HashSignature(sizeof(T) == 8 ? "f64" : "f32", hash);
        else if constexpr (std::is_integral_v<T>)
        {
            const char size[] = {std::is_signed_v<T> ? 'i' : 'u', static_cast<char>('0' + sizeof(T))};
            return HashSignature({size, 2}, hash);
        }
        else
            return HashSignature(CompilerTypeName<T>(), hash);
    }
};

template <class T>
struct SignatureHash<const T>
{
    static constexpr UInt Of(UInt hash) { return SignatureHash<T>::Of(HashSignature("const ", hash)); }
};
template <class T>
struct SignatureHash<T*>
{
    static constexpr UInt Of(UInt hash) { return SignatureHash<T>::Of(HashSignature("*", hash)); }
};
template <class T>
struct SignatureHash<T&>
{
    static constexpr UInt Of(UInt hash) { return SignatureHash<T>::Of(HashSignature("&", hash)); }
};
template <class R, class... A>
struct SignatureHash<R(A...)>
{
    static constexpr UInt Of(UInt hash)
    {
        hash = SignatureHash<R>::Of(HashSignature("(", hash));
        ((hash = SignatureHash<A>::Of(HashSignature(",", hash))), ...);
        return HashSignature(")", hash);
    }
};

} // namespace detail

namespace detail
{
// With a reference for the caller.
inline ErrorObject* UnresolvedError()
{
    static constinit ErrorObject unresolved{
        {kImmortal, nullptr}, "net.velto.error.unresolved", "Method invocation of unresolvable interface", {}};
    unresolved.references.fetch_add(1, std::memory_order_relaxed);
    return &unresolved;
}
} // namespace detail

template <FixedString Name, class Signature, UInt GivenHash = 0>
struct Method;

// One slot of an interface.
template <FixedString Name, class R, class... A, UInt GivenHash>
struct Method<Name, R(A...), GivenHash>
{
    R (*function)(A...) = nullptr;

    static constexpr std::string_view kName = Name.View();
    static constexpr UInt kHash =
        GivenHash != 0 ? GivenHash : detail::SignatureHash<R(A...)>::Of(detail::kSignatureSeed);

    R operator()(A... arguments) const { return function(static_cast<A>(arguments)...); }

    // What stands in a slot until the host binds it.
    template <class Interface>
    static R Unbound(A...)
    {
        std::fprintf(stderr, "Method invocation of unresolvable interface %s\nStop\n", Interface::kId.CString());
        if constexpr (std::is_same_v<R, Result>)
            return Result::Adopt(detail::UnresolvedError());
        else if constexpr (std::is_same_v<R, ErrorObject*>)
            return detail::UnresolvedError(); // even if its text cannot be made, it is an error
        else if constexpr (!std::is_void_v<R>)
            return R{};
    }
};

// For an object's own function, the field `name` of `Object`.
#define VELTO_VIRTUAL_METHOD(Object, name) ::velto::Method<#name, std::remove_pointer_t<decltype(Object::name)>> name

#define VELTO_METHOD(name, ...) ::velto::Method<#name, __VA_ARGS__> name
// For a slot whose hash is given from outside.
#define VELTO_METHOD_HASHED(name, hash, ...) ::velto::Method<#name, __VA_ARGS__, hash> name

template <class Interface>
inline constexpr std::size_t kSlotCount = sizeof(Interface) / sizeof(void (*)());

namespace detail
{

template <class Interface>
constexpr auto TieSlots(Interface& table)
{
    constexpr std::size_t n = kSlotCount<Interface>;
#define VELTO_TIE(count, ...)                                                                                          \
    if constexpr (n == count)                                                                                          \
    {                                                                                                                  \
        auto& [__VA_ARGS__] = table;                                                                                   \
        return std::tie(__VA_ARGS__);                                                                                  \
    }
    // clang-format off
    VELTO_TIE(1, a) else VELTO_TIE(2, a, b) else VELTO_TIE(3, a, b, c) else VELTO_TIE(4, a, b, c, d)
    else VELTO_TIE(5, a, b, c, d, e) else VELTO_TIE(6, a, b, c, d, e, f) else VELTO_TIE(7, a, b, c, d, e, f, g)
    else VELTO_TIE(8, a, b, c, d, e, f, g, h) else VELTO_TIE(9, a, b, c, d, e, f, g, h, i)
    else VELTO_TIE(10, a, b, c, d, e, f, g, h, i, j) else VELTO_TIE(11, a, b, c, d, e, f, g, h, i, j, k)
    else VELTO_TIE(12, a, b, c, d, e, f, g, h, i, j, k, l) else VELTO_TIE(13, a, b, c, d, e, f, g, h, i, j, k, l, m)
    else VELTO_TIE(14, a, b, c, d, e, f, g, h, i, j, k, l, m, o)
    else VELTO_TIE(15, a, b, c, d, e, f, g, h, i, j, k, l, m, o, p)
    else VELTO_TIE(16, a, b, c, d, e, f, g, h, i, j, k, l, m, o, p, q)
    else static_assert(n == 0, "give TieSlots another line");
    // clang-format on
#undef VELTO_TIE
}

template <class Interface>
using SlotTuple = decltype(TieSlots(std::declval<Interface&>()));

template <class Interface, std::size_t I>
using SlotAt = std::remove_cvref_t<std::tuple_element_t<I, SlotTuple<Interface>>>;

// "Name@0123456789abcdef", NUL after each.
template <class Interface, std::size_t... I>
constexpr auto MakeMethodNames(std::index_sequence<I...>)
{
    constexpr std::size_t size = ((SlotAt<Interface, I>::kName.size() + 18) + ... + 0);
    std::array<char, size> block = {};
    char* out = block.data();
    const auto append = [&out](std::string_view name, UInt hash) {
        for (const char c : name)
            *out++ = c;
        *out++ = '@';
        for (int shift = 60; shift >= 0; shift -= 4)
            *out++ = "0123456789abcdef"[(hash >> shift) & 15];
        *out++ = '\0';
    };
    (append(SlotAt<Interface, I>::kName, SlotAt<Interface, I>::kHash), ...);
    return block;
}

template <class Interface, std::size_t... I>
constexpr Interface MakeUnboundSlots(std::index_sequence<I...>)
{
    Interface table;
    auto slots = TieSlots(table);
    ((std::get<I>(slots).function = &SlotAt<Interface, I>::template Unbound<Interface>), ...);
    return table;
}

} // namespace detail

// The names of an interface's slots in their order, one block of NUL-separated strings.
template <class Interface>
inline constexpr auto kMethodNames = detail::MakeMethodNames<Interface>(
    std::make_index_sequence<kSlotCount<Interface>>());

// A table whose every slot reports that it is not bound.
template <class Interface>
inline constexpr Interface kUnboundSlots = detail::MakeUnboundSlots<Interface>(
    std::make_index_sequence<kSlotCount<Interface>>());

// This library's table of an interface; filled by the host, or by the host for itself.
template <class Interface>
inline constinit Interface slots = kUnboundSlots<Interface>;

template <class Interface>
const Interface& Bound()
{
    return slots<Interface>;
}

inline constexpr Id kObjectInterfaceId{"net.velto.interface.object"};

// The functions of every object, by name.
struct ObjectMethods
{
    VELTO_VIRTUAL_METHOD(Object, destroy);
};

} // namespace velto
