// Function-valued inputs: an upstream graph that a node evaluates when it wants, under a context that it chooses.
#pragma once

#include "velto/data.h"
#include "velto/shadingcontext.h"

namespace velto
{

struct FunctionInterface : Object
{
    static constexpr Id kId{"net.velto.interface.function"};

    // [any thread; sampling] Writes the function's value under `context`, which is borrowed for the call. `cache` is a
    // state port of the caller's, or null. On error `value` is as it was.
    Result (*invoke)(const FunctionInterface* self, void* value, const ShadingContext* context, Data* cache) = nullptr;
    // [building] Whether every context gives the same value.
    Bool (*isConstant)(const FunctionInterface* self) = nullptr;
};

// The functions of such an object by name.
struct FunctionMethods
{
    VELTO_VIRTUAL_METHOD(FunctionInterface, invoke);
    VELTO_VIRTUAL_METHOD(FunctionInterface, isConstant);
};

// The value of a function-valued port: a function that yields a `T`, or none.
template <class T>
struct FunctionOf
{
    Ref<const FunctionInterface> object;

    // Calls the function; without one the call fails.
    Result Invoke(T& value, const ShadingContext& context, Data* cache = nullptr) const
    {
        if (!object) [[unlikely]]
            return NullptrError();
        return object->invoke(object.Get(), &value, &context, cache);
    }
    friend bool operator==(const FunctionOf&, const FunctionOf&) = default;
};

using ColorAFunction = FunctionOf<ColorA>;
using ColorFunction = FunctionOf<Color>;
using FloatFunction = FunctionOf<Float>;
using Vector2dFunction = FunctionOf<Vector2d>;
using BoolFunction = FunctionOf<Bool>;
using InternedIdFunction = FunctionOf<InternedId>;

} // namespace velto
