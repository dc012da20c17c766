// Functions that a module offers by name.
#pragma once

#include "velto/graph.h"
#include "velto/unit.h"

namespace velto
{

// What a provider tells of a function. Exists for the call only.
struct FunctionDescriptor
{
    Id name; // with the hash of its signature: `net.example.Function@0123456789abcdef`
    Int32 kind = 4;
    const char* resultType = "Result<void>";
    const char* parameterName = "root";
    const char* parameterType = "const net.velto.node.datatype.mutableroot&";
    Result (*implementation)(const MutableRoot& root) = nullptr;
    // [one thread; building] Calls the implementation.
    Result (*call)(const FunctionDescriptor* self, const MutableRoot* root) = nullptr;
};

// Offers a function of a graph root. The provider's chain is the module's.
template <FixedString Name, Result (*Function)(const MutableRoot& root)>
struct RootFunctionProvider : ReflectionProvider
{
    RootFunctionProvider()
    {
        provide = [](void* receiver, Result (*receive)(void*, const FunctionDescriptor*)) -> Result {
            FunctionDescriptor function;
            function.name = Id::OverStatic(Name.View());
            function.implementation = Function;
            function.call = [](const FunctionDescriptor* self, const MutableRoot* root) -> Result {
                return self->implementation(*root);
            };
            return receive(receiver, &function);
        };
        next = thisModule.providers;
        thisModule.providers = this;
    }
};

} // namespace velto
