// What a bake costs, before it is run.
#pragma once

#include "bake.h"
#include "pictures.h"

namespace velto::host
{

// A node of the document.
struct NodeCost
{
    enum class Runs
    {
        Never,  // no output needs it
        Folded, // something simpler stands for it
        Setup,  // once, or for the samples of a raster
        Area,   // for places of other nodes' choosing, within every sample
        Sample, // for every sample
    };

    std::string name;
    std::string type; // as the document names it
    Runs runs = Runs::Never;
    double evaluationsPerSample = 0.0; // of all that it consists of
    double nanoseconds = 0.0;          // of a sample, without the nodes that it asks for values
};

struct Explanation
{
    std::vector<NodeCost> nodes; // in the document's order
    std::vector<SetupRaster> rasters;
    std::vector<ShownPicture> pictures;
    UInt memory = 0;                   // bytes of rasters, pictures, and bands of pixels
    double nanosecondsPerSample = 0.0; // on one core
    double setupSeconds = 0.0;         // rasters, and pictures that are read
    double sampleSeconds = 0.0;        // of the whole window, on all threads
    double writeSeconds = 0.0;         // likewise
    bool isFused = false;              // the bake compiles the graph, and the figures are those of compiled code

    double Seconds() const { return setupSeconds + sampleSeconds + writeSeconds; }

    // Those that take most of a sample's time, at most three.
    std::vector<const NodeCost*> Costliest() const;
};

// Bakes a little of the picture, all over it, and small rasters in the place of large ones, and goes by the processor's
// time that this takes: about half a second. What is sampled is also encoded, in the folder for temporary files, where
// targets have files. Uses the graph up. Errors are those of the bake.
Result Explain(
    Graph graph, const std::vector<BakeTarget>& targets, const BakeOptions& options, Explanation& explanation);

} // namespace velto::host
