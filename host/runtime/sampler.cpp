#include "sampler.h"

#include "host/registry/datatypes.h"
#include "host/system/guard.h"

#include <algorithm>

namespace velto::host
{

namespace
{

#define VELTO_CONTEXT_FIELD(field, type)                                                                               \
    ContextField                                                                                                       \
    {                                                                                                                  \
#field, offsetof(ShadingContext, field), sizeof(ShadingContext::field) / sizeof(Float), std::is_same_v < type, \
            Int>                                                                                                       \
    }

constexpr ContextField kFields[] = {
    VELTO_CONTEXT_FIELD(samplePosition, Float),
    VELTO_CONTEXT_FIELD(samplePositionPlusDeltaU, Float),
    VELTO_CONTEXT_FIELD(samplePositionPlusDeltaV, Float),
    VELTO_CONTEXT_FIELD(geometricNormal, Float),
    VELTO_CONTEXT_FIELD(secondNormal, Float),
    VELTO_CONTEXT_FIELD(shadingNormal, Float),
    VELTO_CONTEXT_FIELD(uvw, Float),
    VELTO_CONTEXT_FIELD(uvwPlusDeltaU, Float),
    VELTO_CONTEXT_FIELD(uvwPlusDeltaV, Float),
    VELTO_CONTEXT_FIELD(tangent, Float),
    VELTO_CONTEXT_FIELD(bitangent, Float),
    VELTO_CONTEXT_FIELD(pixel, Int),
    VELTO_CONTEXT_FIELD(subpixel, Float),
    VELTO_CONTEXT_FIELD(time, Float),
    VELTO_CONTEXT_FIELD(frameRate, Float),
    VELTO_CONTEXT_FIELD(rayOrigin, Float),
    VELTO_CONTEXT_FIELD(rayDirection, Float),
    VELTO_CONTEXT_FIELD(rayOriginPlusDeltaU, Float),
    VELTO_CONTEXT_FIELD(rayOriginPlusDeltaV, Float),
    VELTO_CONTEXT_FIELD(rayDirectionPlusDeltaU, Float),
    VELTO_CONTEXT_FIELD(rayDirectionPlusDeltaV, Float),
};

#undef VELTO_CONTEXT_FIELD

using StoreFunction = void (*)(const void* value, std::byte* to);

template <class T, std::size_t Count>
StoreFunction StoreOf(ValueFormat format)
{
    if (format == ValueFormat::Float64)
        return [](const void* value, std::byte* to) {
            for (std::size_t i = 0; i < Count; ++i)
                reinterpret_cast<Float*>(to)[i] = static_cast<Float>(static_cast<const T*>(value)[i]);
        };
    return [](const void* value, std::byte* to) {
        for (std::size_t i = 0; i < Count; ++i)
            reinterpret_cast<float*>(to)[i] =
                static_cast<float>(0.0 + static_cast<Float>(static_cast<const T*>(value)[i]));
    };
}

// How values of a type become numbers.
struct NumericType
{
    const DataType* type;
    int numbers;
    StoreFunction (*store)(ValueFormat format);
};

const NumericType* FindNumericType(const DataType* type)
{
    static const NumericType all[] = {
        {TypeOf<ColorA>(), 4, &StoreOf<Float, 4>},
        {TypeOf<Color>(), 3, &StoreOf<Float, 3>},
        {TypeOf<Vector>(), 3, &StoreOf<Float, 3>},
        {TypeOf<Vector4d>(), 4, &StoreOf<Float, 4>},
        {TypeOf<Vector2d>(), 2, &StoreOf<Float, 2>},
        {TypeOf<Float>(), 1, &StoreOf<Float, 1>},
        {TypeOf<Int>(), 1, &StoreOf<Int, 1>},
        {TypeOf<Int32>(), 1, &StoreOf<Int32, 1>},
        {TypeOf<UInt32>(), 1, &StoreOf<UInt32, 1>},
        {TypeOf<Bool>(), 1, &StoreOf<Bool, 1>},
        {TypeOf<TimeValue>(), 1, &StoreOf<Float, 1>},
    };
    const auto* const found =
        std::find_if(std::begin(all), std::end(all), [&](const NumericType& known) { return known.type == type; });
    return found == std::end(all) ? nullptr : found;
}

bool ReadsContext(const Program& program)
{
    for (const CallPlan& call : program.bodies[0].calls)
    {
        for (const SlotPlan& slot : call.slots)
        {
            if (slot.value.store == Store::Context)
                return true;
        }
    }
    return std::any_of(program.outputs.begin(), program.outputs.end(),
        [](const OutputPlan& output) { return output.value.store == Store::Context; });
}

} // namespace

std::span<const ContextField> ContextFields()
{
    return kFields;
}

const ContextField* FindContextField(std::string_view name)
{
    const auto* const found = std::find_if(
        std::begin(kFields), std::end(kFields), [&](const ContextField& field) { return field.name == name; });
    return found == std::end(kFields) ? nullptr : found;
}

int NumbersOf(const DataType* type)
{
    const NumericType* const known = FindNumericType(type);
    return known ? known->numbers : 0;
}

Result ThreadSampler::Create(
    Setup& setup, const ShadingContext& shared, const ShadingContext& start, std::unique_ptr<ThreadSampler>& made)
{
    return Guarded([&]() -> Result {
        std::unique_ptr<ThreadSampler> sampler(new ThreadSampler(setup, shared));
        VELTO_TRY(Instance::Create(setup, sampler->instance_));
        sampler->instance_->SetIndependentSamples();
        sampler->instance_->StartStateFrom(start);
        sampler->counts_.resize(setup.GetProgram().nodeNames.size(), 0);
        sampler->instance_->CountInto(&sampler->counts_);
        sampler->lanes_.reserve(sizeof(ShadingContext) / sizeof(UInt));
        sampler->readsContext_ = ReadsContext(setup.GetProgram());
        made = std::move(sampler);
        return {};
    });
}

Result ThreadSampler::Sample(
    std::size_t count, std::span<const FieldArray> fields, std::span<const ValueArray> values, SampleFailure* failure)
{
    const std::vector<OutputPlan>& outputs = setup_.GetProgram().outputs;
    stores_.clear();
    for (const ValueArray& value : values)
    {
        VELTO_CHECK_ARGUMENT(value.output < outputs.size());
        const NumericType* const type = FindNumericType(outputs[value.output].type);
        VELTO_CHECK_ARGUMENT(type);
        stores_.push_back({type->store(value.format), instance_->Output(value.output),
            static_cast<std::byte*>(value.data), value.stride});
    }
    values_.assign(values.begin(), values.end());
    ShadingContext& context = instance_->Context();
    CopyContext(context, shared_);
    lanes_.clear();
    for (const FieldArray& array : fields)
    {
        const bool isField = array.field.offset + array.field.numbers * sizeof(UInt) <= sizeof(ShadingContext);
        VELTO_CHECK_ARGUMENT(isField && array.field.offset % sizeof(UInt) == 0);
        auto* const to = reinterpret_cast<UInt*>(reinterpret_cast<std::byte*>(&context) + array.field.offset);
        const auto* const from = static_cast<const std::byte*>(array.data);
        for (UInt32 i = 0; i < array.field.numbers; ++i)
        {
            if (array.stride == 0)
                std::memcpy(to + i, from + i * sizeof(UInt), sizeof(UInt));
            else if (readsContext_)
                lanes_.push_back({to + i, from + i * sizeof(UInt), array.stride});
        }
    }
    if (kernel_ && count > 0 && HasKernelsShape(values) && RunKernel(count, values))
        return {};
    return Evaluate(count, failure);
}

SampleShape ThreadSampler::LastShape() const
{
    SampleShape shape;
    const auto* const first = reinterpret_cast<const UInt*>(&instance_->Context());
    for (const Lane& lane : lanes_)
        shape.lanes.push_back({static_cast<UInt32>((lane.to - first) * sizeof(UInt)), lane.stride});
    for (const ValueArray& value : values_)
        shape.values.push_back({value.output, value.stride, value.format});
    return shape;
}

void ThreadSampler::UseKernel(std::shared_ptr<const SampleKernel> kernel)
{
    if (kernel == kernel_)
        return;
    kernel_ = std::move(kernel);
    if (!kernel_)
        return;
    kernelLanes_.resize(kernel_->shape.lanes.size());
    kernelValues_.resize(kernel_->shape.values.size());
    kernelRuns_.assign(setup_.GetProgram().bodies.size(), 0);
}

bool ThreadSampler::HasKernelsShape(std::span<const ValueArray> values) const
{
    const SampleShape& shape = kernel_->shape;
    if (shape.lanes.size() != lanes_.size() || shape.values.size() != values.size())
        return false;
    const auto* const first = reinterpret_cast<const UInt*>(&instance_->Context());
    for (std::size_t i = 0; i < lanes_.size(); ++i)
    {
        const Lane& lane = lanes_[i];
        if (shape.lanes[i].offset != (lane.to - first) * sizeof(UInt) || shape.lanes[i].stride != lane.stride)
            return false;
    }
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        if (shape.values[i] != SampleShape::Value{values[i].output, values[i].stride, values[i].format})
            return false;
    }
    return true;
}

