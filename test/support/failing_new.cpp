#include "failing_new.h"

#include <cstdlib>
#include <new>

namespace velto::test
{

namespace
{

thread_local bool isArmed = false;
thread_local bool failAllAfter = false;
thread_local Int failAt = 0;
thread_local Int requests = 0;

} // namespace

FailingNew::FailingNew(Int n, bool andAllAfter)
{
    requests = 0;
    failAt = n;
    failAllAfter = andAllAfter;
    isArmed = true;
}

FailingNew::~FailingNew()
{
    isArmed = false;
}

Int FailingNew::Requests() const
{
    return requests;
}

static bool Strikes()
{
    if (!isArmed)
        return false;
    const Int request = requests++;
    return request == failAt || (failAllAfter && request > failAt);
}

} // namespace velto::test

// Sanitizers have an operator of their own for this one, which the `delete` below would not match.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return velto::test::Strikes() ? nullptr : std::malloc(size > 0 ? size : 1);
}

void* operator new(std::size_t size)
{
    void* const memory = ::operator new(size, std::nothrow);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
