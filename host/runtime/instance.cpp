#include "instance.h"

#include "host/corenode/convert.h"

#include "host/registry/datatypes.h"
#include "host/system/guard.h"
#include "host/system/output.h"
#include "velto/bakedimagedata.h"
#include "velto/porttypes.h"

#include <chrono>

namespace velto::host
{

namespace
{

thread_local char threadMark = 0;

// Where the last run of this thread failed, and with what.
thread_local Int failedNode = -1;
thread_local Result failure;

// An error is the innermost node's that gave it up. One that somebody dropped gives way to the next.
void NoteFailure(UInt32 node, const Result& error)
{
    if (failedNode >= 0 && failure.Error() == error.Error())
        return;
    failedNode = node;
    failure = error;
}

// A new value over one that ends.
Result AssignValue(const DataType& type, void* to, const void* from)
{
    const DataTypeOperations& operations = type.operations;
    if (!operations.copy)
    {
        std::memcpy(to, from, operations.size);
        return {};
    }
    Data copy; // so that `to` stays as it was when there is no memory
    VELTO_TRY(copy.Set(&type, from));
    if (operations.destroy)
        operations.destroy(to);
    return operations.copy(to, copy.Value());
}

// The commonest values are copied without asking how long they are: calls `common` with the size, known to the
// compiler, or else `other`.
template <class Common, class Other>
inline auto WithSize(const DataType& type, Common common, Other other)
{
    if (!type.operations.copy)
    {
        switch (type.operations.size)
        {
        case sizeof(ColorA):
            return common.template operator()<sizeof(ColorA)>();
        case sizeof(Color):
            return common.template operator()<sizeof(Color)>();
        case sizeof(InternedId):
            return common.template operator()<sizeof(InternedId)>();
        case sizeof(Float):
            return common.template operator()<sizeof(Float)>();
        default:
            break;
        }
    }
    return other();
}

inline Result CopyValue(const DataType& type, void* to, const void* from)
{
    const auto copy = [&]<std::size_t Size>() -> Result {
        std::memcpy(to, from, Size);
        return {};
    };
    return WithSize(type, copy, [&] { return AssignValue(type, to, from); });
}

void Reset(const ResetPlan& reset, std::byte* value)
{
    if (reset.type->operations.destroy)
        reset.type->operations.destroy(value);
    reset.type->operations.construct(value);
}

Bool IsConstantFunction(const FunctionInterface* self)
{
    return static_cast<const BodyFunction*>(self)->constant != nullptr;
}

using InvokePointer = decltype(FunctionInterface::invoke);

Result InvokeConstant(const FunctionInterface* self, void* value, const ShadingContext*, Data*)
{
    const auto& function = *static_cast<const BodyFunction*>(self);
    return AssignValue(*function.type, value, function.constant);
}

template <std::size_t Size>
Result InvokeConstantOf(const FunctionInterface* self, void* value, const ShadingContext*, Data*)
{
    std::memcpy(value, static_cast<const BodyFunction*>(self)->constant, Size);
    return {};
}

// A node may call several functions of constants a sample.
InvokePointer ConstantInvoker(const DataType& type)
{
    const auto common = []<std::size_t Size>() -> InvokePointer { return &InvokeConstantOf<Size>; };
    return WithSize(type, common, []() -> InvokePointer { return &InvokeConstant; });
}

// Lays out the frames of a body's calls and links their slots.
void LinkBody(RunnableBody& body, const BodyPlan& plan, const UInt32* offsets, const Storage& setup,
    const Storage* frame, const ShadingContext* context, void* owner, InvokePointer invoke)
{
    const auto resolve = [&](Address address) -> std::byte* {
        switch (address.store)
        {
        case Store::Setup:
            return setup.At(address.offset);
        case Store::Frame:
            return frame->At(address.offset);
        default:
            return nullptr;
        }
    };
    std::size_t size = 0;
    for (const CallPlan& call : plan.calls)
        size += sizeof(FrameHead) + call.slots.size() * sizeof(Slot);
    body.plan = &plan;
    body.frames = std::make_unique<std::byte[]>(size);
    body.calls.reserve(plan.calls.size());
    std::byte* place = body.frames.get();
    for (const CallPlan& call : plan.calls)
    {
        ::new (place) FrameHead;
        auto* const slots = reinterpret_cast<Slot*>(place + sizeof(FrameHead));
        for (std::size_t i = 0; i < call.slots.size(); ++i)
        {
            const SlotPlan& slot = call.slots[i];
            ::new (slots + i) Slot{resolve(slot.value), 0, slot.flags};
            if (slot.value.store != Store::Context)
                continue;
            if (context)
                slots[i].value = const_cast<ShadingContext*>(context);
            else
                body.contextSlots.push_back(slots + i);
        }
        body.calls.push_back({call.compute, call.record, {place, offsets}, call.node});
        place += sizeof(FrameHead) + call.slots.size() * sizeof(Slot);
    }
    body.functions = std::vector<BodyFunction>(plan.functions.size());
    for (std::size_t i = 0; i < plan.functions.size(); ++i)
    {
        const FunctionPlan& source = plan.functions[i];
        BodyFunction& function = body.functions[i];
        function.references = 1 << 30; // ends with the body
        function.isConstant = &IsConstantFunction;
        function.type = source.type;
        function.owner = owner;
        if (source.body >= 0)
        {
            function.body = static_cast<UInt32>(source.body);
            function.invoke = invoke;
        }
        else
        {
            function.constant = resolve(source.constant);
            function.invoke = ConstantInvoker(*source.type);
        }
        // All function-valued ports hold the same: a reference.
        reinterpret_cast<ColorAFunction*>(resolve(source.place))->object =
            Ref<const FunctionInterface>::Share(&function);
    }
    body.result = resolve(plan.result);
}

} // namespace

Storage::Storage(const StorePlan& plan) : plan_(plan) {}

Storage::~Storage()
{
    for (std::size_t i = constructed_; i > 0; --i)
    {
        const ValuePlan& value = plan_.values[i - 1];
        if (value.type->operations.destroy)
            value.type->operations.destroy(At(value.offset));
    }
    Bound<SystemInterface>().Free(allocated_);
}

Result Storage::Construct()
{
    const std::size_t size = Max<UInt>(plan_.size, 1);
    std::size_t space = size + plan_.alignment;
    allocated_ = Allocate(space);
    if (!allocated_)
        return OutOfMemory();
    void* place = allocated_;
    memory_ = static_cast<std::byte*>(std::align(plan_.alignment, size, place, space));
    for (const ValuePlan& value : plan_.values)
    {
        const DataTypeOperations& operations = value.type->operations;
        std::byte* const place = At(value.offset);
        if (value.initial.IsEmpty())
            operations.construct(place);
        else if (operations.copy)
            VELTO_TRY(operations.copy(place, value.initial.Value()));
        else
            std::memcpy(place, value.initial.Value(), operations.size);
        ++constructed_;
    }
    return {};
}

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
    RunBody(body, context).Ignore(); // leaves no state then: who fails here may fail again where it counts
    if (counts_)
    {
        const UInt step = countStep_;
        countStep_ = UInt(0) - step;
        RunBody(body, context).Ignore();
        countStep_ = step;
    }
    failedNode = failedBefore;
}

