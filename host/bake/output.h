// What becomes of a band of floats once it is sampled: it goes to its file while the next band is filled.
#pragma once

#include "target.h"

#include "host/system/sha256.h"

#include "host/runtime/graph.h"
#include "host/system/memory.h"

#include <tbb/task_group.h>

#include <atomic>
#include <memory>
#include <vector>

namespace velto::host
{

// The files of one bake. Two bands of each are in memory: the one that is filled, and the one that is written. If one
// holds the whole picture, there is no other.
class BakeOutputs
{
public:
    // Opens a file for each target that has one; nothing of them is left unless all are finished.
    Result Open(const Graph& graph, const std::vector<BakeTarget>& targets, const BakeWindow& window, int wholeWidth,
        int wholeHeight, const PictureEncoding& encoding, bool hashesPixels);
    void Allocate(int bandRows);

    struct Target
    {
        std::size_t output; // of the program
        int channels;
        std::unique_ptr<PictureWriter> writer; // null: into memory
        float* band = nullptr;                 // to be filled, rows of the window
        const float* filled = nullptr;
        Sha256 sum;
        WrittenFile file;
        std::vector<float> bands[2] = {}; // the one that is filled, and the one that is written
    };
    std::vector<Target>& Targets() { return targets_; }

    // [in the arena that samples] Hands the filled bands over, once the ones before are written, whose error it
    // returns.
    Result Submit(int rows);

    // [in the same arena] Waits for what was handed over; before the object goes, whatever else failed.
    Result Wait();

    // Puts all files in place, after `Wait`.
    Result Finish(std::vector<WrittenFile>& files);

    double Seconds() const { return seconds_; } // spent on files, on whatever thread

private:
    Result Write(Target& target, int rows);
    std::size_t RowFloats(const Target& target) const
    {
        return static_cast<std::size_t>(width_) * static_cast<std::size_t>(target.channels);
    }

    std::vector<Target> targets_;
    tbb::task_group writing_;
    Result written_;
    std::atomic<UInt> bandsWritten_ = 0;
    MemoryShare memory_;
    int width_ = 0;
    int height_ = 0;
    bool hashesPixels_ = false;
    double seconds_ = 0.0;
};

} // namespace velto::host
