// Values that a document's graph has before it runs.
#pragma once

#include "host/corenode/coregraph.h"
#include "host/corenode/forward.h"

namespace velto::host
{

// What an input holds, if no sample changes it.
template <class T>
const T* Constant(const CoreGraph& graph, const CoreNode& node, const char* port)
{
    auto input = node.inputs.find(port);
    const CoreNode* at = &node;
    while (input != at->inputs.end() && input->second.link)
    {
        at = &graph.nodes[input->second.link->node];
        if (at->type != kForwardNode)
            return nullptr;
        input = at->inputs.find("in");
    }
    return input == at->inputs.end() ? nullptr : input->second.value.As<T>();
}

} // namespace velto::host