void Instance::ForgetState(RunnableBody& body)
{
    for (const ResetPlan& kept : body.plan->kept)
        Reset(kept, storage_.At(kept.offset));
    needsPriming_[static_cast<std::size_t>(&body - bodies_.data())] =
        areSamplesIndependent_ && !body.plan->kept.empty();
}

// What a node made before it failed would hide the failure from the next sample.
Result Instance::FailBody(RunnableBody& body, UInt32 node, const Result& error)
{
    NoteFailure(node, error);
    if (areSamplesIndependent_)
        ForgetState(body);
    return error;
}

// What was made without some function's values must not last.
Result Instance::FailForFrame()
{
    lacksFrame_ = false;
    for (RunnableBody& body : bodies_)
        ForgetState(body);
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
            Reset(reset, storage_.At(reset.offset));
    }
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

inline Result Instance::RunFunction(UInt32 index, void* value, const ShadingContext* context)
{
    RunnableBody& body = bodies_[index];
    VELTO_TRY(RunBody(body, context));
    const void* const result = body.plan->result.store == Store::Context ? context : body.result;
    return CopyValue(*body.plan->resultType, value, result);
}

// What nodes make of the first sample that they see must not depend on which sample a thread happens to see first.
// What all samples of a picture share is as in the one that is asked for.
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

