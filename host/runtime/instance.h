// What each thread that samples has to itself.
#pragma once

#include "body.h"

#include <atomic>
#include <optional>

namespace velto::host
{

class Setup;

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

    // What nodes keep starts from this sample, whichever needs it first, in functions as well. Of the calls for it only
    // those count that are not repeated by every sample; what they log is dropped.
    void StartStateFrom(const ShadingContext& context) { start_ = context; }

    // The value of an output, by its place in the program.
    const void* Output(std::size_t i) const { return outputs_[i]; }

    // Samples do not depend on the samples before them: outputs that a node leaves alone are made anew each time, what
    // nodes keep starts from the same sample, and what a failed run kept is forgotten.
    void SetIndependentSamples();

    // Counts into `counts` from now on; null: does not count.
    void CountInto(EvaluationCounts* counts) { counts_ = counts; }

    // The node at which the last failed run of this thread failed, or null.
    static const std::string* FailedNode(const Program& program);

private:
    friend class Setup;

    explicit Instance(Setup& setup);

    Result RunBody(RunnableBody& body, const ShadingContext* context);
    Result FailBody(RunnableBody& body, UInt32 node, const Result& error);
    void ForgetState(RunnableBody& body);
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
    bool areSamplesIndependent_ = false;
    std::vector<char> needsPriming_; // by body
    std::optional<ShadingContext> start_;
    const char* owner_ = nullptr; // the thread that runs it, by the address of a thread's own variable
    std::atomic<bool> lacksFrame_ = false;
};

} // namespace velto::host
