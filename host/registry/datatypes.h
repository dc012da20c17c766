// The data type library: types by name, and types composed of others.
#pragma once

#include "host/system/guard.h"
#include "velto/datatype.h"

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

} // namespace velto::host