const std::string* Instance::FailedNode(const Program& program)
{
    return failedNode < 0 ? nullptr : &program.nodeNames[static_cast<std::size_t>(failedNode)];
}

namespace
{

std::atomic<UInt> setupSerial = 0;

// The frame that this thread used last for a setup's function. The serial number tells whether it still is.
struct ThreadFrame
{
    UInt serial = 0;
    Instance* instance = nullptr;
    bool isBusy = false;
};
thread_local ThreadFrame threadFrame;

} // namespace

Setup::Setup(std::shared_ptr<const Program> program)
    : program_(std::move(program)), storage_(program_->setup), serial_(++setupSerial)
{
    offsets_.resize(Max<UInt32>(program_->maxPorts, 2));
    for (std::size_t i = 0; i < offsets_.size(); ++i)
        offsets_[i] = static_cast<UInt32>(sizeof(FrameHead) + i * sizeof(Slot));
}

Setup::~Setup() = default;

Result Setup::Create(std::shared_ptr<const Program> program, std::unique_ptr<Setup>& setup)
{
    return Guarded([&]() -> Result {
        std::unique_ptr<Setup> made(new Setup(std::move(program)));
        VELTO_TRY(made->storage_.Construct());
        LinkBody(made->body_, made->program_->setupBody, made->offsets_.data(), made->storage_, nullptr, nullptr,
            made.get(), &InvokeFunction);
        made->errors_.resize(made->body_.calls.size());
        made->seconds_.resize(made->body_.calls.size());
        setup = std::move(made);
        return {};
    });
}

Result Setup::Run()
{
    Result first;
    DropFrames();
    hasFailed_ = false;
    failedNode = -1;
    runner_ = &threadMark;
    for (std::size_t i = 0; i < body_.calls.size(); ++i)
    {
        const Call& call = body_.calls[i];
        errors_[i] = {};
        for (const UInt32 needed : program_->setupDependencies[i])
        {
            if (errors_[needed].IsError())
                errors_[i] = errors_[needed];
        }
        if (errors_[i].IsError())
            continue;
        running_ = i;
        const auto start = std::chrono::steady_clock::now();
        call.compute(&errors_[i], call.record, &call.binding);
        seconds_[i] += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (counts_)
            ++(*counts_)[call.node];
        if (lacksFrame_.exchange(false))
        {
            for (const ResetPlan& output : program_->setupOutputs[i])
                Reset(output, storage_.At(output.offset));
            errors_[i] = OutOfMemory();
        }
        if (errors_[i].IsError())
        {
            if (!hasFailed_)
            {
                first = errors_[i];
                failedNode = call.node;
            }
            hasFailed_ = true;
        }
    }
    DropFrames();
    return first;
}

Result Setup::ErrorOf(const BodyPlan& body) const
{
    for (const UInt32 call : body.setupCalls)
    {
        if (errors_[call].IsError())
        {
            NoteFailure(body_.calls[call].node, errors_[call]);
            return errors_[call];
        }
    }
    return {};
}

Result Setup::Set(std::string_view origin, const Data& value)
{
    bool isKnown = false;
    for (const SettablePlan& settable : program_->settables)
    {
        if (settable.origin != origin)
            continue;
        isKnown = true;
        // One input of the document may be a constant of several nodes, of differing types.
        Data converted;
        VELTO_TRY(ConvertValue(value, settable.type, converted));
        VELTO_TRY(AssignValue(*settable.type, storage_.At(settable.offset), converted.Value()));
    }
    VELTO_CHECK_ARGUMENT(isKnown);
    return {};
}

const DataType* Setup::TypeOfConstant(std::string_view origin) const
{
    for (const SettablePlan& settable : program_->settables)
    {
        if (settable.origin == origin)
            return settable.type;
    }
    return nullptr;
}

void Setup::CollectCounts()
{
    for (PooledFrame& frame : pool_)
    {
        for (std::size_t i = 0; i < frame.counts.size(); ++i)
        {
            if (counts_)
                (*counts_)[i] += frame.counts[i];
            frame.counts[i] = 0;
        }
    }
}

void Setup::DropFrames()
{
    CollectCounts();
    idle_.clear();
    pool_.clear();
    serial_ = ++setupSerial; // of what threads hold on to nothing is left
}

