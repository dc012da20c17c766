#include "allocator.h"

#include "memory.h"

#include <malloc.h>
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

// A block that is filled from end to end, as rasters are, is made of large pages: the system takes as long to hand out
// small ones as a simple graph takes to fill them.
void* AllocLarge(UInt size)
{
    constexpr UInt kPage = UInt(2) << 20;
    void* const memory = std::aligned_alloc(kPage, (size + kPage - 1) / kPage * kPage);
    if (memory)
        ::madvise(memory, size, MADV_HUGEPAGE); // a wish: without it the block is as good
    return memory;
}

// Blocks of at least this size count towards the budget, with the size that they really have.
constexpr UInt kCounted = UInt(64) << 10;

UInt CountedBytes(void* memory)
{
    const UInt size = memory ? ::malloc_usable_size(memory) : 0;
    return size < kCounted ? 0 : size;
}

// Takes the block's share of the budget, or gives the block back.
void* Counted(void* memory)
{
    if (const UInt bytes = CountedBytes(memory); bytes > 0 && !TakeMemory(bytes))
    {
        std::free(memory);
        return nullptr;
    }
    return memory;
}

void* Alloc(UInt size, const SourceLocation*)
{
    constexpr UInt kCacheLine = 64;
    constexpr UInt kLarge = UInt(2) << 20;
    if (IsRefused(size))
        return nullptr;
    if (size < kCounted)
        return std::malloc(size);
    return Counted(size < kLarge ? std::aligned_alloc(kCacheLine, (size + kCacheLine - 1) / kCacheLine * kCacheLine)
                                 : AllocLarge(size));
}

void* Realloc(void* memory, UInt size, const SourceLocation*)
{
    const UInt before = CountedBytes(memory);
    const UInt more = size >= kCounted && size > before ? size - before : 0;
    if (IsRefused(size) || (more > 0 && !TakeMemory(more)))
        return nullptr;
    void* const moved = std::realloc(memory, size);
    const UInt after = moved ? CountedBytes(moved) : before;
    GiveMemoryBack(before + more - after); // the other way round where it is less than nothing
    return moved;
}

void Free(void* memory)
{
    GiveMemoryBack(CountedBytes(memory));
    std::free(memory);
}

void FreeWithDestructor(void* memory, void (*destructor)(void*))
{
    if (!memory)
        return;
    destructor(memory);
    Free(memory);
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
        .Free = {&Free},
        .FreeWithDestructorI = {&FreeWithDestructor},
    };
    return service;
}

} // namespace velto::host
