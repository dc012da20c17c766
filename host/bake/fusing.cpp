#include "fusing.h"

namespace velto::host
{

// The compiler takes a core meanwhile, and compiled code takes at least a fifth off.
bool FusingPays(const Program& program, double seconds)
{
    constexpr double kLonger = 6.0;
    return seconds > kLonger * ExpectedFuseSeconds(program);
}

void FusingTask::Start(Setup& setup, const ShadingContext& start, const SampleShape& shape)
{
    if (isStarted_.exchange(true))
        return;
    const std::lock_guard lock(mutex_);
    thread_ = std::thread([this, &setup, start, shape] {
        FuseOptions options;
        options.stop = &stop_;
        kernel_ = Fuse(setup, start, shape, options, report_);
        isDone_.store(true, std::memory_order_release);
    });
}

std::shared_ptr<const SampleKernel> FusingTask::Kernel() const
{
    return isDone_.load(std::memory_order_acquire) ? kernel_ : nullptr;
}

void FusingTask::Wait()
{
    const std::lock_guard lock(mutex_);
    if (thread_.joinable())
        thread_.join();
}

std::string FusingTask::Finish()
{
    stop_ = true;
    Wait();
    return isStarted_ && !kernel_ ? report_.reason : std::string();
}

} // namespace velto::host
