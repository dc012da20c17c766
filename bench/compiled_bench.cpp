// Graphs as a bake samples them: by calls and compiled as one.
#include "support/graph.h"

#include "host/bake/tiles.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace velto::bench
{

namespace
{

namespace fs = std::filesystem;

constexpr host::BakeView kView{1024, 1024, host::BakeShape::Plane, 1};
constexpr int kSide = host::kTileSide;

std::string ReadText(const fs::path& file)
{
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Time of this thread, whatever else the machine does.
class CpuStopwatch
{
public:
    double Seconds() const { return Now() - start_; }

private:
    static double Now()
    {
        timespec now;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    }

    double start_ = Now();
};

// One thread's way through tiles of a picture, for all outputs that have channels.
class Tiles
{
public:
    explicit Tiles(host::Graph& graph) : graph_(graph)
    {
        ShadingContext shared;
        shared.frameRate = 25.0;
        shared.searchPaths = graph.searchPaths.get();
        shared.renderMessages = graph.messages.get();
        std::vector<std::size_t> outputs;
        for (std::size_t i = 0; i < graph.program->outputs.size(); ++i)
        {
            const int channels = host::ChannelsOf(graph.program->outputs[i].type);
            if (channels == 0)
                continue;
            outputs.push_back(i);
            pixels_.emplace_back(static_cast<std::size_t>(channels * kSide * kSide));
        }
        if (host::TileSampler::Create(*graph.setup, shared, kView, std::move(outputs), sampler_).IsError())
            std::abort();
        for (std::vector<float>& pixels : pixels_)
            targets_.push_back(pixels.data());
    }

    // Null where the graph cannot be compiled.
    std::shared_ptr<const host::SampleKernel> Compile(host::FuseReport& report)
    {
        auto kernel = host::Fuse(*graph_.setup, sampler_->Start(), sampler_->Shape(TileAt(0)), {}, report);
        if (kernel)
            sampler_->UseKernel(kernel);
        return kernel;
    }

    double SecondsOf(int tile)
    {
        host::TileFailure failure;
        const CpuStopwatch watch;
        if (sampler_->Sample(TileAt(tile), targets_, kSide, nullptr, failure).IsError())
            std::abort();
        return watch.Seconds();
    }

    const std::vector<std::vector<float>>& Pixels() const { return pixels_; }

private:
    // All over the picture.
    static host::Tile TileAt(int i)
    {
        constexpr int kAcross = 1024 / kSide;
        const int place = i * 37 % (kAcross * kAcross);
        return {place % kAcross * kSide, place / kAcross * kSide, kSide, kSide};
    }

    host::Graph& graph_;
    std::unique_ptr<host::TileSampler> sampler_;
    std::vector<std::vector<float>> pixels_; // by output
    std::vector<float*> targets_;
};

void Compiled(benchmark::State& state, const fs::path& file)
{
    host::GraphOptions options;
    options.file = file.string();
    options.searchPaths = {file.parent_path().string()};
    host::Graph graph;
    LoadGraph(ReadText(file), graph, options);
    Tiles calls(graph);
    Tiles compiled(graph);
    host::FuseReport report;
    const CpuStopwatch watch;
    if (!compiled.Compile(report))
        state.SetLabel("not compiled: " + report.reason);
    const double compileSeconds = watch.Seconds();
    std::vector<double> callTimes;
    std::vector<double> compiledTimes;
    int tile = 0;
    for (auto _ : state)
    {
        callTimes.push_back(calls.SecondsOf(tile));
        compiledTimes.push_back(compiled.SecondsOf(tile));
        if (calls.Pixels() != compiled.Pixels())
            return state.SkipWithError("the pixels differ");
        state.SetIterationTime(compiledTimes.back());
        ++tile;
    }
    const auto nanoseconds = [](std::vector<double>& times) {
        double sum = 0.0;
        for (const double time : times)
            sum += time;
        return sum / static_cast<double>(times.size()) / (kSide * kSide) * 1e9;
    };
    state.counters["calls_ns"] = nanoseconds(callTimes);
    state.counters["compiled_ns"] = nanoseconds(compiledTimes);
    state.counters["ratio"] = nanoseconds(compiledTimes) / nanoseconds(callTimes);
    state.counters["compile_ms"] = compileSeconds * 1e3;
    double count = 0;
    for (const host::BodyPlan& body : graph.program->bodies)
        count += static_cast<double>(body.calls.size());
    state.counters["calls"] = count;
}

// One for each document.
const bool kAreRegistered = [] {
    if (!host::CanFuse())
        return false;
    for (const char* const folder : {VELTO_SOURCE_DIR "/bench/graphs", VELTO_SOURCE_DIR "/examples/materials"})
    {
        std::vector<fs::path> files;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        {
            if (entry.path().extension() == ".json")
                files.push_back(entry.path());
        }
        std::sort(files.begin(), files.end());
        for (const fs::path& file : files)
            benchmark::RegisterBenchmark(("Compiled/" + file.stem().string()).c_str(),
                [file](benchmark::State& state) { Compiled(state, file); })
                ->UseManualTime()
                ->Iterations(64);
    }
    return true;
}();

} // namespace

} // namespace velto::bench
