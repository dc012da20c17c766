// Bakes a graph's outputs to an image file.
#pragma once

#include "target.h"
#include "view.h"

#include "host/runtime/graph.h"

#include <atomic>
#include <functional>
#include <string>

namespace velto::host
{

struct BakeProgress
{
    double share = 0.0; // of the picture, 0 to 1
    UInt samples = 0;
    double seconds = 0.0;                // of sampling; of the setup while there is a raster
    const SetupRaster* raster = nullptr; // what is made ahead of the samples, or null
};

// Where a bake failed.
struct BakeFailure
{
    std::string node; // empty: none in particular
    bool hasPixel = false;
    int x = 0; // of the whole picture
    int y = 0;
};

// Whether a bake compiles its graph.
enum class Fusing : std::uint8_t
{
    Never,
    WhenItPays, // beside the sampling, which begins by calls
    First,
};

struct BakeOptions
{
    BakeView view;
    BakeWindow window;    // of the picture; empty: all of it
    double seconds = 0.0; // the time of the frame
    double framesPerSecond = 25.0;
    int threads = 0; // 0: as many as the process may use
    Fusing fusing = Fusing::WhenItPays;
    PictureEncoding encoding; // goes before the document's
    bool hashesPixels = false;
    std::function<void(const BakeProgress&)> progress; // [the calling thread] after each of its tiles
    const std::atomic<bool>* stop = nullptr;           // true: stop soon, within some samples
};

struct BakeStatistics
{
    UInt samples = 0;
    double setupSeconds = 0.0; // rasters and all
    double sampleSeconds = 0.0;
    double writeSeconds = 0.0;
    EvaluationCounts evaluations; // by index of the program's node names
    std::vector<SetupRaster> rasters;
    std::vector<WrittenFile> files; // not those of targets in memory
    BakeFailure failure;
    UInt fusedTiles = 0;
    UInt tiles = 0;
    std::string notFused; // why nothing was compiled, where that was tried
};

inline constexpr int kMaxPictureSide = 32'768;

// Whether values of a type are pixels: a number or components.
bool IsPicture(const DataType* type);

// Evaluates the picture once and writes each target, in bands, in order of rows. Files are put in place at the end: on
// error, or when stopped, the old files stay, and memory holds what was baked so far. An output that is neither a
// number nor a colour is an error. Only what is not up to date of the graph's setup runs; the graph can be baked again,
// also after an error.
Result Bake(
    Graph& graph, const std::vector<BakeTarget>& targets, const BakeOptions& options, BakeStatistics& statistics);

} // namespace velto::host
