// Values in memory, and a body's calls linked to them.
#pragma once

#include "program.h"

#include "velto/function.h"
#include "velto/porttypes.h"

namespace velto::host
{

// Raw memory with the values of a store in it.
class Storage
{
public:
    explicit Storage(const StorePlan& plan);
    ~Storage();
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    // Constructs every value, constants with their initial values.
    Result Construct();

    std::byte* At(UInt32 offset) const { return memory_ + offset; }

private:
    const StorePlan& plan_;
    void* allocated_ = nullptr;
    std::byte* memory_ = nullptr; // the first place in it that is aligned
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

using InvokePointer = decltype(FunctionInterface::invoke);

// Lays out the frames of a body's calls and links their slots. Its functions that are no constants belong to `owner`
// and are invoked by `invoke`; without a `context` the slots that take it are listed.
void LinkBody(RunnableBody& body, const BodyPlan& plan, const UInt32* offsets, const Storage& setup,
    const Storage* frame, const ShadingContext* context, void* owner, InvokePointer invoke);

// Replaces a value by a new one.
Result AssignValue(const DataType& type, void* to, const void* from);

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

inline void ResetValue(const ResetPlan& reset, std::byte* value)
{
    if (reset.type->operations.destroy)
        reset.type->operations.destroy(value);
    reset.type->operations.construct(value);
}

} // namespace velto::host
