// Conversions on wires between differing types.
#pragma once

#include "velto/corenodes.h"
#include "velto/data.h"

namespace velto::host
{

// A node-like call with one input and one output: slots 0 and 1.
using Conversion = void (*)(Result* out, const MicroNode* self, const Binding* binding);

// How a value of one type becomes one of another; null when it does not. Equal types need none.
Conversion FindConversion(const DataType* from, const DataType* to);

// Whether a wire may run from one type to the other.
bool IsConvertible(const DataType* from, const DataType* to);

// A copy of a value as another type. Illegal argument when there is no conversion.
Result ConvertValue(const Data& from, const DataType* to, Data& converted);

} // namespace velto::host
