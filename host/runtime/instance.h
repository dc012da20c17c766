// A program at work: what is shared by all threads (`Setup`), and what each thread has to itself (`Instance`).
#pragma once

#include "body.h"

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace velto::host
{

class Setup;

// How often each node's compute function ran, by index of its name.
using EvaluationCounts = std::vector<UInt>;

// How long each node's calls took, without what they asked other nodes for.
struct NodeTimes
{
    std::vector<double> seconds; // by index of the node's name
    double clockSeconds = 0.0;   // of one look at the clock, which does not count
};

// One thread's frame. Sampling neither allocates nor locks.
class Instance
{
public:
    // A frame over a setup that outlives it.
    static Result Create(Setup& setup, std::unique_ptr<Instance>& instance);

    // The context of the next sample; the caller fills it.
    ShadingContext& Context() { return context_; }

    // Computes the outputs under `Context()`. On error they are as they were.
    Result Evaluate();

    // The state of nodes starts from this sample, whichever sample needs it first, in functions as well. Calls for it
    // count only if not every sample repeats them; what they log is dropped.
    void StartStateFrom(const ShadingContext& context) { start_ = context; }

    // The value of an output, by its place in the program.
    const void* Output(std::size_t i) const { return outputs_[i]; }

    // Values of the frame, as the program places them.
    std::byte* Memory() const { return storage_.At(0); }

    // What nodes keep starts now, in all bodies; what else a kernel's frame needs is there as well.
    void PrimeAll();

    // Whether a function that was called from another thread had no memory to run in.
    bool LacksFrame() const { return lacksFrame_.load(std::memory_order_relaxed); }

    // Forgets what nodes keep, after a failure of a kernel.
    void ForgetState();

    // Samples do not depend on the samples before them: outputs that a node leaves alone are made anew each time, what
    // nodes keep starts from the same sample, and what a failed run kept is forgotten.
    void SetIndependentSamples();

    // Counts into `counts` from now on; null: does not count.
    void CountInto(EvaluationCounts* counts) { counts_ = counts; }

    // Looks at the clock after every call from now on, and adds to `times`; null: does not.
    void TimeInto(NodeTimes* times) { times_ = times; }

    // The node at which the last failed run of this thread failed, or null.
    static const std::string* FailedNode(const Program& program);

private:
    friend class Setup;

    explicit Instance(Setup& setup);

    Result RunBody(RunnableBody& body, const ShadingContext* context);
    Result RunTimedCalls(RunnableBody& body);
    Result FailBody(RunnableBody& body, UInt32 node, const Result& error);
    void ForgetStateOf(RunnableBody& body);
    void PrimeBody(RunnableBody& body, const ShadingContext* context);
    Result RunFunction(UInt32 body, void* value, const ShadingContext* context);
    void Prime(UInt32 body, const ShadingContext& asked);
    Result FailForFrame();
    static Result InvokeFunction(
        const FunctionInterface* self, void* value, const ShadingContext* context, Data* cache);

    Setup& setup_;
    alignas(kPageShare) ShadingContext context_;
    std::vector<RunnableBody> bodies_; // their functions outlive the values that hold them
    Storage storage_;
    std::vector<const void*> outputs_;
    EvaluationCounts* counts_ = nullptr;
    UInt countStep_ = 1;
    NodeTimes* times_ = nullptr;
    double askedSeconds_ = 0.0; // by the call that is timed, of functions
    bool areSamplesIndependent_ = false;
    std::vector<char> needsPriming_; // by body
    std::optional<ShadingContext> start_;
    const char* owner_ = nullptr; // the thread that runs it, by the address of a thread's own variable
    std::atomic<bool> lacksFrame_ = false;
};

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

    // Values of the setup, as the program places them.
    const std::byte* Memory() const { return storage_.At(0); }
    bool HasFailed() const { return hasFailed_; }

    // Runs again if anything failed.
    Result RunAgainIfFailed() { return hasFailed_ ? Run() : Result(); }

    // Runs what has not run, what depends on what was set since it did, and what failed. As `Run` otherwise.
    Result Update();

    // Changes a constant by its name in the document; a value of another type is converted. While no sample is
    // computed.
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

    // While it is true, functions that the setup's nodes call fail, and so do these nodes. Null: nothing stops it.
    void SetStop(const std::atomic<bool>* stop) { stop_ = stop; }

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

    void RunCall(std::size_t i);
    void ResetOutputs(std::size_t i);
    Result FinishRun();
    std::vector<bool> CallsToUpdate() const;

    // The error that a body runs into before it starts, if any.
    Result ErrorOf(const BodyPlan& body) const;

    // [any thread] Runs a function in a frame of this thread's own. Sets `lacksFrame` if there is no memory for
    // it: callers of functions may drop their errors, but this error is not the sample's own.
    Result InvokePooled(UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame);
    Result RunFrame(
        Instance& instance, UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame);
    Result InvokeInNewFrame(UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame);
    // Gives the calling thread an idle frame, or a new one; null without memory.
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
    bool hasRun_ = false;
    bool hasFailed_ = false;
    std::set<UInt32> changed_; // constants that were set since the last run, by their offsets
    EvaluationCounts* counts_ = nullptr;

    std::function<void(const SetupRaster&)> progress_;
    const char* runner_ = nullptr; // the thread that runs it, as `Instance::owner_`
    std::size_t running_ = 0;      // the call
    UInt invocations_ = 0;         // of functions, by that thread
    const std::atomic<bool>* stop_ = nullptr;
    std::atomic<bool> wasStopped_ = false;

    UInt serial_; // of all runs of all setups that ever were
    std::atomic<bool> lacksFrame_ = false;
    std::mutex poolMutex_;
    std::deque<PooledFrame> pool_; // every frame that was made
    std::vector<Instance*> idle_;
};

} // namespace velto::host
