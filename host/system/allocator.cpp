#include "allocator.h"

#include <cstdlib>

namespace velto::host
{

namespace
{

std::atomic<bool> isArmed = false;
std::atomic<Int> requests = 0;
std::atomic<Int> failAt = 0;
std::atomic<bool> failAllAfter = false;

void* Alloc(UInt size, const SourceLocation*)
{
    return AllocationFault::Strikes() ? nullptr : std::malloc(size);
}

void* Realloc(void* memory, UInt size, const SourceLocation*)
{
    return AllocationFault::Strikes() ? nullptr : std::realloc(memory, size);
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