bool Setup::FindRaster(std::size_t call, SetupRaster& raster) const
{
    using pattern::twod::BakedImageDataRef;
    for (const ResetPlan& output : program_->setupOutputs[call])
    {
        if (output.type->id != DataTypeTraits<BakedImageDataRef>::kId)
            continue;
        const auto& image = *reinterpret_cast<const BakedImageDataRef*>(storage_.At(output.offset));
        if (!image)
            continue;
        raster = {program_->nodeNames[body_.calls[call].node], image->width, image->height,
            static_cast<UInt>(image->pixels.Capacity()) * sizeof(ColorA), seconds_[call]};
        return true;
    }
    return false;
}

std::vector<SetupRaster> Setup::Rasters() const
{
    std::vector<SetupRaster> rasters;
    SetupRaster raster;
    for (std::size_t i = 0; i < body_.calls.size(); ++i)
    {
        if (FindRaster(i, raster))
            rasters.push_back(raster);
    }
    return rasters;
}

void Setup::ReportProgress()
{
    constexpr UInt kInvocationsBetween = 256;
    if (runner_ != &threadMark || ++invocations_ % kInvocationsBetween != 0)
        return;
    Guarded([this]() -> Result {
        if (SetupRaster raster; FindRaster(running_, raster))
            progress_(raster);
        return {};
    }).Ignore();
}

Instance* Setup::TakeFrame()
{
    {
        const std::lock_guard lock(poolMutex_);
        if (!idle_.empty())
        {
            Instance* const instance = idle_.back();
            idle_.pop_back();
            instance->owner_ = &threadMark;
            return instance;
        }
    }
    Instance* instance = nullptr;
    const Result taken = Guarded([&]() -> Result {
        std::unique_ptr<Instance> made;
        VELTO_TRY(Instance::Create(*this, made));
        made->SetIndependentSamples();
        made->owner_ = &threadMark;
        const std::lock_guard lock(poolMutex_);
        idle_.reserve(pool_.size() + 1);
        PooledFrame frame{nullptr, EvaluationCounts(counts_ ? counts_->size() : 0)};
        PooledFrame& kept = pool_.emplace_back(std::move(frame));
        if (counts_)
            made->CountInto(&kept.counts);
        instance = made.get();
        kept.instance = std::move(made);
        return {};
    });
    return taken.IsOk() ? instance : nullptr;
}

inline Result Setup::RunFrame(
    Instance& instance, UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame)
{
    if (instance.needsPriming_[body]) [[unlikely]]
        instance.Prime(body, *context);
    Result ran = instance.RunFunction(body, value, context);
    if (instance.lacksFrame_.load(std::memory_order_relaxed)) [[unlikely]]
    {
        lacksFrame = true;
        ran = instance.FailForFrame();
    }
    return ran;
}

// The first free frame of a setup stays with the thread; one that is taken while that is busy goes back.
Result Setup::InvokeInNewFrame(UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame)
{
    Instance* const instance = TakeFrame();
    if (!instance)
    {
        lacksFrame = true;
        return OutOfMemory();
    }
    ThreadFrame& mine = threadFrame;
    const bool keeps = mine.serial != serial_;
    if (keeps)
        mine = {serial_, instance, true};
    Result ran = RunFrame(*instance, body, value, context, lacksFrame);
    if (keeps)
        mine.isBusy = false;
    else
    {
        const std::lock_guard lock(poolMutex_);
        idle_.push_back(instance);
    }
    return ran;
}

inline Result Setup::InvokePooled(
    UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame)
{
    ThreadFrame& mine = threadFrame;
    if (mine.serial != serial_ || mine.isBusy) [[unlikely]]
        return InvokeInNewFrame(body, value, context, lacksFrame);
    mine.isBusy = true;
    Result ran = RunFrame(*mine.instance, body, value, context, lacksFrame);
    mine.isBusy = false;
    return ran;
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

Result Setup::InvokeFunction(const FunctionInterface* self, void* value, const ShadingContext* context, Data*)
{
    const auto& function = *static_cast<const BodyFunction*>(self);
    auto& setup = *static_cast<Setup*>(function.owner);
    if (setup.progress_) [[unlikely]]
        setup.ReportProgress();
    return setup.InvokePooled(function.body, value, context, setup.lacksFrame_);
}

} // namespace velto::host
