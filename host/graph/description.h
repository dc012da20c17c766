// Descriptions: what users see of nodes, and which core nodes stand behind them.
#pragma once

#include "nodetype.h"

namespace velto::host
{

// All nodes that descriptions of the loaded modules make, in order.
std::vector<std::shared_ptr<const NodeType>> DescribedNodes();

} // namespace velto::host
