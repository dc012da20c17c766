#include "jobqueue.h"

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

namespace velto::host
{

namespace
{

void EnqueueAndWait(const JobGroup* group)
{
    // Isolated: a worker that waits here takes up jobs of this group alone, so that a node that bakes inside a sample
    // is never interrupted by another sample.
    tbb::this_task_arena::isolate([group] {
        tbb::parallel_for(
            Int32(0), group->jobs, [group](Int32 job) { group->run(group->user, job); }, tbb::simple_partitioner());
    });
}

} // namespace

const JobQueueInterface& JobQueueService()
{
    static constexpr JobQueueInterface service{.EnqueueAndWait = {&EnqueueAndWait}};
    return service;
}

const ThreadServicesInterface& ThreadService()
{
    static constexpr ThreadServicesInterface service{
        .GetWorkerCount = {+[]() -> Int32 { return tbb::this_task_arena::max_concurrency(); }},
    };
    return service;
}

} // namespace velto::host
