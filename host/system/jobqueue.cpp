#include "jobqueue.h"

#include "guard.h"

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <atomic>

namespace velto::host
{

namespace
{

void EnqueueAndWait(const JobGroup* group)
{
    // Isolated: a worker that waits here takes up jobs of this group alone, so that a node that bakes inside a sample
    // is never interrupted by another sample.
    std::atomic<Int32> next = 0;
    const auto runNext = [&](Int32) { group->run(group->user, next++); };
    const Result queued = Guarded([&]() -> Result {
        tbb::this_task_arena::isolate(
            [&] { tbb::parallel_for(Int32(0), group->jobs, runNext, tbb::simple_partitioner()); });
        return {};
    });
    // Without memory for its tasks the library throws, once the tasks that were started have ended.
    while (queued.IsError() && next < group->jobs)
        runNext(0);
}

Int32 WorkerCount()
{
    Int32 count = 1;
    Guarded([&]() -> Result {
        count = tbb::this_task_arena::max_concurrency();
        return {};
    }).Ignore();
    return count;
}

} // namespace

const JobQueueInterface& JobQueueService()
{
    static constexpr JobQueueInterface service{.EnqueueAndWait = {&EnqueueAndWait}};
    return service;
}

const ThreadServicesInterface& ThreadService()
{
    static constexpr ThreadServicesInterface service{.GetWorkerCount = {&WorkerCount}};
    return service;
}

} // namespace velto::host
