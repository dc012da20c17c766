// What a type is to the host: its name, its size, and how its values are made, copied and dropped.
#pragma once

#include "velto/array.h"
#include "velto/logger.h"

namespace velto
{

// How values of a type behave. A null function: the bytes are all there is to it.
struct DataTypeOperations
{
    UInt size = 0;
    UInt alignment = 0;
    // Makes a default value in raw memory.
    void (*construct)(void* value) = nullptr;
    // Makes a copy in raw memory; on error the memory is still raw.
    Result (*copy)(void* to, const void* from) = nullptr;
    void (*destroy)(void* value) = nullptr;
    Bool (*equal)(const void* a, const void* b) = nullptr;
};

// [any thread] Two data types are the same type when their addresses are the same.
struct DataType : Object
{
    Id id;
    DataTypeOperations operations;
};

struct DataTypeLibInterface
{
    static constexpr Id kId{"net.velto.interface.datatypelib"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // All: [any thread] an out parameter receives a reference of its own and is left alone on error.

    // A type that the host knows by name; unresolved for an unknown one.
    VELTO_METHOD(GetDataTypeForData, Result(const Id& id, const DataType** type));
    // A parametric type applied to a type and, for some, a number: `net.velto.parametrictype.col` to `float64` and 4.
    VELTO_METHOD(Compose, Result(const Id& parametric, const DataType* argument, Int count, const DataType** type));
    // A type of the caller's own, whose functions must outlive it.
    VELTO_METHOD(Create, Result(const Id& id, const DataTypeOperations* operations, const DataType** type));
};
VELTO_USED_BY_INCLUDERS("velto/datatype.h", DataTypeLibInterface);

// How a C++ type becomes a `DataType`. Specialised for every type that a port may have.
template <class T>
struct DataTypeTraits;

template <class T>
constexpr DataTypeOperations MakeDataTypeOperations()
{
    DataTypeOperations operations{sizeof(T), alignof(T)};
    operations.construct = [](void* value) { ::new (value) T{}; };
    if constexpr (requires(T & to, const T& from) { to.CopyFrom(from); })
        operations.copy = [](void* to, const void* from) -> Result {
            T* const made = ::new (to) T{};
            Result copied = made->CopyFrom(*static_cast<const T*>(from));
            if (copied.IsError())
                made->~T();
            return copied;
        };
    else if constexpr (!std::is_trivially_copyable_v<T>)
        operations.copy = [](void* to, const void* from) -> Result {
            ::new (to) T(*static_cast<const T*>(from));
            return {};
        };
    if constexpr (!std::is_trivially_destructible_v<T>)
        operations.destroy = [](void* value) { static_cast<T*>(value)->~T(); };
    if constexpr (requires(const T& x) { static_cast<bool>(x == x); })
        operations.equal = [](const void* a, const void* b) -> Bool {
            return *static_cast<const T*>(a) == *static_cast<const T*>(b);
        };
    return operations;
}

// A data type of this library that is worked out on first use.
struct DataTypeRecord
{
    const DataType* resolved = nullptr;
    DataTypeRecord* next = nullptr;
    Result (*getter)(const DataType** type) = nullptr;
};

// The head of this library's chain of data type records: in its module's record, once there is one.
inline constinit DataTypeRecord* ownDataTypes = nullptr;
inline constinit DataTypeRecord** dataTypes = &ownDataTypes;

inline void MoveDataTypes(DataTypeRecord*& head)
{
    head = *dataTypes;
    dataTypes = &head;
}

// [any thread; setup] The record's type, worked out on first use.
inline Result ResolveDataType(DataTypeRecord& record, const DataType*& type)
{
    std::atomic_ref<const DataType*> resolved(record.resolved);
    type = resolved.load(std::memory_order_acquire);
    if (type)
        return {};
    const DataType* found = nullptr;
    if (Result got = record.getter(&found); got.IsError())
    {
        char line[256];
        const int length = std::snprintf(line, sizeof(line), "Error while initializing data type: %.*s",
            static_cast<int>(got.Message().size()), got.Message().data());
        Log(LogTarget::Critical, {line, Min<std::size_t>(static_cast<std::size_t>(length), sizeof(line) - 1)});
        return got;
    }
    if (!resolved.compare_exchange_strong(type, found, std::memory_order_acq_rel))
        Ref<const DataType>::Adopt(found) = {}; // another thread was first
    else
        type = found;
    return {};
}

namespace detail
{

template <class T>
struct DataTypeRecordOf : DataTypeRecord
{
    DataTypeRecordOf()
    {
        getter = &DataTypeTraits<T>::Get;
        next = *dataTypes;
        *dataTypes = this;
    }
    ~DataTypeRecordOf()
    {
        if (resolved)
            Ref<const DataType>::Adopt(resolved) = {};
    }
    static inline DataTypeRecordOf record;
};

} // namespace detail

// [any thread; setup] The data type of `T`.
template <class T>
Result GetDataType(const DataType*& type)
{
    return ResolveDataType(detail::DataTypeRecordOf<T>::record, type);
}

// A type that every host has under a name of its own.
#define VELTO_HOST_DATA_TYPE(T, name)                                                                                  \
    template <>                                                                                                        \
    struct velto::DataTypeTraits<T>                                                                                    \
    {                                                                                                                  \
        static constexpr ::velto::Id kId{name};                                                                        \
        static ::velto::Result Get(const ::velto::DataType** type)                                                     \
        {                                                                                                              \
            return ::velto::Bound<::velto::DataTypeLibInterface>().GetDataTypeForData(kId, type);                      \
        }                                                                                                              \
    }

// A type that this library brings along. Not one that others look up: those are published (see
// `VELTO_PUBLISH_DATA_TYPE`).
#define VELTO_DATA_TYPE(T, name)                                                                                       \
    template <>                                                                                                        \
    struct velto::DataTypeTraits<T>                                                                                    \
    {                                                                                                                  \
        static constexpr ::velto::Id kId{name};                                                                        \
        static ::velto::Result Get(const ::velto::DataType** type)                                                     \
        {                                                                                                              \
            static constexpr ::velto::DataTypeOperations operations = ::velto::MakeDataTypeOperations<T>();            \
            return ::velto::Bound<::velto::DataTypeLibInterface>().Create(kId, &operations, type);                     \
        }                                                                                                              \
    }

namespace detail
{
// A type composed of a parametric type and another.
template <class Argument>
Result ComposeDataType(const Id& parametric, Int count, const DataType** type)
{
    const DataType* argument = nullptr;
    VELTO_TRY(GetDataType<Argument>(argument));
    return Bound<DataTypeLibInterface>().Compose(parametric, argument, count, type);
}
} // namespace detail

#define VELTO_COMPOSED_DATA_TYPE(T, parametric, Argument, count)                                                       \
    template <>                                                                                                        \
    struct velto::DataTypeTraits<T>                                                                                    \
    {                                                                                                                  \
        static ::velto::Result Get(const ::velto::DataType** type)                                                     \
        {                                                                                                              \
            return ::velto::detail::ComposeDataType<Argument>(parametric, count, type);                                \
        }                                                                                                              \
    }

} // namespace velto
