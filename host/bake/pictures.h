// The picture files that a graph shows, looked for before it runs.
#pragma once

#include "host/graph/diagnostics.h"
#include "host/runtime/graph.h"

namespace velto::host
{

// A picture that a node shows, as far as the document says which.
struct ShownPicture
{
    std::string place; // of the input that names it
    std::string file;
    int width = 0;
    int height = 0;
    UInt bytes = 0; // that it takes at most
};

// Reads each picture once. Those that are missing or broken, and the gaps of sequences, are warnings.
std::vector<ShownPicture> LookForPictures(const Graph& graph, Diagnostics& diagnostics);

// The files of all pictures that a graph may show, those of sequences one by one, as far as the document says which;
// also those that are not there. A movie is one file.
std::vector<std::string> PictureFiles(const Graph& graph);

} // namespace velto::host
