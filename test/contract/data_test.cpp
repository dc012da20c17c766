#include "velto/porttypes.h"

#include "host/system/allocator.h"

#include <gtest/gtest.h>

namespace velto
{

namespace
{

// Makes the next allocation fail for a scope.
struct NoMemory
{
    NoMemory() { host::AllocationFault::FailAt(0, true); }
    ~NoMemory() { host::AllocationFault::Disarm(); }
};

// Counts the objects that there are.
struct Counted
{
    static inline int alive = 0;
    int number = 0;

    Counted(int n = 0) : number(n) { ++alive; }
    Counted(const Counted& other) : number(other.number) { ++alive; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --alive; }
};

TEST(BaseArray, GrowsAndKeepsWhatItHas)
{
    {
        BaseArray<Counted> array;
        for (int i = 0; i < 100; ++i)
            ASSERT_TRUE(array.Append(i).IsOk());
        EXPECT_EQ(100, Counted::alive);
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(i, array[i].number);
        ASSERT_TRUE(array.Resize(7).IsOk());
        EXPECT_EQ(7, Counted::alive);
        BaseArray<Counted> copy;
        ASSERT_TRUE(copy.CopyFrom(array).IsOk());
        EXPECT_EQ(6, copy.Last().number);
        array = std::move(copy);
        EXPECT_TRUE(copy.IsEmpty());
        EXPECT_EQ(7, Counted::alive);
    }
    EXPECT_EQ(0, Counted::alive);
}

TEST(BaseArray, IsAsItWasWhenGrowthFails)
{
    BaseArray<Int> array;
    for (Int i = 0; i < 8; ++i)
        ASSERT_TRUE(array.Append(i).IsOk());
    const BaseArray<Int> empty;
    BaseArray<Int> filled;
    {
        const NoMemory none;
        EXPECT_EQ("net.velto.error.outofmemory", array.Append(8).Kind());
        EXPECT_EQ("net.velto.error.outofmemory", array.Resize(9).Kind());
        EXPECT_EQ("net.velto.error.outofmemory", filled.CopyFrom(array).Kind());
        EXPECT_TRUE(filled.CopyFrom(empty).IsOk());
        EXPECT_TRUE(array.Resize(3).IsOk());
    }
    EXPECT_EQ(3, array.Count());
    EXPECT_EQ(2, array.Last());
    // More bytes than a word can count.
    EXPECT_EQ("net.velto.error.outofmemory", array.EnsureCapacity(INT64_MAX / 4).Kind());
}

TEST(Data, HoldsCopiesAndEqualsByValue)
{
    BaseArray<Id> names;
    ASSERT_TRUE(names.Append("base").IsOk());
    Data a;
    Data b;
    ASSERT_TRUE(a.Set(names).IsOk());
    ASSERT_TRUE(b.CopyFrom(a).IsOk());
    EXPECT_TRUE(a == b);
    ASSERT_TRUE(names.Append("coat").IsOk());
    EXPECT_EQ(1, a.As<BaseArray<Id>>()->Count());
    ASSERT_TRUE(b.Set(names).IsOk());
    EXPECT_FALSE(a == b);
    EXPECT_EQ(nullptr, a.As<Float>());
    {
        const NoMemory none;
        EXPECT_EQ("net.velto.error.outofmemory", b.Set(1.0).Kind());
        EXPECT_EQ("net.velto.error.outofmemory", b.CopyFrom(a).Kind());
    }
    EXPECT_EQ(2, b.As<BaseArray<Id>>()->Count());
}

} // namespace

} // namespace velto
