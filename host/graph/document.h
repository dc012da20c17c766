// The graph document: from JSON to a graph of core nodes, with every fault at its place.
#pragma once

#include "catalog.h"
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

// Splits `NODE.PORT=VALUE`; a value that is no JSON counts as a string. False when there is no such shape.
bool ParseSetting(std::string_view text, Setting& setting);

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

// Reads a document; all its faults go to `diagnostics`. False when there are any.
bool ReadDocument(const Json& json, NodeCatalog& catalog, const std::vector<Setting>& settings,
    Diagnostics& diagnostics, GraphDocument& document, const GraphLimits& limits = {});

} // namespace velto::host
