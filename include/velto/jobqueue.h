// Work for many threads.
#pragma once

#include "velto/system.h"

namespace velto
{

struct ThreadServicesInterface
{
    static constexpr Id kId{"net.velto.interface.threadservices"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [any thread] How many threads the job queue keeps, at least 1.
    VELTO_METHOD(GetWorkerCount, Int32());
};
VELTO_USED_BY_INCLUDERS("velto/jobqueue.h", ThreadServicesInterface);

// A group of jobs that belong together. `run` is called once for each job, on any thread, in any order.
struct JobGroup
{
    void (*run)(void* user, Int32 job) = nullptr;
    void* user = nullptr;
    Int32 jobs = 0;
};

struct JobQueueInterface
{
    static constexpr Id kId{"net.velto.interface.jobqueue"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [any thread, workers too] Runs every job of the group and returns when the last has ended. The calling thread
    // helps, and takes up no work of other groups meanwhile.
    VELTO_METHOD(EnqueueAndWait, void(const JobGroup* group));
};
VELTO_USED_BY_INCLUDERS("velto/jobqueue.h", JobQueueInterface);

inline constinit Bool g_enableParallelFor = true;

} // namespace velto
