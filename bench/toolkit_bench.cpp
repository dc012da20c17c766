// Noise that tiles beside the noise that does not, in graphs, in turn.
#include "support/graph.h"

#include <fmt/format.h>

namespace velto::bench
{

namespace
{

class Runner
{
public:
    explicit Runner(const std::string& document)
    {
        LoadGraph(document, graph_);
        instance_ = MakeInstance(graph_);
    }

    // Of all samples of a tile; the time is what an animation has.
    double Seconds(bool isMoving)
    {
        const Stopwatch watch;
        for (int i = 0; i < kSamples; ++i)
        {
            FillSample(instance_->Context(), i);
            instance_->Context().time.seconds = isMoving ? 0.7 : 0.0;
            if (instance_->Evaluate().IsError())
                return -1.0;
        }
        return watch.Seconds();
    }

private:
    host::Graph graph_;
    std::unique_ptr<host::Instance> instance_;
};

void SeamlessBesideNoise(
    benchmark::State& state, const char* kind, int periodW, const char* other, double octaves, bool isMoving)
{
    Runner seamless(fmt::format(R"({{"version": 1, "nodes": {{"n": {{"type": "seamlessnoise", "inputs": {{"kind": "{}",
        "periodW": {}, "octaves": {}, "loop": {}}}}}}}, "outputs": {{"n": "n.result"}}}})",
        kind, periodW, octaves, isMoving ? 2 : 0));
    Runner plain(fmt::format(R"({{"version": 1, "nodes": {{"n": {{"type": "noise", "inputs": {{"noiseType": "{}",
        "octaves": {}, "absolute": false, "animationSpeed": {}}}}}}}, "outputs": {{"n": "n.result"}}}})",
        other, octaves, isMoving ? 1 : 0));
    double seconds = 0.0;
    double besides = 0.0;
    for (auto _ : state)
    {
        const double run = seamless.Seconds(isMoving);
        const double beside = plain.Seconds(isMoving);
        if (run < 0.0 || beside < 0.0)
            return state.SkipWithError("a sample failed");
        seconds += run;
        besides += beside;
        state.SetIterationTime(run);
    }
    const double samples = static_cast<double>(state.iterations()) * kSamples;
    state.counters["seamless_ns"] = seconds / samples * 1e9;
    state.counters["noise_ns"] = besides / samples * 1e9;
    state.counters["ratio"] = seconds / besides;
}
BENCHMARK_CAPTURE(SeamlessBesideNoise, fbm1, "fbm", 0, "fbm", 1, false)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, fbm5, "fbm", 0, "fbm", 5, false)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, fbm8, "fbm", 0, "fbm", 8, false)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, fbm16, "fbm", 0, "fbm", 16, false)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, fbm8InSpace, "fbm", 8, "fbm", 8, false)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, fbm8Moving, "fbm", 0, "fbm", 8, true)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, fbm8MovingInSpace, "fbm", 8, "fbm", 8, true)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, turbulence5, "turbulence", 0, "turbulence", 5, false)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, ridged5, "ridged", 0, "ridgedmultifractal", 5, false)->UseManualTime();
BENCHMARK_CAPTURE(SeamlessBesideNoise, cells5, "cells", 0, "voronoi1", 5, false)->UseManualTime();

} // namespace

} // namespace velto::bench
