// What is computed once for all samples, and shared by all threads.
#pragma once

#include "instance.h"

#include <deque>
#include <functional>
#include <mutex>

namespace velto::host
{

// A raster that a node of the setup makes.
struct SetupRaster
{
    std::string node;
    UInt32 width = 0;
    UInt32 height = 0;
    UInt bytes = 0;       // that it keeps
    double seconds = 0.0; // that its node took, in all runs
};

// The constants of a program and what is computed from them once.
class Setup
{
public:
    static Result Create(std::shared_ptr<const Program> program, std::unique_ptr<Setup>& setup);
    ~Setup();

    const Program& GetProgram() const { return *program_; }

    // Runs what does not depend on the sample; again after `Set`. The first error is returned; calls that need what
    // failed are left out, and fail the bodies that need them. No sample is computed meanwhile.
    Result Run();

    // Runs again if anything failed.
    Result RunAgainIfFailed() { return hasFailed_ ? Run() : Result(); }

    // Changes a constant by its name in the document. The value must have the constant's type.
    Result Set(std::string_view origin, const Data& value);

    // The type of the constant of that name, or null.
    const DataType* TypeOfConstant(std::string_view origin) const;

    // Counts into `counts` from the next run on; null: does not count.
    void CountInto(EvaluationCounts* counts) { counts_ = counts; }

    // Adds what functions that nodes called from other threads have counted since the last run. While no sample is
    // computed.
    void CollectCounts();

    // [the thread that runs the setup] Is called every now and then while a raster is made; must not throw.
    void SetProgress(std::function<void(const SetupRaster&)> progress) { progress_ = std::move(progress); }

    // The rasters that there are after a run.
    std::vector<SetupRaster> Rasters() const;

private:
    friend class Instance;

    explicit Setup(std::shared_ptr<const Program> program);

    // A frame for one thread, with what it counts.
    struct PooledFrame
    {
        std::unique_ptr<Instance> instance;
        EvaluationCounts counts;
    };

    // The error that a body runs into before it starts, if any.
    Result ErrorOf(const BodyPlan& body) const;

    // [any thread] Runs a function in a frame of this thread's own. Sets `lacksFrame` where there is no memory for it:
    // who calls functions may drop their errors, but this is none of a sample's.
    Result InvokePooled(UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame);
    Result RunFrame(
        Instance& instance, UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame);
    Result InvokeInNewFrame(UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame);
    // A frame that nobody uses, of the calling thread now; null without memory.
    Instance* TakeFrame();
    void DropFrames();

    bool FindRaster(std::size_t call, SetupRaster& raster) const;
    void ReportProgress();
    static Result InvokeFunction(
        const FunctionInterface* self, void* value, const ShadingContext* context, Data* cache);

    std::shared_ptr<const Program> program_;
    RunnableBody body_; // its functions outlive the values that hold them
    Storage storage_;
    std::vector<UInt32> offsets_; // of slots in a frame, for all calls
    std::vector<Result> errors_;  // by call
    std::vector<double> seconds_; // by call
    bool hasFailed_ = false;
    EvaluationCounts* counts_ = nullptr;

    std::function<void(const SetupRaster&)> progress_;
    const char* runner_ = nullptr; // the thread that runs it, as `Instance::owner_`
    std::size_t running_ = 0;      // the call
    UInt invocations_ = 0;         // of functions, by that thread

    UInt serial_; // of all runs of all setups that ever were
    std::atomic<bool> lacksFrame_ = false;
    std::mutex poolMutex_;
    std::deque<PooledFrame> pool_; // every frame that was made
    std::vector<Instance*> idle_;
};

} // namespace velto::host
