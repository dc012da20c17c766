// The edge between the host, which may throw, and the functions that modules call, which may not.
#pragma once

#include "velto/system.h"

#include <exception>
#include <new>

namespace velto::host
{

// Runs a service's body; what it throws becomes an error.
template <class Body>
Result Guarded(Body&& body) noexcept
{
    try
    {
        return body();
    }
    catch (const std::bad_alloc&)
    {
        return OutOfMemory();
    }
    catch (const std::exception& failure)
    {
        return MakeError(error::kIllegalState, failure.what());
    }
}

// Throws on an error that can only be a want of memory, where the caller has no result to pass it on by.
inline void ThrowIfError(const Result& result)
{
    if (result.IsError())
        throw std::bad_alloc();
}

// Throws on a want of memory; what else went wrong is for the caller to say.
inline void ThrowIfOutOfMemory(const Result& result)
{
    if (result.Kind() == error::kOutOfMemory.View())
        throw std::bad_alloc();
}

// A new shared object of the host; null without memory.
template <class T, class... A>
T* NewObject(A&&... arguments) noexcept
{
    try
    {
        T* const object = new T(std::forward<A>(arguments)...);
        object->destroy = [](Object* self) { delete static_cast<T*>(self); };
        return object;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

} // namespace velto::host
