// How an output becomes what its file holds.
#pragma once

#include "host/picture/layout.h"
#include "host/runtime/graph.h"

namespace velto::host
{

// What is asked for goes first, then what the document says of the output, then its type: `ColorA` and `Color` are
// colours, all else is data.
PictureEncoding EncodingOf(const Graph& graph, std::size_t output, const PictureEncoding& asked);

} // namespace velto::host
