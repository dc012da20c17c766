// The data type library: types by name, and types composed of others.
#pragma once

#include "velto/datatype.h"

namespace velto::host
{

const DataTypeLibInterface& DataTypeService();

// The address of `T`'s data type; for types that every host has.
template <class T>
const DataType* TypeOf()
{
    const DataType* type = nullptr;
    GetDataType<T>(type).Ignore();
    return type;
}

} // namespace velto::host
