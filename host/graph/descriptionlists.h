// Ports and values that several descriptions share: `lists/NAME.json` beside them.
#pragma once

#include "json.h"

#include <filesystem>

namespace velto::host
{

// Puts the lists in `directory` in the place of what includes them; faults where there is none of a name.
void IncludeLists(const std::filesystem::path& directory, Json& description, Diagnostics& diagnostics);

} // namespace velto::host
