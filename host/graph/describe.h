// Node types as JSON.
#pragma once

#include "nodetype.h"

namespace velto::host
{

// `{"id", "kind", "ports": [...]}` in order of access.
Json DescribeCoreNode(const std::string& id, const NodeType& type);

// `{"id", "name", "label", "category", "help", "ports": [...]}`, and `"buttons"` where it has any.
Json DescribeNode(const NodeType& type);

} // namespace velto::host
