// What the host offers: every interface with its names and its functions.
#pragma once

#include "velto/interface.h"

#include <span>
#include <string_view>

namespace velto::host
{

struct Service
{
    std::string_view id;
    const char* methodNames; // NUL-separated, in the order of the functions
    UInt32 methodCount;
    void (*const* functions)();
};

// Binds the host's own tables on first call.
std::span<const Service> Services();

// An interface of the host's objects, with the names of their functions.
struct VirtualInterface
{
    std::string_view id;
    const char* methodNames; // NUL-separated, in the order of the functions
    UInt32 methodCount;
};

// The interface of that name, or null.
const VirtualInterface* FindVirtualInterface(std::string_view id);

// The service of that name, or null.
const Service* FindService(std::string_view id);

} // namespace velto::host
