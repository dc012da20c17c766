// Measures a graph through the loaded module against the same formulas in one loop.
#pragma once

#include "host/host.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace velto::bench
{

// The graph of a document that is known to be right; ends the process when it is not.
void LoadGraph(std::string_view document, host::Graph& graph, const host::GraphOptions& options = {});

std::unique_ptr<host::Instance> MakeInstance(host::Graph& graph);

// The samples that all graphs are measured on: a tile of 64 x 64 pixels of a picture of 1024 x 1024.
inline constexpr int kTile = 64;
inline constexpr int kPicture = 1024;
inline constexpr int kSamples = kTile * kTile;

inline void FillSample(ShadingContext& context, int i)
{
    constexpr Float pixel = 1.0 / kPicture;
    const Vector uvw{(i % kTile + 0.5) * pixel, (i / kTile + 0.5) * pixel, 0.0};
    context.uvwValid = true;
    context.uvw = uvw;
    context.uvwPlusDeltaU = {uvw.x + pixel, uvw.y, 0.0};
    context.uvwPlusDeltaV = {uvw.x, uvw.y + pixel, 0.0};
}

struct SampleFiller
{
    void operator()(ShadingContext& context, int i) const { FillSample(context, i); }
};

class Stopwatch
{
public:
    double Seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_ = Clock::now();
};

// The samples of a tile by compiled code, from arrays that are made beforehand, as a bake makes them for all rows.
class FusedTile
{
public:
    // `contexts` are those of the tile's samples. Without a compiler the tile is empty.
    FusedTile(host::Graph& graph, const std::vector<ShadingContext>& contexts);

    explicit operator bool() const { return kernel_ != nullptr; }

    // `to`: the first output's values, `size` bytes each; false where a sample failed.
    bool Sample(void* to, std::size_t size);

private:
    std::vector<host::FieldArray> fields_;
    std::vector<std::vector<UInt>> lanes_;
    std::unique_ptr<host::ThreadSampler> sampler_;
    std::shared_ptr<const host::SampleKernel> kernel_;
};

// Nanoseconds a sample of both ways, and how they compare.
inline void ReportBoth(benchmark::State& state, double moduleSeconds, double handSeconds)
{
    const double samples = static_cast<double>(state.iterations()) * kSamples;
    state.counters["module_ns"] = moduleSeconds / samples * 1e9;
    state.counters["hand_ns"] = handSeconds / samples * 1e9;
    state.counters["ratio"] = moduleSeconds / handSeconds;
}

// Runs both ways in turn, and reports nanoseconds a sample of each and their ratio. `hand` gives the value of a
// context. The values have to be the same to the last bit.
template <class Hand, class Fill = SampleFiller>
void MeasureAgainstHand(benchmark::State& state, std::string_view document, Hand hand, Fill fill = {})
{
    using T = std::invoke_result_t<Hand, const ShadingContext&>;
    host::Graph graph;
    LoadGraph(document, graph);
    const std::unique_ptr<host::Instance> instance = MakeInstance(graph);
    std::vector<T> fromModule(kSamples);
    std::vector<T> fromHand(kSamples);
    ShadingContext context;
    std::vector<ShadingContext> contexts(kSamples);
    for (int i = 0; i < kSamples; ++i)
        fill(contexts[static_cast<std::size_t>(i)], i);
    constexpr bool isWhole = std::is_floating_point_v<T> || std::is_class_v<T>; // numbers as samplers write them
    FusedTile fused(graph, isWhole ? contexts : std::vector<ShadingContext>());
    std::vector<T> fromFused(kSamples);
    double fusedSeconds = 0.0;
    double moduleSeconds = 0.0;
    double handSeconds = 0.0;
    for (auto _ : state)
    {
        const Stopwatch fusedWatch;
        if (fused && !fused.Sample(fromFused.data(), sizeof(T)))
            return state.SkipWithError("a sample failed in compiled code");
        fusedSeconds += fusedWatch.Seconds();
        const Stopwatch moduleWatch;
        for (int i = 0; i < kSamples; ++i)
        {
            fill(instance->Context(), i);
            if (instance->Evaluate().IsError())
                return state.SkipWithError("a sample failed");
            fromModule[static_cast<std::size_t>(i)] = *static_cast<const T*>(instance->Output(0));
        }
        const double seconds = moduleWatch.Seconds();
        const Stopwatch handWatch;
        for (int i = 0; i < kSamples; ++i)
        {
            fill(context, i);
            fromHand[static_cast<std::size_t>(i)] = hand(context);
        }
        handSeconds += handWatch.Seconds();
        moduleSeconds += seconds;
        state.SetIterationTime(seconds);
        benchmark::ClobberMemory();
    }
    if (std::memcmp(fromModule.data(), fromHand.data(), kSamples * sizeof(T)) != 0)
        return state.SkipWithError("the values differ from those of the loop by hand");
    ReportBoth(state, moduleSeconds, handSeconds);
    if (!fused)
        return;
    if (std::memcmp(fromFused.data(), fromHand.data(), kSamples * sizeof(T)) != 0)
        return state.SkipWithError("the compiled values differ from those of the loop by hand");
    state.counters["fused_ns"] = fusedSeconds / (static_cast<double>(state.iterations()) * kSamples) * 1e9;
    state.counters["fused_ratio"] = fusedSeconds / handSeconds;
}

} // namespace velto::bench
