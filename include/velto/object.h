// Shared objects: their reference count, how they are destroyed, and the reference that counts.
#pragma once

#include "velto/types.h"

#include <atomic>
#include <utility>

namespace velto
{

// The head of everything that is held by shared reference. Its maker sets `destroy`, which runs when the last
// reference goes, on the thread that drops it.
struct Object
{
    mutable std::atomic<Int32> references{1};
    void (*destroy)(Object* self) = nullptr;
};

// The count of an object that outlives every reference to it.
inline constexpr Int32 kImmortal = 1 << 30;

// A shared reference. `T` derives from `Object`; a const `T` is shared all the same.
template <class T>
class Ref
{
public:
    constexpr Ref() = default;
    constexpr Ref(std::nullptr_t) {}

    // Takes over the one reference that a maker hands out.
    static constexpr Ref Adopt(T* object)
    {
        Ref ref;
        ref.object_ = object;
        return ref;
    }
    // Adds a reference to an object that somebody else keeps.
    static Ref Share(T* object)
    {
        Ref ref;
        ref.object_ = object;
        ref.AddReference();
        return ref;
    }

    constexpr Ref(const Ref& other) : object_(other.object_) { AddReference(); }
    constexpr Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    constexpr Ref& operator=(Ref other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }
    constexpr ~Ref()
    {
        if (object_ && object_->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
            object_->destroy(const_cast<std::remove_const_t<T>*>(object_));
    }

    constexpr T* Get() const { return object_; }
    constexpr T* operator->() const { return object_; }
    constexpr T& operator*() const { return *object_; }
    constexpr explicit operator bool() const { return object_ != nullptr; }
    // The same object, or equal ones where their type says what that is.
    friend constexpr bool operator==(const Ref& a, const Ref& b)
    {
        if constexpr (requires { T::Equal(a, b); })
            return a.object_ == b.object_ || T::Equal(a, b);
        else
            return a.object_ == b.object_;
    }

    // The place that an operation with an out parameter fills; whatever was held is let go first.
    T** Receive()
    {
        *this = Ref();
        return &object_;
    }

    // Gives the reference away; the caller now owes the release.
    T* Detach() { return std::exchange(object_, nullptr); }

private:
    constexpr void AddReference() const
    {
        if (object_)
            object_->references.fetch_add(1, std::memory_order_relaxed);
    }

    T* object_ = nullptr;
};

} // namespace velto
