// Values of port types as JSON, both ways.
#pragma once

#include "json.h"

#include "velto/data.h"
#include "velto/shadingcontext.h"

namespace velto::host
{

// Whether documents can give values of this type.
bool IsWritable(const DataType* type);

// The type's name for people: `ColorA`, `Float`, or its id.
std::string TypeName(const DataType* type);

// Reads a value of `type`; false and a fault at `place` when it is not one.
bool ReadValue(const Json& json, const DataType* type, const std::string& place, Diagnostics& diagnostics, Data& value);

// Opaque values become `{"type": ID}`.
Json WriteValue(const DataType* type, const void* value);

// Sets the context's fields from the members of an object, by name; faults for names and values that are none. `skip`
// is a member to leave alone.
bool ReadContext(const Json& json, const std::string& place, std::string_view skip, Diagnostics& diagnostics,
    ShadingContext& context);

// Construction arguments: numbers, strings and arrays of strings.
bool ReadArguments(const Json& json, const std::string& place, Diagnostics& diagnostics, DataDictionary& arguments);

} // namespace velto::host
