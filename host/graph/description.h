// Descriptions: what users see of nodes, and which core nodes implement them.
//
// A description database is a directory with a JSON file a node (docs/descriptions.md). A module registers it, then
// hands those descriptions that are nodes to the processor that they name; the host's own makes a node type of them.
#pragma once

#include "nodetype.h"

#include "velto/descriptions.h"

namespace velto::host
{

// All nodes that descriptions of the loaded modules make, in order of their first appearance.
std::vector<std::shared_ptr<const NodeType>> DescribedNodes();

const DescriptionDefinitionDatabaseInterface& DescriptionDefinitionService();
const DescriptionDatabaseInterface& DescriptionService();

// Puts the host's processor into its registry.
Result RegisterDescriptionProcessor();

} // namespace velto::host
