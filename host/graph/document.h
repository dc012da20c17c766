// The graph document: from JSON to a graph of core nodes, with every fault at its place.
#pragma once

#include "catalog.h"
#include "graphdocument.h"

namespace velto::host
{

// Splits `NODE.PORT=VALUE` or `PARAMETER=VALUE`; a value that is no JSON counts as a string. False when there is no
// such shape.
bool ParseSetting(std::string_view text, Setting& setting);

// Reads a document; all its faults go to `diagnostics`. False when there are any.
bool ReadDocument(const Json& json, const std::shared_ptr<NodeCatalog>& catalog, const DocumentOptions& options,
    Diagnostics& diagnostics, GraphDocument& document);

// What a document is as a node: its parameters and outputs. Null and faults when it is none.
std::shared_ptr<const NodeType> ReadDocumentType(const std::string& file, const std::shared_ptr<NodeCatalog>& catalog,
    const DocumentPlaces& places, Diagnostics& diagnostics);

} // namespace velto::host
