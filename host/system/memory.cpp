#include "memory.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <limits>
#include <new>
#include <string>

namespace velto::host
{

namespace
{

constexpr UInt kUnlimited = std::numeric_limits<UInt>::max();

std::atomic<UInt> budget = 0; // 0: not set
std::atomic<UInt> taken = 0;
std::atomic<UInt> refusals = 0;
thread_local bool isTrying = false;

// "max", and anything else that is not a number, means no limit.
UInt LimitIn(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    UInt limit = kUnlimited;
    return stream >> limit ? limit : kUnlimited;
}

// The least limit of a group and those above it. In a container the group's own path may not be there, but what it is
// mounted as is.
UInt GroupLimit(const std::filesystem::path& mount, std::filesystem::path group, const char* file)
{
    UInt limit = LimitIn(mount / file);
    for (group = group.relative_path(); !group.empty(); group = group.parent_path())
        limit = std::min(limit, LimitIn(mount / group / file));
    return limit;
}

// Lines are `NUMBER:CONTROLLERS:GROUP`; those of the second version have no controllers.
UInt ControlGroupLimit(const std::filesystem::path& root)
{
    UInt limit = kUnlimited;
    std::ifstream groups(root / "proc/self/cgroup");
    for (std::string line; std::getline(groups, line);)
    {
        const std::size_t first = line.find(':');
        const std::size_t second = line.find(':', first + 1);
        if (second == line.npos)
            continue;
        const std::string controllers = "," + line.substr(first + 1, second - first - 1) + ",";
        const std::string group = line.substr(second + 1);
        if (controllers == ",,")
            limit = std::min(limit, GroupLimit(root / "sys/fs/cgroup", group, "memory.max"));
        else if (controllers.find(",memory,") != controllers.npos)
            limit = std::min(limit, GroupLimit(root / "sys/fs/cgroup/memory", group, "memory.limit_in_bytes"));
    }
    return limit;
}

} // namespace

UInt AvailableMemory(const std::filesystem::path& root)
{
    const UInt physical = static_cast<UInt>(sysconf(_SC_PHYS_PAGES)) * static_cast<UInt>(sysconf(_SC_PAGESIZE));
    rlimit addresses = {};
    const bool isLimited = getrlimit(RLIMIT_AS, &addresses) == 0 && addresses.rlim_cur != RLIM_INFINITY;
    return std::min(
        {physical, isLimited ? static_cast<UInt>(addresses.rlim_cur) : kUnlimited, ControlGroupLimit(root)});
}

UInt MemoryBudget()
{
    if (budget == 0)
    {
        UInt unset = 0;
        budget.compare_exchange_strong(unset, std::max(AvailableMemory() / 4 * 3, UInt(1)));
    }
    return budget;
}

void SetMemoryBudget(UInt bytes)
{
    budget = std::max(bytes, UInt(1));
}

UInt MemoryTaken()
{
    return taken;
}

UInt MemoryRefusals()
{
    return refusals;
}

MemoryTrial::MemoryTrial()
{
    isTrying = true;
}

MemoryTrial::~MemoryTrial()
{
    isTrying = false;
}

bool TakeMemory(UInt bytes)
{
    const UInt before = taken.fetch_add(bytes);
    const UInt most = MemoryBudget();
    if (before <= most && bytes <= most - before)
        return true;
    taken -= bytes;
    refusals += isTrying ? 0 : 1;
    return false;
}

void GiveMemoryBack(UInt bytes)
{
    taken -= bytes;
}

MemoryShare::~MemoryShare()
{
    GiveMemoryBack(bytes_);
}

void MemoryShare::Take(UInt bytes)
{
    if (!TakeMemory(bytes))
        throw std::bad_alloc();
    bytes_ += bytes;
}

} // namespace velto::host
