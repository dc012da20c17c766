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

const RegistryInterface& RegistryService();

} // namespace velto::host
