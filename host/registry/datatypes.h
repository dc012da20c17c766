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

// What a function of `type` yields; null where its values are no functions.
const DataType* FunctionResultType(const DataType* type);

// A module makes the type of search paths, so its address is not the same for good.
inline bool IsSearchPathsType(const DataType* type)
{
    return type->id == DataTypeTraits<SearchPathsType>::kId;
}

} // namespace velto::host
