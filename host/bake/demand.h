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

// Empty if the budget covers the demands, or else a text that names the three largest.
std::string MemoryComplaint(const std::vector<MemoryDemand>& demands);

} // namespace velto::host
