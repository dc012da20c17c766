#include "instance.h"

#include "failure.h"

#include "host/system/guard.h"
#include "host/system/output.h"

#include <chrono>

namespace velto::host
{

Instance::Instance(Setup& setup) : setup_(setup), storage_(setup.GetProgram().frame) {}

Result Instance::Create(Setup& setup, std::unique_ptr<Instance>& instance)
{
    return Guarded([&]() -> Result {
        const Program& program = setup.GetProgram();
        std::unique_ptr<Instance> made(new Instance(setup));
        VELTO_TRY(made->storage_.Construct());
        made->bodies_ = std::vector<RunnableBody>(program.bodies.size());
        made->needsPriming_.assign(program.bodies.size(), false);
        for (std::size_t i = 0; i < program.bodies.size(); ++i)
            LinkBody(made->bodies_[i], program.bodies[i], setup.offsets_.data(), setup.storage_, &made->storage_,
                i == 0 ? &made->context_ : nullptr, made.get(), &InvokeFunction);
        for (const OutputPlan& output : program.outputs)
        {
            switch (output.value.store)
            {
            case Store::Setup:
                made->outputs_.push_back(setup.storage_.At(output.value.offset));
                break;
            case Store::Context:
                made->outputs_.push_back(&made->context_);
                break;
            default:
                made->outputs_.push_back(made->storage_.At(output.value.offset));
            }
        }
        instance = std::move(made);
        return {};
    });
}

Result Instance::Evaluate()
{
    owner_ = &threadMark;
    failedNode = -1;
    if (needsPriming_[0]) [[unlikely]]
        Prime(0, context_);
    Result ran = RunBody(bodies_[0], &context_);
    if (lacksFrame_.load(std::memory_order_relaxed)) [[unlikely]]
        ran = FailForFrame();
    return ran;
}

void Instance::SetIndependentSamples()
{
    areSamplesIndependent_ = true;
    for (std::size_t i = 0; i < bodies_.size(); ++i)
        needsPriming_[i] = !bodies_[i].plan->kept.empty();
}

void Instance::PrimeBody(RunnableBody& body, const ShadingContext* context)
{
    const OutputSilence silence;
    const Int failedBefore = failedNode;
    RunBody(body, context).Ignore(); // a failure leaves no state, and occurs again where it counts
    if (counts_)
    {
        const UInt step = countStep_;
        countStep_ = UInt(0) - step;
        RunBody(body, context).Ignore();
        countStep_ = step;
    }
    failedNode = failedBefore;
}

void Instance::ForgetStateOf(RunnableBody& body)
{
    for (const ResetPlan& kept : body.plan->kept)
        ResetValue(kept, storage_.At(kept.offset));
    needsPriming_[static_cast<std::size_t>(&body - bodies_.data())] =
        areSamplesIndependent_ && !body.plan->kept.empty();
}

// What a node made before it failed would hide the failure from the next sample.
Result Instance::FailBody(RunnableBody& body, UInt32 node, const Result& error)
{
    NoteFailure(node, error);
    if (areSamplesIndependent_)
        ForgetStateOf(body);
    return error;
}

void Instance::ForgetState()
{
    for (RunnableBody& body : bodies_)
        ForgetStateOf(body);
}

// What was made without some function's values must not last.
Result Instance::FailForFrame()
{
    lacksFrame_ = false;
    ForgetState();
    return OutOfMemory();
}

Result Instance::RunBody(RunnableBody& body, const ShadingContext* context)
{
    if (setup_.hasFailed_) [[unlikely]]
        VELTO_TRY(setup_.ErrorOf(*body.plan));
    for (Slot* const slot : body.contextSlots)
        slot->value = const_cast<ShadingContext*>(context);
    if (areSamplesIndependent_)
    {
        for (const ResetPlan& reset : body.plan->resets)
            ResetValue(reset, storage_.At(reset.offset));
    }
    if (times_) [[unlikely]]
        return RunTimedCalls(body);
    for (const Call& call : body.calls)
    {
        Result ran;
        call.compute(&ran, call.record, &call.binding);
        if (counts_) [[unlikely]]
            (*counts_)[call.node] += countStep_;
        if (ran.IsError()) [[unlikely]]
            return FailBody(body, call.node, ran);
    }
    return {};
}

Result Instance::RunTimedCalls(RunnableBody& body)
{
    using Clock = std::chrono::steady_clock;
    const double outside = askedSeconds_;
    const Clock::time_point start = Clock::now();
    Clock::time_point last = start;
    Result result;
    for (const Call& call : body.calls)
    {
        askedSeconds_ = 0.0;
        Result ran;
        call.compute(&ran, call.record, &call.binding);
        const Clock::time_point now = Clock::now();
        times_->seconds[call.node] +=
            std::chrono::duration<double>(now - last).count() - askedSeconds_ - times_->clockSeconds;
        last = now;
        if (counts_)
            (*counts_)[call.node] += countStep_;
        if (ran.IsError())
        {
            result = FailBody(body, call.node, ran);
            break;
        }
    }
    askedSeconds_ = outside + std::chrono::duration<double>(last - start).count() + times_->clockSeconds;
    return result;
}

Result Instance::RunFunction(UInt32 index, void* value, const ShadingContext* context)
{
    RunnableBody& body = bodies_[index];
    VELTO_TRY(RunBody(body, context));
    const void* const result = body.plan->result.store == Store::Context ? context : body.result;
    return CopyValue(*body.plan->resultType, value, result);
}

// The state that nodes make of the first sample must not depend on which sample a thread happens to see first. The
// fields that all samples of a picture share are those of the sample that is asked for.
void Instance::Prime(UInt32 index, const ShadingContext& asked)
{
    needsPriming_[index] = false;
    ShadingContext context;
    if (start_)
        context = *start_;
    else
    {
        context.uvwValid = true;
        context.time = asked.time;
        context.frameRate = asked.frameRate;
        context.searchPaths = asked.searchPaths;
        context.renderMessages = asked.renderMessages;
    }
    if (index > 0)
        return PrimeBody(bodies_[index], &context);
    std::swap(context, context_); // the one that it is linked to
    PrimeBody(bodies_[0], &context_);
    context_ = context;
}

void Instance::PrimeAll()
{
    owner_ = &threadMark;
    failedNode = -1;
    for (std::size_t i = 0; i < bodies_.size(); ++i)
    {
        if (needsPriming_[i])
            Prime(static_cast<UInt32>(i), context_);
    }
}

const std::string* Instance::FailedNode(const Program& program)
{
    return failedNode < 0 ? nullptr : &program.nodeNames[static_cast<std::size_t>(failedNode)];
}

Result Instance::InvokeFunction(const FunctionInterface* self, void* value, const ShadingContext* context, Data*)
{
    const auto& function = *static_cast<const BodyFunction*>(self);
    auto& instance = *static_cast<Instance*>(function.owner);
    if (instance.owner_ != &threadMark) [[unlikely]]
        return instance.setup_.InvokePooled(function.body, value, context, instance.lacksFrame_);
    if (instance.needsPriming_[function.body]) [[unlikely]]
        instance.Prime(function.body, *context);
    return instance.RunFunction(function.body, value, context);
}

} // namespace velto::host
