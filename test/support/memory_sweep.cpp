#include "memory_sweep.h"

#include "failing_new.h"

#include "host/system/allocator.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace velto::test
{

void SweepMemory(Memory memory, const std::function<void()>& prepare, const std::function<Result()>& work,
    const std::function<void(const Result&)>& check, Int step)
{
    for (Int n = 0; n < 100'000; n += step)
    {
        SCOPED_TRACE(fmt::format("request {}", n));
        prepare();
        Int requests = 0;
        Result result;
        if (memory == Memory::Modules)
        {
            host::AllocationFault::FailAt(n);
            result = work();
            host::AllocationFault::Disarm();
            requests = host::AllocationFault::Requests();
        }
        else
        {
            const FailingNew failing(n);
            result = work();
            requests = failing.Requests();
        }
        if (requests <= n)
            EXPECT_TRUE(result.IsOk()) << "nothing failed, but: " << result.Message();
        else if (result.IsError()) // one that could not be made may count as one that is not there
            EXPECT_TRUE(result.Kind() == "net.velto.error.outofmemory" || result.Kind() == "net.velto.error.nullptr")
                << result.Message();
        check(result);
        if (requests <= n || ::testing::Test::HasFailure())
            return;
    }
    ADD_FAILURE() << "requests without end";
}

} // namespace velto::test
