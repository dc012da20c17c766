#include "body.h"

#include "velto/porttypes.h"

namespace velto::host
{

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

// Replaces a value by a new one.
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

namespace
{

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

} // namespace

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
        function.references = kImmortal; // ends with the body
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

} // namespace velto::host
