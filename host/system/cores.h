// How many threads the process may use at once.
#pragma once

#include <filesystem>

namespace velto::host
{

// How many cores the process may run on, or fewer if a control group's quota is less than their time; at least 1.
int UsableCores();

// The quota in cores of a control group and those above it, as files below `root` state it; 0: none. `groups` is what
// /proc/self/cgroup says.
double CoreQuota(const std::filesystem::path& root, const std::filesystem::path& groups);

} // namespace velto::host
