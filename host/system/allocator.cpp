#include "allocator.h"

#include <sys/mman.h>

#include <cstdlib>

namespace velto::host
{

namespace
{

std::atomic<bool> isArmed = false;
std::atomic<Int> requests = 0;
std::atomic<Int> failAt = 0;
std::atomic<bool> failAllAfter = false;

bool IsRefused(UInt size)
{
    return size > kMostBytes || AllocationFault::Strikes();
}

// A block that is filled from end to end, as rasters are, is had in large pages: the system takes as long to hand out
// small ones as a simple graph to fill them.
void* AllocLarge(UInt size)
{
    constexpr UInt kPage = UInt(2) << 20;
    void* const memory = std::aligned_alloc(kPage, (size + kPage - 1) / kPage * kPage);
    if (memory)
        ::madvise(memory, size, MADV_HUGEPAGE); // a wish: without it the block is as good
    return memory;
}

void* Alloc(UInt size, const SourceLocation*)
{
    constexpr UInt kLarge = UInt(16) << 20;
    if (IsRefused(size))
        return nullptr;
    return size < kLarge ? std::malloc(size) : AllocLarge(size);
}

void* Realloc(void* memory, UInt size, const SourceLocation*)
{
    return IsRefused(size) ? nullptr : std::realloc(memory, size);
}

void FreeWithDestructor(void* memory, void (*destructor)(void*))
{
    if (!memory)
        return;
    destructor(memory);
    std::free(memory);
}

} // namespace

void AllocationFault::FailAt(Int n, bool andAllAfter)
{
    requests = 0;
    failAt = n;
    failAllAfter = andAllAfter;
    isArmed = true;
}

void AllocationFault::Disarm()
{
    isArmed = false;
}

Int AllocationFault::Requests()
{
    return requests;
}

bool AllocationFault::Strikes()
{
    if (!isArmed.load(std::memory_order_relaxed)) [[likely]]
        return false;
    const Int request = requests++;
    return request == failAt || (failAllAfter && request > failAt);
}

const SystemInterface& SystemService()
{
    static constexpr SystemInterface service{
        .Alloc = {&Alloc},
        .Realloc = {&Realloc},
        .Free = {&std::free},
        .FreeWithDestructorI = {&FreeWithDestructor},
    };
    return service;
}

} // namespace velto::host
