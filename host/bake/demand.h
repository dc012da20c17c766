// How much memory a graph will need, and which of its parts need most of it.
#pragma once

#include "pictures.h"

namespace velto::host
{

struct MemoryDemand
{
    std::string what; // `nodes.glow (raster of 4096 x 4096)`
    UInt bytes = 0;
};

// The rasters that the outputs need and these pictures, the largest first. Everything else is small.
std::vector<MemoryDemand> MemoryDemands(const Graph& graph, const std::vector<ShownPicture>& pictures);

// A raster that the outputs need.
struct RasterDemand
{
    std::size_t node = 0; // of the core graph
    UInt width = 0;
    UInt height = 0;
};

std::vector<RasterDemand> RasterDemands(const Graph& graph);

// Makes rasters of these sizes, but with sides no longer than this, of the document's graph.
Result LimitRasters(CoreGraph& graph, const std::vector<RasterDemand>& rasters, UInt32 side);

// Whether the outputs need each of the nodes.
std::vector<bool> NeededNodes(const CoreGraph& graph);

// Empty if the budget covers the demands, or else a text that names the three largest.
std::string MemoryComplaint(const std::vector<MemoryDemand>& demands);

} // namespace velto::host
