// What tells two bakes apart before they are run.
#pragma once

#include "bake.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace velto::host
{

// A hash of all that determines the pixels of one output: the graph after its settings, the files that its values
// name, all pictures of its sequences, the view and its time, the modules' bytes and `settings`.
Result BakeFingerprint(const Graph& graph, std::size_t output, const BakeOptions& options,
    const std::vector<std::filesystem::path>& modules, std::string_view settings, std::string& hash);

} // namespace velto::host
