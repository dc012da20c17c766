// The edge between the host, which may throw, and the functions that modules call, which may not.
#pragma once

#include "velto/system.h"

#include <exception>
#include <new>

namespace velto::host
{

// Runs a service's body. An exception becomes an error.
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

// Throws on an error that can only mean that memory is out, where the caller has no result to pass it on.
inline void ThrowIfError(const Result& result)
{
    if (result.IsError())
        throw std::bad_alloc();
}

// Throws when memory is out; any other error is the caller's to report.
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
