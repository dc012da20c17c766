// Values on their way between Python and documents.
#pragma once

#include "host/graph/json.h"
#include "velto/datatype.h"

#include <pybind11/pybind11.h>

namespace velto::python
{

namespace py = pybind11;

// None, numbers, texts, paths, sequences, mappings with texts as keys, and numpy's scalars and arrays. Throws a
// TypeError or a ValueError that says at what place of `what` there is another thing.
host::Json ToJson(py::handle value, const std::string& what);

py::object FromJson(const host::Json& json);

// A value of a graph: what consists of numbers becomes a number or a tuple of them.
py::object FromValue(const DataType* type, const void* value);

} // namespace velto::python
