// Which commit was built.
#pragma once

namespace velto::cli
{

// ` (87cb5f5d49)`, to stand behind the version; empty where the sources were not those of a repository.
extern const char* const kCommit;

} // namespace velto::cli
