// Which files a document may name.
#pragma once

#include <filesystem>
#include <vector>

namespace velto::host
{

// From now on the process reads only files in these directories, after following links. Without this call it reads
// any file.
void ReadOnlyBelow(const std::vector<std::filesystem::path>& directories);

// Lets any file be read again.
void ReadAnywhere();

// [any thread]
bool MayRead(const std::filesystem::path& file);

} // namespace velto::host
