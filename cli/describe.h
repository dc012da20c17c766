// Node types as text.
#pragma once

#include "host/graph/nodetype.h"

namespace velto::cli
{

// For a terminal of `width` columns; 0: lines are not wrapped.
std::string DescribeForPeople(const host::NodeType& type, std::size_t width);

// The words on lines that are indented and, where there is a width, no longer than that.
std::string Wrapped(std::string_view text, std::size_t indent, std::size_t width);

} // namespace velto::cli
