// Documents that a page sends, checked and baked into memory. A document that differs from one before in values only is
// not built anew.
#pragma once

#include "host/host.h"

#include <list>
#include <map>
#include <mutex>

namespace velto::editor
{

struct PictureRequest
{
    std::string text; // of the document
    std::string output;
    host::BakeView view;
    host::BakeWindow window; // empty: all
    double frame = 0.0;
    double framesPerSecond = 25.0;
    std::string lane; // a newer request of a lane stops the one before
    UInt serial = 0;
};

struct Picture
{
    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<float> pixels; // channels interleaved, rows from the top
    double milliseconds = 0.0;
};

// Why there is no answer: the document's faults, or what failed while it was evaluated.
struct Refusal
{
    host::Diagnostics diagnostics;
    std::string error;
    std::string node;
    bool isSuperseded = false;
};

class Evaluator
{
public:
    // Forced, it bakes however much work a sample is.
    Evaluator(std::shared_ptr<const void> modules, host::GraphOptions options, int threads, bool isForced)
        : modules_(std::move(modules)), options_(std::move(options)), threads_(threads), isForced_(isForced)
    {
    }

    // [any thread] All that is wrong or doubtful with a document, and its outputs as `[{"name", "type"}]`.
    host::Diagnostics Check(const std::string& text, host::Json& outputs);

    // [any thread]
    bool MakePicture(const PictureRequest& request, Picture& picture, Refusal& refusal);

    // [any thread] The values of all outputs at the pixel where the request's window begins: `{NAME: VALUE}`.
    bool Evaluate(const PictureRequest& request, host::Json& values, Refusal& refusal);

    // [any thread] What a square picture of all outputs costs, by `size` pixels a side.
    bool MeasureCost(const std::string& text, int size, host::Explanation& explanation, Refusal& refusal);

private:
    struct Entry
    {
        host::Json document;
        std::string output; // empty: all
        host::Graph graph;
    };

    struct Lane
    {
        UInt serial = 0;
        std::shared_ptr<std::atomic<bool>> stop;
    };

    std::shared_ptr<std::atomic<bool>> Enter(const std::string& lane, UInt serial);
    host::Graph* Find(const std::string& text, const std::string& output, Refusal& refusal);
    bool Load(const std::string& text, const std::string& output, host::Diagnostics& diagnostics, host::Graph& graph);
    bool Adapt(Entry& entry, const host::Json& document) const;
    bool MayRun(const host::Graph& graph, Refusal& refusal) const;

    const std::shared_ptr<const void> modules_;
    const host::GraphOptions options_;
    const int threads_;
    const bool isForced_;

    std::mutex lanesMutex_;
    std::map<std::string, Lane> lanes_;

    std::mutex workMutex_;     // one bake at a time: it has all threads
    std::list<Entry> entries_; // the one used last comes first
};

} // namespace velto::editor
