// The data type library: types by name, and types composed of others.
#pragma once

#include "host/system/guard.h"
#include "velto/porttypes.h"

#include <span>

namespace velto::host
{

const DataTypeLibInterface& DataTypeService();

// The address of `T`'s data type; for types that every host has. Throws without memory.
template <class T>
const DataType* TypeOf()
{
    const DataType* type = nullptr;
    ThrowIfError(GetDataType<T>(type));
    return type;
}

// A type whose values are functions of the context.
struct FunctionType
{
    const DataType* type;
    const DataType* yields;
    std::string_view name;
};

std::span<const FunctionType> FunctionTypes();

// The type that functions of `type` return; null if the type is not a function type.
const DataType* FunctionResultType(const DataType* type);

// The type of search paths belongs to a module, so its address changes when the module is loaded again.
inline bool IsSearchPathsType(const DataType* type)
{
    return type->id == DataTypeTraits<SearchPathsType>::kId;
}

} // namespace velto::host
