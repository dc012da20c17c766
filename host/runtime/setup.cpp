#include "failure.h"
#include "instance.h"

#include "host/corenode/convert.h"
#include "host/system/guard.h"
#include "velto/bakedimagedata.h"

#include <algorithm>
#include <chrono>
#include <map>

namespace velto::host
{

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

constexpr const char* kStopped = "interrupted";

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
    DropFrames();
    runner_ = &threadMark;
    for (std::size_t i = 0; i < body_.calls.size(); ++i)
        RunCall(i);
    return FinishRun();
}

Result Setup::Update()
{
    if (!hasRun_)
        return Run();
    if (!hasFailed_ && changed_.empty())
        return {};
    DropFrames();
    runner_ = &threadMark;
    const std::vector<bool> isOutdated = CallsToUpdate();
    for (std::size_t i = 0; i < body_.calls.size(); ++i)
    {
        if (!isOutdated[i])
            continue;
        ResetOutputs(i); // a node may keep what it made before
        RunCall(i);
    }
    return FinishRun();
}

void Setup::RunCall(std::size_t i)
{
    const Call& call = body_.calls[i];
    errors_[i] = {};
    for (const UInt32 needed : program_->setupDependencies[i])
    {
        if (errors_[needed].IsError())
            errors_[i] = errors_[needed];
    }
    if (errors_[i].IsError())
        return;
    running_ = i;
    const auto start = std::chrono::steady_clock::now();
    call.compute(&errors_[i], call.record, &call.binding);
    seconds_[i] += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (counts_)
        ++(*counts_)[call.node];
    const bool lacksFrame = lacksFrame_.exchange(false);
    if (!lacksFrame && !wasStopped_.exchange(false))
        return;
    ResetOutputs(i);
    errors_[i] = lacksFrame ? OutOfMemory() : MakeError(error::kIllegalState, kStopped);
}

void Setup::ResetOutputs(std::size_t i)
{
    for (const ResetPlan& output : program_->setupOutputs[i])
        ResetValue(output, storage_.At(output.offset));
}

Result Setup::FinishRun()
{
    hasRun_ = true;
    changed_.clear();
    const auto first = std::find_if(errors_.begin(), errors_.end(), [](const Result& made) { return made.IsError(); });
    hasFailed_ = first != errors_.end();
    failedNode = hasFailed_ ? body_.calls[static_cast<std::size_t>(first - errors_.begin())].node : -1;
    DropFrames();
    return hasFailed_ ? *first : Result();
}

namespace
{

// Which values of the setup are outdated, while its calls are walked in order. What a body reads is made by calls
// before the one that needs the body: an answer once given stays.
class OutdatedValues
{
public:
    OutdatedValues(const Program& program, const std::set<UInt32>& changed)
        : program_(program), offsets_(changed), bodies_(program.bodies.size())
    {
        for (const FunctionPlan& function : program.setupBody.functions)
            functions_[function.place.offset] = &function;
    }

    bool IsRead(const CallPlan& call)
    {
        return std::any_of(call.slots.begin(), call.slots.end(), [this](const SlotPlan& slot) {
            if (IsOutdated(slot.value))
                return true;
            const auto function =
                slot.value.store == Store::Setup ? functions_.find(slot.value.offset) : functions_.end();
            return function != functions_.end() && IsOutdated(*function->second);
        });
    }

    void Add(UInt32 offset) { offsets_.insert(offset); }

private:
    bool IsOutdated(Address value) const { return value.store == Store::Setup && offsets_.contains(value.offset); }

    bool IsOutdated(const FunctionPlan& function)
    {
        return function.body < 0 ? IsOutdated(function.constant)
                                 : IsBodyOutdated(static_cast<std::size_t>(function.body));
    }

    bool IsBodyOutdated(std::size_t index)
    {
        if (!bodies_[index])
        {
            const BodyPlan& body = program_.bodies[index];
            bodies_[index] = IsOutdated(body.result) ||
                             std::any_of(body.calls.begin(), body.calls.end(),
                                 [this](const CallPlan& call) { return IsRead(call); }) ||
                             std::any_of(body.functions.begin(), body.functions.end(),
                                 [this](const FunctionPlan& function) { return IsOutdated(function); });
        }
        return *bodies_[index];
    }

    const Program& program_;
    std::set<UInt32> offsets_;
    std::map<UInt32, const FunctionPlan*> functions_; // of the setup's calls, by place
    std::vector<std::optional<bool>> bodies_;
};

} // namespace

std::vector<bool> Setup::CallsToUpdate() const
{
    OutdatedValues values(*program_, changed_);
    std::vector<bool> isOutdated(body_.calls.size(), false);
    for (std::size_t i = 0; i < isOutdated.size(); ++i)
    {
        const CallPlan& call = program_->setupBody.calls[i];
        isOutdated[i] = errors_[i].IsError() || values.IsRead(call);
        if (!isOutdated[i])
            continue;
        for (const ResetPlan& output : program_->setupOutputs[i])
            values.Add(output.offset);
        if (!call.record) // a conversion: from the first to the second
            values.Add(call.slots[1].value.offset);
    }
    return isOutdated;
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
        changed_.insert(settable.offset);
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

Result Setup::InvokePooled(UInt32 body, void* value, const ShadingContext* context, std::atomic<bool>& lacksFrame)
{
    ThreadFrame& mine = threadFrame;
    if (mine.serial != serial_ || mine.isBusy) [[unlikely]]
        return InvokeInNewFrame(body, value, context, lacksFrame);
    mine.isBusy = true;
    Result ran = RunFrame(*mine.instance, body, value, context, lacksFrame);
    mine.isBusy = false;
    return ran;
}

Result Setup::InvokeFunction(const FunctionInterface* self, void* value, const ShadingContext* context, Data*)
{
    const auto& function = *static_cast<const BodyFunction*>(self);
    auto& setup = *static_cast<Setup*>(function.owner);
    if (setup.progress_) [[unlikely]]
        setup.ReportProgress();
    if (setup.stop_ && setup.stop_->load(std::memory_order_relaxed)) [[unlikely]]
    {
        setup.wasStopped_.store(true, std::memory_order_relaxed);
        return MakeError(error::kIllegalState, kStopped);
    }
    return setup.InvokePooled(function.body, value, context, setup.lacksFrame_);
}

} // namespace velto::host
