// A node that passes its input on. Programs contain none: a reader of the output reads the input instead.
#pragma once

#include "velto/corenodes.h"

#include <string_view>

namespace velto::host
{

// The type of such a node in a graph; its ports are `in` and `out`.
inline constexpr std::string_view kForwardNode = "net.velto.node.forward";

Result MakeForwardGroup(const DataType* type, Ref<MicroNodeGroup>& group);

} // namespace velto::host
