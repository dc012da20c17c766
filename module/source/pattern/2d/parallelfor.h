// Loops that run on all threads of the job queue while the caller waits.
#pragma once

#include "velto/jobqueue.h"

#include <limits>
#include <new>
#include <type_traits>

namespace velto::pattern::twod
{

// A range in shares, one a worker. A worker takes batches from its own share and, when that is spent, from the next, so
// that fast workers take over what slow ones have not reached, and any one worker would finish the range alone.
class ParallelForJob
{
public:
    struct Share
    {
        std::atomic<UInt32> cursor{0}; // batches ahead of it are taken; workers that find the share spent push it past
        UInt32 begin = 0;
        UInt32 count = 0;
        std::byte padding[52]; // keeps cursors on lines of their own
    };

    ParallelForJob(Share* shares, UInt32 workers, UInt32 range) : shares_(shares), workers_(workers), remaining_(range)
    {
        const UInt32 count = range / workers;
        for (UInt32 i = 0; i < workers; ++i)
        {
            shares[i].begin = i * count;
            shares[i].count = count;
        }
        Share& last = shares[workers - 1];
        last.count = range - last.begin;
        granularity_ = Min(kGranularity, count);
        // Every worker may push a cursor past the end once.
        if (last.count + static_cast<UInt>(workers) * granularity_ > std::numeric_limits<UInt32>::max())
            granularity_ = 1;
    }

protected:
    static constexpr UInt32 kGranularity = 16;

    // Calls `batch(first, end)` for the batches that fall to this worker.
    template <class Batch>
    void Work(UInt32 worker, const Batch& batch)
    {
        if (finished_.load(std::memory_order_acquire))
            return;
        for (UInt32 i = 0; i < workers_; ++i)
        {
            Share& share = shares_[(worker + i) % workers_];
            UInt32 processed = 0;
            for (;;)
            {
                const UInt32 first = share.cursor.fetch_add(granularity_, std::memory_order_relaxed);
                if (first >= share.count)
                    break;
                const UInt32 count = Min(granularity_, share.count - first);
                batch(share.begin + first, share.begin + first + count);
                processed += count;
            }
            const Int left = remaining_.fetch_sub(processed, std::memory_order_acq_rel) - processed;
            if (left == 0)
                finished_.store(true, std::memory_order_release);
            else if (left < 0)
                Stop("Stop: Someone has broken ParallelFor.");
        }
    }

private:
    Share* shares_;
    UInt32 workers_;
    UInt32 granularity_ = 1;
    std::atomic<Int> remaining_;
    std::atomic<bool> finished_{false};
};

static_assert(sizeof(ParallelForJob::Share) == 64);

struct ParallelFor
{
    // Calls `body(first, end)` for ranges of at most 16 indices that make up [from, to), in no set order.
    template <class Index, class Body>
    static void DynamicBatches(Index from, Index to, const Body& body)
    {
        static_assert(sizeof(Index) == 4 && std::is_integral_v<Index>);
        if (from >= to)
            return;
        const UInt32 range = static_cast<UInt32>(to) - static_cast<UInt32>(from);
        if (g_enableParallelFor)
        {
            const Int32 threads = Bound<ThreadServicesInterface>().GetWorkerCount();
            const UInt32 workers = Min(static_cast<UInt32>(Max(threads, 1)), range);
            void* const memory = Allocate(workers * sizeof(ParallelForJob::Share));
            if (memory)
            {
                auto* const shares = static_cast<ParallelForJob::Share*>(memory);
                for (UInt32 i = 0; i < workers; ++i)
                    ::new (shares + i) ParallelForJob::Share;
                DynamicJob<Index, Body> job(shares, workers, range, from, body);
                const JobGroup group{&DynamicJob<Index, Body>::Run, &job, static_cast<Int32>(workers)};
                Bound<JobQueueInterface>().EnqueueAndWait(&group);
                Bound<SystemInterface>().Free(memory);
                return;
            }
        }
        ParallelForJob::Share share;
        DynamicJob<Index, Body> job(&share, 1, range, from, body);
        DynamicJob<Index, Body>::Run(&job, 0);
    }

    // Calls `body(index)` for every index in [from, to), in no set order.
    template <class Index, class Body>
    static void Dynamic(Index from, Index to, const Body& body)
    {
        DynamicBatches(from, to, [&body](Index first, Index end) {
            for (Index i = first; i < end; ++i)
                body(i);
        });
    }

private:
    template <class Index, class Body>
    class DynamicJob : public ParallelForJob
    {
    public:
        DynamicJob(Share* shares, UInt32 workers, UInt32 range, Index from, const Body& body)
            : ParallelForJob(shares, workers, range), from_(from), body_(body)
        {
        }

        static void Run(void* self, Int32 worker)
        {
            auto* const job = static_cast<DynamicJob*>(self);
            job->Work(static_cast<UInt32>(worker),
                [job](UInt32 first, UInt32 end) { job->body_(job->IndexAt(first), job->IndexAt(end)); });
        }

    private:
        Index IndexAt(UInt32 offset) const { return static_cast<Index>(static_cast<UInt32>(from_) + offset); }

        Index from_;
        const Body& body_;
    };
};

} // namespace velto::pattern::twod
