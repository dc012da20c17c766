#include "velto/system.h"

#include "host/system/allocator.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace velto
{

namespace
{

Result CheckBoth(int a, int b)
{
    VELTO_CHECK_STATE(a + 1 > 0);
    VELTO_CHECK_ARGUMENT(b != 0 && a / b > 1);
    return {};
}

constexpr int kFirstLine = __LINE__ - 7; // of the function

TEST(Result, NamesTheConditionThatFailed)
{
    EXPECT_TRUE(CheckBoth(4, 2).IsOk());
    const std::string file = __FILE__;
    const Result state = CheckBoth(-5, 1);
    EXPECT_EQ("net.velto.error.illegalstate", state.Kind());
    EXPECT_EQ(
        fmt::format("Illegal state: Condition a + 1 > 0 not fulfilled. {}({})", file, kFirstLine + 2), state.Message());
    const Result argument = CheckBoth(1, 1);
    EXPECT_EQ("net.velto.error.illegalargument", argument.Kind());
    EXPECT_EQ(
        fmt::format("Illegal argument: Condition b != 0 && a / b > 1 not fulfilled. {}({})", file, kFirstLine + 3),
        argument.Message());
}

TEST(Result, IsPassedUpUnchanged)
{
    const Result made = MakeError(error::kUnresolved, "here");
    const auto pass = [&]() -> Result {
        VELTO_TRY(made);
        return {};
    };
    EXPECT_EQ(made.Error(), pass().Error());
    EXPECT_EQ(1, made.Error()->references);
}

TEST(Result, IsOutOfMemoryWithoutMemoryForAnError)
{
    host::AllocationFault::FailAt(0, true);
    const Result error = MakeError(error::kIllegalState, "a text that needs memory");
    const Result again = OutOfMemory();
    host::AllocationFault::Disarm();
    EXPECT_EQ("net.velto.error.outofmemory", error.Kind());
    EXPECT_EQ(error.Error(), again.Error()); // one object, for good
}

} // namespace

} // namespace velto
