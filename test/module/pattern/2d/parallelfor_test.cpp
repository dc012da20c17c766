#include "module/source/pattern/2d/parallelfor.h"

#include "host/system/allocator.h"
#include "host/system/jobqueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

namespace velto::pattern::twod
{

namespace
{

// The job queue of these tests in the place of the host's, with as many workers as a test likes.
class ParallelForTest : public ::testing::Test
{
protected:
    ~ParallelForTest() override
    {
        slots<JobQueueInterface> = host::JobQueueService();
        slots<ThreadServicesInterface> = host::ThreadService();
        g_enableParallelFor = true;
        host::AllocationFault::Disarm();
    }

    static void Bind(Int32 workerCount, void (*run)(const JobGroup*))
    {
        workers = workerCount;
        groups = 0;
        queue = run;
        slots<ThreadServicesInterface>.GetWorkerCount.function = []() -> Int32 { return workers; };
        slots<JobQueueInterface>.EnqueueAndWait.function = [](const JobGroup* group) {
            ++groups;
            queue(group);
        };
    }

    static inline Int32 workers = 1;
    static inline int groups = 0;
    static inline void (*queue)(const JobGroup*) = nullptr;
};

void RunForwards(const JobGroup* group)
{
    for (Int32 job = 0; job < group->jobs; ++job)
        group->run(group->user, job);
}

void RunBackwards(const JobGroup* group)
{
    for (Int32 job = group->jobs - 1; job >= 0; --job)
        group->run(group->user, job);
}

void RunOnlyTheLast(const JobGroup* group)
{
    group->run(group->user, group->jobs - 1);
}

// Each job starts some time after the one before, so that later ones find their shares begun or gone.
void RunDelayed(const JobGroup* group)
{
    std::vector<std::thread> threads;
    for (Int32 job = 0; job < group->jobs; ++job)
    {
        threads.emplace_back([group, job] { group->run(group->user, job); });
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(ParallelForTest, RunsEveryIndexOnceUnderAnyQueue)
{
    for (const auto run : {&RunForwards, &RunBackwards, &RunOnlyTheLast, &RunDelayed})
    {
        for (const UInt32 range : {0u, 1u, 2u, 15u, 16u, 17u, 100u, 1023u})
        {
            for (const Int32 workerCount : {0, 1, 2, 3, 7, 2000})
            {
                if (run == &RunDelayed && workerCount > 7)
                    continue;
                Bind(workerCount, run);
                std::vector<std::atomic<int>> counts(range);
                ParallelFor::Dynamic(UInt32(0), range, [&](UInt32 i) { ++counts[i]; });
                for (UInt32 i = 0; i < range; ++i)
                    ASSERT_EQ(counts[i], 1) << "index " << i << " of " << range << ", " << workerCount << " workers";
            }
        }
    }
}

TEST_F(ParallelForTest, AWorkerBeginsWithItsOwnShareAndGoesRoundTheRing)
{
    // 100 indices in three shares, the last with the remainder.
    struct Batch
    {
        Int32 first;
        Int32 end;
        bool operator==(const Batch&) const = default;
    };
    Bind(3, [](const JobGroup* group) { group->run(group->user, 1); });
    std::vector<Batch> batches;
    ParallelFor::DynamicBatches(Int32(-50), Int32(50), [&](Int32 first, Int32 end) {
        batches.push_back({first, end});
    });
    const std::vector<Batch> expected{
        {-17, -1}, {-1, 15}, {15, 16}, {16, 32}, {32, 48}, {48, 50}, {-50, -34}, {-34, -18}, {-18, -17}};
    EXPECT_EQ(batches, expected);
}

TEST_F(ParallelForTest, SmallSharesMakeSmallBatches)
{
    Bind(4, &RunForwards);
    std::vector<Int32> sizes;
    ParallelFor::DynamicBatches(0, 14, [&](Int32 first, Int32 end) { sizes.push_back(end - first); });
    EXPECT_EQ(sizes, (std::vector<Int32>{3, 3, 3, 3, 2}));
}

TEST_F(ParallelForTest, WorksAtBothEndsOfTheIndices)
{
    constexpr Int32 kMost = std::numeric_limits<Int32>::max();
    constexpr UInt32 kMostUnsigned = std::numeric_limits<UInt32>::max();
    Bind(2, &RunForwards);
    Int sum = 0;
    ParallelFor::Dynamic(kMost - 40, kMost, [&](Int32 i) { sum += kMost - i; });
    EXPECT_EQ(sum, 40 * 41 / 2);
    ParallelFor::Dynamic(kMostUnsigned - 40, kMostUnsigned, [&](UInt32 i) { sum -= kMostUnsigned - i; });
    EXPECT_EQ(sum, 0);
    ParallelFor::Dynamic(5, -5, [&](Int32) { ++sum; });
    EXPECT_EQ(sum, 0);
}

TEST_F(ParallelForTest, RunsOnTheCallingThreadWithoutMemoryOrWhenSwitchedOff)
{
    const auto count = [&] {
        int runs = 0;
        ParallelFor::Dynamic(0, 40, [&](Int32) { ++runs; });
        return runs;
    };
    Bind(2, &RunForwards);
    host::AllocationFault::FailAt(0);
    EXPECT_EQ(count(), 40);
    host::AllocationFault::Disarm();
    EXPECT_EQ(groups, 0);
    g_enableParallelFor = false;
    EXPECT_EQ(count(), 40);
    EXPECT_EQ(groups, 0);
    g_enableParallelFor = true;
    EXPECT_EQ(count(), 40);
    EXPECT_EQ(groups, 1);
}

TEST_F(ParallelForTest, NestsOnTheHostsQueue)
{
    std::atomic<int> runs = 0;
    ParallelFor::Dynamic(0, 100, [&](Int32) { ParallelFor::Dynamic(0, 100, [&](Int32) { ++runs; }); });
    EXPECT_EQ(runs, 10000);
}

} // namespace

} // namespace velto::pattern::twod
