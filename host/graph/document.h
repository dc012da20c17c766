// The graph document: from JSON to a graph of core nodes, with every fault at its place.
#pragma once

#include "catalog.h"
#include "graphdocument.h"

namespace velto::host
{

// Splits `NODE.PORT=VALUE`; a value that is no JSON counts as a string. False when there is no such shape.
bool ParseSetting(std::string_view text, Setting& setting);

// Reads a document; all its faults go to `diagnostics`. False when there are any.
bool ReadDocument(const Json& json, NodeCatalog& catalog, const std::vector<Setting>& settings,
    Diagnostics& diagnostics, GraphDocument& document, const GraphLimits& limits = {});

} // namespace velto::host
