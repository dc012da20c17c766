// The switches of all loaded modules.
#pragma once

#include "velto/configuration.h"

#include <vector>

namespace velto::host
{

// In order of registration. The entries belong to the modules.
std::vector<const ConfigurationEntry*>& Configuration();

const ConfigurationInterface& ConfigurationService();

} // namespace velto::host
