#include "cores.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

namespace velto::host
{

namespace
{

void TakeQuota(double quota, double period, double& least)
{
    if (quota > 0.0 && period > 0.0 && (least == 0.0 || quota / period < least))
        least = quota / period;
}

// Calls `read` with the group's folder and each above it, `root` last.
template <class Read>
void Walk(const std::filesystem::path& root, const std::string& group, Read read)
{
    for (std::filesystem::path path = std::filesystem::path(group).relative_path();; path = path.parent_path())
    {
        read(root / path);
        if (path.empty())
            return;
    }
}

double ReadNumber(const std::filesystem::path& file)
{
    double number = 0.0;
    std::ifstream(file) >> number; // `max` is none
    return number;
}

} // namespace

double CoreQuota(const std::filesystem::path& root, const std::filesystem::path& groups)
{
    double least = 0.0;
    std::ifstream lines(groups);
    for (std::string line; std::getline(lines, line);)
    {
        // HIERARCHY:CONTROLLERS:GROUP; the second version has 0 and no controllers.
        const auto first = line.find(':');
        const auto second = line.find(':', first + 1);
        if (second == line.npos)
            continue;
        const std::string controllers = ',' + line.substr(first + 1, second - first - 1) + ',';
        const std::string group = line.substr(second + 1);
        if (line.starts_with("0::"))
        {
            Walk(root, group, [&](const std::filesystem::path& folder) {
                double period = 0.0;
                double quota = 0.0;
                std::ifstream file(folder / "cpu.max");
                if (file >> quota >> period)
                    TakeQuota(quota, period, least);
            });
        }
        else if (controllers.find(",cpu,") != controllers.npos)
        {
            Walk(root / "cpu", group, [&](const std::filesystem::path& folder) {
                TakeQuota(ReadNumber(folder / "cpu.cfs_quota_us"), ReadNumber(folder / "cpu.cfs_period_us"), least);
            });
        }
    }
    return least;
}

int UsableCores()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    int cores =
        sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    if (const double quota = CoreQuota("/sys/fs/cgroup", "/proc/self/cgroup"); quota > 0.0)
        cores = std::min(cores, static_cast<int>(std::ceil(quota)));
    return std::max(cores, 1);
}

} // namespace velto::host
