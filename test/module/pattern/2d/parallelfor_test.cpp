#include "module/source/pattern/2d/parallelfor.h"

#include "host/system/allocator.h"
#include "host/system/jobqueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>
#include <utility>
#include <vector>

namespace velto::pattern::twod
{

namespace
{

// A job queue of the test's own in the place of the host's.
class ParallelForThreads : public ::testing::Test
{
protected:
    ~ParallelForThreads() override
    {
        slots<JobQueueInterface> = host::JobQueueService();
        slots<ThreadServicesInterface> = host::ThreadService();
        g_enableParallelFor = true;
        host::AllocationFault::Disarm();
    }

    static void Bind(Int32 workerCount, void (*run)(const JobGroup*))
    {
        workers = workerCount;
        slots<ThreadServicesInterface>.GetWorkerCount.function = []() -> Int32 { return workers; };
        slots<JobQueueInterface>.EnqueueAndWait.function = run;
    }

    static inline Int32 workers = 1;
};

void RunBackwards(const JobGroup* group)
{
    for (Int32 job = group->jobs - 1; job >= 0; --job)
        group->run(group->user, job);
}

void RunOnlyTheLast(const JobGroup* group)
{
    group->run(group->user, group->jobs - 1);
}

// Each job starts some time after the one before, and finds its share begun or gone.
void RunDelayed(const JobGroup* group)
{
    std::vector<std::thread> threads;
    for (Int32 job = 0; job < group->jobs; ++job)
    {
        threads.emplace_back(group->run, group->user, job);
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(ParallelForThreads, RunsEveryIndexOnceUnderAnyQueue)
{
    for (const auto run : {&RunBackwards, &RunOnlyTheLast, &RunDelayed})
    {
        for (const UInt32 range : {0u, 1u, 15u, 16u, 17u, 100u, 1023u})
        {
            for (const Int32 workerCount : {0, 1, 2, 7, 100})
            {
                Bind(workerCount, run);
                std::vector<std::atomic<int>> counts(range);
                ParallelFor::Dynamic(UInt32(0), range, [&](UInt32 i) { ++counts[i]; });
                for (UInt32 i = 0; i < range; ++i)
                    ASSERT_EQ(counts[i], 1) << "index " << i << " of " << range << ", " << workerCount << " workers";
            }
        }
    }
}

TEST_F(ParallelForThreads, AWorkerBeginsWithItsOwnShareAndGoesRoundTheRing)
{
    Bind(3, [](const JobGroup* group) { group->run(group->user, 1); });
    using Batches = std::vector<std::pair<Int32, Int32>>;
    const auto batches = [](Int32 from, Int32 to) {
        Batches list;
        ParallelFor::DynamicBatches(from, to, [&](Int32 first, Int32 end) { list.emplace_back(first, end); });
        return list;
    };
    // The last share has the remainder; batches are no longer than a share.
    EXPECT_EQ(batches(-50, 50),
        (Batches{{-17, -1}, {-1, 15}, {15, 16}, {16, 32}, {32, 48}, {48, 50}, {-50, -34}, {-34, -18}, {-18, -17}}));
    EXPECT_EQ(batches(0, 8), (Batches{{2, 4}, {4, 6}, {6, 8}, {0, 2}}));
    constexpr Int32 kMost = std::numeric_limits<Int32>::max();
    EXPECT_EQ(batches(kMost - 3, kMost), (Batches{{kMost - 2, kMost - 1}, {kMost - 1, kMost}, {kMost - 3, kMost - 2}}));
    EXPECT_EQ(batches(5, -5), Batches());
}

TEST_F(ParallelForThreads, RunsOnTheCallingThreadWithoutMemoryOrWhenSwitchedOff)
{
    int runs = 0;
    const auto run = [&] { ParallelFor::Dynamic(0, 40, [&](Int32) { ++runs; }); };
    Bind(2, [](const JobGroup*) { ADD_FAILURE() << "enqueued"; });
    host::AllocationFault::FailAt(0);
    run();
    host::AllocationFault::Disarm();
    EXPECT_EQ(runs, 40);
    g_enableParallelFor = false;
    run();
    EXPECT_EQ(runs, 80);
}

TEST_F(ParallelForThreads, NestsOnTheHostsQueue)
{
    std::atomic<int> runs = 0;
    ParallelFor::Dynamic(0, 100, [&](Int32) { ParallelFor::Dynamic(0, 100, [&](Int32) { ++runs; }); });
    EXPECT_EQ(runs, 10000);
}

} // namespace

} // namespace velto::pattern::twod
