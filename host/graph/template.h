// Templates of described nodes: the root that a description makes, completed by the module's functions.
#pragma once

#include "nodesystem.h"
#include "nodetype.h"

namespace velto::host
{

// Builds the root of a described node: ports with their types, bundles as groups of knots; lets the finalizer of its id
// complete it, and has the module wire its context. What that says of the ports is taken over into the type.
Result BuildTemplate(NodeType& type, NodeSystem& root);

// The built-in nodes of the registry as node types.
Result BuiltinTypes(std::vector<std::shared_ptr<const NodeType>>& types);

} // namespace velto::host
