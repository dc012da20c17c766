// Factories of core nodes: groups by construction arguments, made once.
#pragma once

#include "velto/corenodes.h"

namespace velto::host
{

// [any thread] The group of a node for these construction arguments (null: none).
Result CreateGroup(const CoreNodeFactory& factory, const DataDictionary& arguments, Ref<MicroNodeGroup>& group);

const FactoryInterface& FactoryService();

} // namespace velto::host
