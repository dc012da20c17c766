// What a graph asks for before it runs: who wants much memory.
#pragma once

#include "pictures.h"

namespace velto::host
{

struct MemoryDemand
{
    std::string what; // `nodes.glow (raster of 4096 x 4096)`
    UInt bytes = 0;
};

// The rasters that the outputs need and these pictures, the largest first. What else there is, is small.
std::vector<MemoryDemand> MemoryDemands(const Graph& graph, const std::vector<ShownPicture>& pictures);

// Empty, or why it is more than there is, with the three largest.
std::string MemoryComplaint(const std::vector<MemoryDemand>& demands);

} // namespace velto::host
