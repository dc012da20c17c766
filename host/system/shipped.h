// Functions of the host that compiled code may take apart. The build makes bitcode of their sources as well, where a
// table of the same name holds the same functions at the same places.
#pragma once

#include "velto/types.h"

#include <array>
#include <span>

namespace velto::host
{

using ShippedFunctions = std::span<const void* const>;

// One for each use of `VELTO_SHIP_FUNCTIONS`.
ShippedFunctions ShippedConversions();
ShippedFunctions ShippedBlends();

// An argument of many samples: their values, or one that all share.
struct BlockArgument
{
    const void* values = nullptr;
    Int isShared = 0;
};

// Calls for `count` samples what is called for an object; `results` has as many values.
using BlockFunction = void (*)(const void* object, Int count, const BlockArgument* arguments, void* results);

} // namespace velto::host

// In namespace velto::host: `array` is a constant std::array of function pointers.
#ifdef VELTO_BITCODE
#define VELTO_SHIP_FUNCTIONS(name, array)                                                                              \
    extern const decltype(array) name##Table __asm__("velto.host:" #name);                                             \
    const decltype(array) name##Table = array
#else
#define VELTO_SHIP_FUNCTIONS(name, array)                                                                              \
    ShippedFunctions name()                                                                                            \
    {                                                                                                                  \
        return {reinterpret_cast<const void* const*>((array).data()), (array).size()};                                 \
    }                                                                                                                  \
    static_assert(sizeof((array)[0]) == sizeof(void*))
#endif
