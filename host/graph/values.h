// Values of port types as JSON, both ways.
#pragma once

#include "json.h"

#include "velto/data.h"
#include "velto/shadingcontext.h"

namespace velto::host
{

// Whether documents can give values of this type.
bool IsWritable(const DataType* type);

// The type of that name, or null; and the names of all types whose values documents can give.
const DataType* TypeNamed(std::string_view name);
std::vector<std::string> WritableTypeNames();

// The id among `values` that a text names: itself, or the one with that last word. Empty: there is none, or several.
std::string_view FindValue(std::string_view text, const std::vector<std::string>& values);

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
