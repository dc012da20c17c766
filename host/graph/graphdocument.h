// A document as a graph of core nodes, and what reading one takes beside its text.
#pragma once

#include "nodesystem.h"

#include "host/corenode/coregraph.h"

namespace velto::host
{

// A value given from outside in the place of one in the document: `NODE.PORT=VALUE`.
struct Setting
{
    std::string node;
    std::string port;
    Json value;
};

struct GraphLimits
{
    std::size_t nodes = 100'000;
    std::size_t links = 1'000'000;
    std::size_t elements = 10'000; // of one input
};

struct GraphDocument
{
    CoreGraph graph;
    std::vector<std::string> nodeNames; // of the document, in its order
    NodeSystem root;                    // of the whole: its material, or its outputs
};

} // namespace velto::host
