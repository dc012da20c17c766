// Nodes with an operation port: one function for each operation, over the same inputs.
#pragma once

#include "velto/node.h"

namespace velto::toolkit
{

template <class Function>
struct Operation
{
    const InternedId* name;
    Function function;
    const NodeTable* node; // of the other inputs alone
};

// The row of an operation; an unknown one is the first.
template <class Function, std::size_t N>
const Operation<Function>& FindOperation(const Operation<Function> (&operations)[N], const InternedId& name)
{
    for (const Operation<Function>& operation : operations)
    {
        if (name == *operation.name)
            return operation;
    }
    return operations[0];
}

// An operation that is the same for every sample: its function stands for the node.
template <const auto& kOperations>
Result TakeOperation(const OptimizeRequest* request, Optimization* answer)
{
    const auto* const name = static_cast<const InternedId*>(request->constants[0]);
    if (!name)
        return {};
    const NodeTable& node = *FindOperation(kOperations, *name).node;
    VELTO_TRY(BuildMicroNodeGroup(node, "operation", {}, nullptr, answer->group.Receive()));
    answer->linkCount = node.portCount;
    for (UInt32 i = 0; i < node.portCount; ++i)
        answer->links[i] = {.replacement = static_cast<Int32>(i), .original = static_cast<Int32>(i + 1)};
    answer->kind = Optimization::Kind::Replace;
    return {};
}

} // namespace velto::toolkit
