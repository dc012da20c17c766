// A value of any type, and the dictionary of such values.
#pragma once

#include "velto/datatype.h"

namespace velto
{

class Data
{
public:
    Data() = default;
    Data(Data&& other) noexcept : type_(std::move(other.type_)), value_(std::exchange(other.value_, nullptr)) {}
    Data& operator=(Data&& other) noexcept
    {
        std::swap(type_, other.type_);
        std::swap(value_, other.value_);
        return *this;
    }
    ~Data() { Reset(); }

    bool IsEmpty() const { return value_ == nullptr; }
    const DataType* Type() const { return type_.Get(); }
    void* Value() { return value_; }
    const void* Value() const { return value_; }

    // [any thread] The value if it is a `T`, else null.
    template <class T>
    const T* As() const
    {
        const DataType* type = nullptr;
        if (!value_ || GetDataType<T>(type).IsError() || type != type_.Get())
            return nullptr;
        return static_cast<const T*>(value_);
    }

    // Takes a copy of a value of `type`, or its default where `value` is null. On error the old value stays.
    Result Set(const DataType* type, const void* value)
    {
        void* const memory = Allocate(Max<UInt>(type->operations.size, 1));
        if (!memory)
            return OutOfMemory();
        Result made;
        if (!value)
            type->operations.construct(memory);
        else if (type->operations.copy)
            made = type->operations.copy(memory, value);
        else
            std::memcpy(memory, value, type->operations.size);
        if (made.IsError())
        {
            Bound<SystemInterface>().Free(memory);
            return made;
        }
        Reset();
        type_ = Ref<const DataType>::Share(type);
        value_ = memory;
        return {};
    }

    template <class T>
    Result Set(const T& value)
    {
        const DataType* type = nullptr;
        VELTO_TRY(GetDataType<T>(type));
        return Set(type, &value);
    }

    Result CopyFrom(const Data& other)
    {
        if (!other.IsEmpty())
            return Set(other.Type(), other.Value());
        Reset();
        return {};
    }

    void Reset()
    {
        if (value_)
        {
            if (type_->operations.destroy)
                type_->operations.destroy(value_);
            Bound<SystemInterface>().Free(value_);
            value_ = nullptr;
        }
        type_ = {};
    }

    friend bool operator==(const Data& a, const Data& b)
    {
        if (a.type_ != b.type_ || a.IsEmpty() != b.IsEmpty())
            return false;
        if (a.IsEmpty())
            return true;
        const DataTypeOperations& operations = a.type_->operations;
        return operations.equal ? operations.equal(a.value_, b.value_)
                                : std::memcmp(a.value_, b.value_, operations.size) == 0;
    }

private:
    Ref<const DataType> type_;
    void* value_ = nullptr;
};

struct DictionaryObject : Object
{
};

// Values by name or by number: a host object behind a shared reference.
using DataDictionary = Ref<DictionaryObject>;

struct DictionaryKey
{
    Id name;
    Int number = 0; // counts where `name` is empty

    DictionaryKey(const Id& id) : name(id) {}
    DictionaryKey(Int index) : number(index) {}
    friend bool operator==(const DictionaryKey&, const DictionaryKey&) = default;
};

struct DataDictionaryInterface
{
    static constexpr Id kId{"net.velto.interface.datadictionary"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [any thread] A new empty dictionary; the caller owns the reference.
    VELTO_METHOD(Alloc, Result(DictionaryObject** dictionary));
    // [any thread] Drops a reference.
    VELTO_METHOD(Free, void(DictionaryObject* dictionary));
    // [one thread at a time] Keeps a copy of `value` under `key`. On error the dictionary is as it was.
    VELTO_METHOD(SetData, Result(DictionaryObject* dictionary, const DictionaryKey& key, const Data& value));
    // [any thread, none of them writing] Borrows the value under `key`; null when there is none or no dictionary.
    VELTO_METHOD(GetData, const Data*(const DictionaryObject* dictionary, const DictionaryKey& key));
};
VELTO_USED_BY_INCLUDERS("velto/data.h", DataDictionaryInterface);

template <class T>
Result SetData(const DataDictionary& dictionary, const DictionaryKey& key, const T& value)
{
    Data data;
    VELTO_TRY(data.Set(value));
    return Bound<DataDictionaryInterface>().SetData(dictionary.Get(), key, data);
}

// The value under `key` if there is one and it is a `T`, else null.
template <class T>
const T* GetData(const DataDictionary& dictionary, const DictionaryKey& key)
{
    const Data* const data = Bound<DataDictionaryInterface>().GetData(dictionary.Get(), key);
    return data ? data->As<T>() : nullptr;
}

} // namespace velto
