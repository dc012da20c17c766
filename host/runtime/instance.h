// A program at work: what is shared by all threads (`Setup`), and what each thread has to itself (`Instance`).
#pragma once

#include "program.h"

#include "velto/function.h"

#include <atomic>
#include <mutex>

namespace velto::host
{

class Setup;

// Raw memory with the values of a store in it.
class Storage
{
public:
    explicit Storage(const StorePlan& plan);
    ~Storage();
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    // Makes every value, constants with what they start as.
    Result Construct();

    std::byte* At(UInt32 offset) const { return memory_ + offset; }

private:
    const StorePlan& plan_;
    std::byte* memory_ = nullptr;
    std::size_t constructed_ = 0;
};

struct Call
{
    void (*compute)(Result*, const MicroNode*, const Binding*);
    const MicroNode* record;
    Binding binding;
    UInt32 node;
};

// A function object of a body; what it belongs to is an `Instance` or a `Setup`.
struct BodyFunction : FunctionInterface
{
    void* owner = nullptr;
    UInt32 body = 0;
    const DataType* type = nullptr;
    const void* constant = nullptr;
};

// A body with its slots linked.
struct RunnableBody
{
    std::vector<Call> calls;
    std::vector<Slot*> contextSlots; // take the context of each run
    std::vector<BodyFunction> functions;
    std::unique_ptr<std::byte[]> frames;
    const void* result = nullptr;
    const BodyPlan* plan = nullptr;
};

// How often each node's compute function ran, by index of its name.
using EvaluationCounts = std::vector<UInt>;

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

    // The value of an output, by its place in the program.
    const void* Output(std::size_t i) const { return outputs_[i]; }

    // Samples do not depend on the samples before them: outputs that a node leaves alone are made anew each time.
    void SetIndependentSamples(bool independent) { areSamplesIndependent_ = independent; }

    // Counts into `counts` from now on; null: does not count.
    void CountInto(EvaluationCounts* counts) { counts_ = counts; }

    // The node at which the last failed run of this thread failed, or null.
    static const std::string* FailedNode(const Program& program);

private:
    friend class Setup;

    explicit Instance(Setup& setup);

    Result RunBody(RunnableBody& body, const ShadingContext* context);
    Result RunFunction(UInt32 body, void* value, const ShadingContext* context);
    void PrimeFunction(UInt32 body, const ShadingContext& asked);
    static Result InvokeFunction(
        const FunctionInterface* self, void* value, const ShadingContext* context, Data* cache);

    Setup& setup_;
    ShadingContext context_;
    std::vector<RunnableBody> bodies_; // their functions outlive the values that hold them
    Storage storage_;
    std::vector<const void*> outputs_;
    EvaluationCounts* counts_ = nullptr;
    bool areSamplesIndependent_ = false;
    std::vector<bool> primed_;    // by body
    const char* owner_ = nullptr; // the thread that runs it, by the address of a thread's own variable
};

// The constants of a program and what is computed from them once.
class Setup
{
public:
    static Result Create(std::shared_ptr<const Program> program, std::unique_ptr<Setup>& setup);
    ~Setup();

    const Program& GetProgram() const { return *program_; }

    // Runs what does not depend on the sample; again after `Set`. The first error is returned; calls that need what
    // failed are left out, and fail the bodies that need them.
    Result Run();

    // Runs again if anything failed.
    Result RunAgainIfFailed() { return hasFailed_ ? Run() : Result(); }

    // Changes a constant by its name in the document. The value must have the constant's type.
    Result Set(std::string_view origin, const Data& value);

    // The type of the constant of that name, or null.
    const DataType* TypeOfConstant(std::string_view origin) const;

    void CountInto(EvaluationCounts* counts);

    // [any thread] A frame of this thread's own, for a function that the setup's nodes call.
    Result InvokePooled(UInt32 body, void* value, const ShadingContext* context);

    double Seconds() const { return seconds_; }

private:
    friend class Instance;

    explicit Setup(std::shared_ptr<const Program> program);

    // The error that a body runs into before it starts, if any.
    Result ErrorOf(const BodyPlan& body) const;
    static Result InvokeFunction(
        const FunctionInterface* self, void* value, const ShadingContext* context, Data* cache);

    std::shared_ptr<const Program> program_;
    RunnableBody body_; // its functions outlive the values that hold them
    Storage storage_;
    std::vector<UInt32> offsets_; // of slots in a frame, for all calls
    std::vector<Result> errors_;  // by call
    bool hasFailed_ = false;
    double seconds_ = 0.0;
    EvaluationCounts* counts_ = nullptr;

    const UInt serial_; // of all setups that ever were
    std::mutex poolMutex_;
    std::vector<std::unique_ptr<Instance>> pool_; // every frame that was made
    std::vector<Instance*> idle_;
};

} // namespace velto::host
