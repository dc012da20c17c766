// Node types as JSON and as text.
#pragma once

#include "host/graph/nodetype.h"

namespace velto::cli
{

// `{"id", "kind", "ports": [...]}` in order of access.
host::Json DescribeCoreNode(const std::string& id, const host::NodeType& type);

// `{"id", "name", "label", "category", "ports": [...]}`.
host::Json DescribeNode(const host::NodeType& type);

// A few lines for people.
std::string DescribeForPeople(const host::NodeType& type);

} // namespace velto::cli