// False where a sample failed: calls tell which, and why.
bool ThreadSampler::RunKernel(std::size_t count, std::span<const ValueArray> values)
{
    instance_->PrimeAll();
    for (std::size_t i = 0; i < lanes_.size(); ++i)
        kernelLanes_[i] = lanes_[i].from;
    for (std::size_t i = 0; i < values.size(); ++i)
        kernelValues_[i] = values[i].data;
    std::fill(kernelRuns_.begin(), kernelRuns_.end(), 0);
    void* const error = kernel_->entry(kernelLanes_.data(), &instance_->Context(), instance_->Memory(),
        static_cast<Int>(count), kernelValues_.data(), kernelRuns_.data());
    if (error || instance_->LacksFrame()) [[unlikely]]
    {
        Result::Adopt(static_cast<ErrorObject*>(error)).Ignore(); // null, too
        instance_->ForgetState();
        return false;
    }
    const Program& program = setup_.GetProgram();
    kernelRuns_[0] = count;
    for (std::size_t i = 0; i < program.bodies.size(); ++i)
    {
        for (const CallPlan& call : program.bodies[i].calls)
            counts_[call.node] += kernelRuns_[i];
    }
    return true;
}

Result ThreadSampler::Evaluate(std::size_t count, SampleFailure* failure)
{
    Instance& instance = *instance_;
    for (std::size_t i = 0; i < count; ++i)
    {
        for (Lane& lane : lanes_)
        {
            std::memcpy(lane.to, lane.from, sizeof(UInt));
            lane.from += lane.stride;
        }
        if (Result ran = instance.Evaluate(); ran.IsError()) [[unlikely]]
        {
            if (failure)
                *failure = {i, Instance::FailedNode(setup_.GetProgram())};
            return ran;
        }
        for (Store& store : stores_)
        {
            store.store(store.from, store.to);
            store.to += store.stride;
        }
    }
    return {};
}

Result Sampler::Create(Setup& setup, const ShadingContext& shared, std::unique_ptr<Sampler>& made)
{
    return Guarded([&]() -> Result {
        made.reset(new Sampler(setup, shared));
        return {};
    });
}

Result Sampler::Sample(
    std::size_t count, std::span<const FieldArray> fields, std::span<const ValueArray> values, SampleFailure* failure)
{
    return Guarded([&]() -> Result {
        std::unique_ptr<ThreadSampler> mine;
        {
            const std::lock_guard lock(mutex_);
            if (!idle_.empty())
            {
                mine = std::move(idle_.back());
                idle_.pop_back();
            }
        }
        if (!mine)
            VELTO_TRY(ThreadSampler::Create(setup_, shared_, shared_, mine));
        Result sampled = mine->Sample(count, fields, values, failure);
        const std::lock_guard lock(mutex_);
        idle_.push_back(std::move(mine));
        return sampled;
    });
}

} // namespace velto::host
