// How much memory the process may use, and how much of that is taken by what is large: pictures, rasters, tables, and
// the bands of a bake.
#pragma once

#include "velto/types.h"

#include <filesystem>

namespace velto::host
{

// The least of the machine's memory, the limit of the process's address space and the limits of its control groups,
// which are read below `root`.
UInt AvailableMemory(const std::filesystem::path& root = "/");

// Three quarters of what is available, unless it is set.
UInt MemoryBudget();
void SetMemoryBudget(UInt bytes);
UInt MemoryTaken();

// How many requests were refused. A caller that is refused may go on with another result, so those who need the result
// that more memory would have given look here.
UInt MemoryRefusals();

// While this lives, refusals on this thread are not counted, since the thread will try again.
class MemoryTrial
{
public:
    MemoryTrial();
    ~MemoryTrial();
    MemoryTrial(const MemoryTrial&) = delete;
    MemoryTrial& operator=(const MemoryTrial&) = delete;
};

// [any thread] False, and nothing is taken, beyond the budget.
bool TakeMemory(UInt bytes);
void GiveMemoryBack(UInt bytes);

// A part of the budget, taken for as long as this lives.
class MemoryShare
{
public:
    MemoryShare() = default;
    ~MemoryShare();
    MemoryShare(const MemoryShare&) = delete;
    MemoryShare& operator=(const MemoryShare&) = delete;

    // Throws `std::bad_alloc` beyond the budget.
    void Take(UInt bytes);

private:
    UInt bytes_ = 0;
};

} // namespace velto::host
