// Compiles a bake's graph beside its sampling.
#pragma once

#include "host/fuse/fuse.h"

#include <atomic>
#include <mutex>
#include <thread>

namespace velto::host
{

// Whether to compile a graph that calls would sample for so long, in seconds of processors.
bool FusingPays(const Program& program, double seconds);

class FusingTask
{
public:
    ~FusingTask() { Finish(); }

    // [any thread] Once; later calls do nothing. The setup outlives the task.
    void Start(Setup& setup, const ShadingContext& start, const SampleShape& shape);

    // [any thread] Null until there is one.
    std::shared_ptr<const SampleKernel> Kernel() const;

    // [one thread] Waits for the kernel.
    void Wait();

    // [one thread] Gives up what is not done, and tells why there is no kernel.
    std::string Finish();

private:
    std::atomic<bool> isStarted_ = false;
    std::atomic<bool> isDone_ = false;
    std::atomic<bool> stop_ = false;
    std::shared_ptr<const SampleKernel> kernel_; // once done
    FuseReport report_;
    std::mutex mutex_;
    std::thread thread_;
};

} // namespace velto::host
