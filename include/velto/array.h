// A growable array on the host's allocator. Growing can fail, and says so.
#pragma once

#include "velto/system.h"

#include <limits>

namespace velto
{

template <class T>
class BaseArray
{
public:
    BaseArray() = default;
    BaseArray(BaseArray&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), count_(std::exchange(other.count_, 0)),
          capacity_(std::exchange(other.capacity_, 0))
    {
    }
    BaseArray& operator=(BaseArray&& other) noexcept
    {
        BaseArray moved(std::move(other)); // ends with what was here
        std::swap(data_, moved.data_);
        std::swap(count_, moved.count_);
        std::swap(capacity_, moved.capacity_);
        return *this;
    }
    ~BaseArray() { Reset(); }

    Int Count() const { return count_; }
    Int Capacity() const { return capacity_; }
    bool IsEmpty() const { return count_ == 0; }
    T* Data() { return data_; }
    const T* Data() const { return data_; }
    T& operator[](Int i) { return data_[i]; }
    const T& operator[](Int i) const { return data_[i]; }
    T* begin() { return data_; }
    T* end() { return data_ + count_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + count_; }
    T& Last() { return data_[count_ - 1]; }

    // Appends `value`; on error the array is as it was.
    Result Append(T value)
    {
        if (count_ == capacity_)
            VELTO_TRY(Grow(capacity_ < 8 ? 8 : capacity_ + capacity_ / 2));
        ::new (static_cast<void*>(data_ + count_)) T(std::move(value));
        ++count_;
        return {};
    }

    // Makes room for `capacity` elements in all, and for exactly that many when there was less.
    Result EnsureCapacity(Int capacity)
    {
        if (capacity <= capacity_)
            return {};
        return Grow(capacity);
    }

    // Cuts or extends with default-made elements; capacity grows to exactly `count`. On error the array is as it was.
    Result Resize(Int count)
    {
        VELTO_TRY(EnsureCapacity(count));
        for (Int i = count_; i < count; ++i)
            ::new (static_cast<void*>(data_ + i)) T{};
        for (Int i = count; i < count_; ++i)
            data_[i].~T();
        count_ = count;
        return {};
    }

    // The same for plain values, but what is added is left for the caller to write.
    Result ResizeForOverwrite(Int count) requires std::is_trivially_copyable_v<T>
    {
        VELTO_TRY(EnsureCapacity(count));
        count_ = count;
        return {};
    }

    // Frees room that is not used; on error the array is as it was.
    Result Shrink()
    {
        if (count_ == capacity_)
            return {};
        if (count_ == 0)
        {
            Reset();
            return {};
        }
        return Grow(count_);
    }

    // Drops the elements and keeps the room.
    void Clear()
    {
        for (T& element : *this)
            element.~T();
        count_ = 0;
    }

    // Drops the elements and the room.
    void Reset()
    {
        Clear();
        if (data_)
            Bound<SystemInterface>().Free(data_);
        data_ = nullptr;
        capacity_ = 0;
    }

    // On error the array is as it was.
    Result CopyFrom(const BaseArray& other)
    {
        BaseArray copy;
        VELTO_TRY(copy.EnsureCapacity(other.count_));
        for (const T& element : other)
        {
            if constexpr (requires(T & to) { to.CopyFrom(element); })
            {
                ::new (static_cast<void*>(copy.data_ + copy.count_)) T{};
                ++copy.count_;
                VELTO_TRY(copy.Last().CopyFrom(element));
            }
            else
            {
                ::new (static_cast<void*>(copy.data_ + copy.count_)) T(element);
                ++copy.count_;
            }
        }
        *this = std::move(copy);
        return {};
    }

    friend bool operator==(const BaseArray& a, const BaseArray& b) requires requires(const T& x) { x == x; }
    {
        if (a.count_ != b.count_)
            return false;
        for (Int i = 0; i < a.count_; ++i)
        {
            if (!(a.data_[i] == b.data_[i]))
                return false;
        }
        return true;
    }

private:
    static_assert(alignof(T) <= 16, "the host's allocator aligns to 16");

    Result Grow(Int capacity)
    {
        if (static_cast<UInt>(capacity) > std::numeric_limits<UInt>::max() / 2 / sizeof(T))
            return OutOfMemory();
        T* const memory = static_cast<T*>(Allocate(static_cast<UInt>(capacity) * sizeof(T)));
        if (!memory)
            return OutOfMemory();
        for (Int i = 0; i < count_; ++i)
        {
            ::new (static_cast<void*>(memory + i)) T(std::move(data_[i]));
            data_[i].~T();
        }
        if (data_)
            Bound<SystemInterface>().Free(data_);
        data_ = memory;
        capacity_ = capacity;
        return {};
    }

    T* data_ = nullptr;
    Int count_ = 0;
    Int capacity_ = 0;
};

} // namespace velto
