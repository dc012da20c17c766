// Which files a document may name.
#pragma once

#include <filesystem>
#include <vector>

namespace velto::host
{

// From now on only files in these directories are read, wherever links lead; without this call, any. For the whole
// process.
void ReadOnlyBelow(const std::vector<std::filesystem::path>& directories);

// Lets any file be read again.
void ReadAnywhere();

// [any thread]
bool MayRead(const std::filesystem::path& file);

} // namespace velto::host
