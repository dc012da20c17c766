// Values that a document's graph has before it runs.
#pragma once

#include "host/corenode/coregraph.h"
#include "host/corenode/forward.h"

namespace velto::host
{

// The input of this or another node that gives an input its value, if no sample changes it.
inline const CoreInput* ConstantSource(const CoreGraph& graph, const CoreNode& node, const char* port)
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
    return input == at->inputs.end() ? nullptr : &input->second;
}

// What an input holds, if no sample changes it.
template <class T>
const T* Constant(const CoreGraph& graph, const CoreNode& node, const char* port)
{
    const CoreInput* const source = ConstantSource(graph, node, port);
    return source ? source->value.As<T>() : nullptr;
}

} // namespace velto::host
