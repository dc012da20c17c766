// What the system's loader takes on trust of a file, looked at before it is asked.
#pragma once

#include "velto/result.h"

#include <filesystem>

namespace velto::host
{

// Whether `file` is a shared library of this machine that is there as a whole. Never waits, as opening a pipe would.
Result CheckLibraryFile(const std::filesystem::path& file);

} // namespace velto::host
