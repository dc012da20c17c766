// Published things by registry and name. All look-ups that modules make by name end here.
#pragma once

#include "velto/registry.h"

#include <string>
#include <string_view>
#include <vector>

namespace velto::host
{

// What a registry holds under a name, or null. Valid until the entry is erased.
const Data* FindEntry(std::string_view registry, std::string_view entry);

// The entries of a registry in order of publishing.
std::vector<std::string> EntryNames(std::string_view registry);

// All registries that hold or held something, by name.
std::vector<std::string> RegistryNames();

// Who publishes while it lives: the file of a module. What nobody publishes is the host's own.
class Publisher
{
public:
    explicit Publisher(std::string file);
    ~Publisher();
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

    // The file of the module that is being loaded; empty: none.
    static const std::string& Current();
};

// The file of the module that published an entry; empty: the host, or there is no such entry.
std::string PublisherOf(std::string_view registry, std::string_view entry);

// What a module's file is called by: `shadernodes` for `modules/shadernodes.module`.
std::string ModuleName(std::string_view file);

const RegistryInterface& RegistryService();

} // namespace velto::host
