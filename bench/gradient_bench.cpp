// Gradients and splines of eight knots.
#include "bench/support/graph.h"

#include <fmt/format.h>

namespace velto::bench
{

namespace
{

void Measure(benchmark::State& state, const std::string& document)
{
    host::Graph graph;
    LoadGraph(document, graph);
    const std::unique_ptr<host::Instance> instance = MakeInstance(graph);
    for (auto _ : state)
    {
        for (int i = 0; i < kSamples; ++i)
        {
            FillSample(instance->Context(), i);
            instance->Context().uvw.x = i * (1.0 / kSamples);
            if (instance->Evaluate().IsError())
                return state.SkipWithError("a sample failed");
            benchmark::DoNotOptimize(instance->Output(0));
        }
    }
    state.counters["ns"] = benchmark::Counter(static_cast<double>(state.iterations()) * kSamples * 1e-9,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void Gradient(benchmark::State& state, const char* mode, const char* space)
{
    std::string knots;
    for (int i = 0; i < 8; ++i)
        knots += fmt::format(R"({}{{"position": {}, "color": [{}, 0.5, {}, 1], "bias": 0.4, "interpolation": "{}"}})",
            i == 0 ? "" : ", ", i / 7.0, i % 2, i / 8.0, mode);
    Measure(state, fmt::format(R"({{"version": 1, "nodes": {{"g": {{"type": "gradient", "inputs": {{"gradient": [{}],
        "colorspace": "{}"}}}}}}, "outputs": {{"color": "g.result"}}}})",
                       knots, space));
}
BENCHMARK_CAPTURE(Gradient, None, "none", "linear");
BENCHMARK_CAPTURE(Gradient, Linear, "linearknot", "linear");
BENCHMARK_CAPTURE(Gradient, Smooth, "smoothknot", "linear");
BENCHMARK_CAPTURE(Gradient, Cubic, "cubicknot", "linear");
BENCHMARK_CAPTURE(Gradient, SmoothInSrgb, "smoothknot", "srgb");

void Spline(benchmark::State& state, const char* interpolation)
{
    std::string knots;
    for (int i = 0; i < 8; ++i)
        knots +=
            fmt::format(R"({}{{"positionx": {}, "positiony": {}, "interpolation": "{}", "tangentleft": [-0.05, 0.1]}})",
                i == 0 ? "" : ", ", i / 7.0, (i * 5 % 8) / 8.0, interpolation);
    // Something of the sample, so that it is not looked up once for all.
    Measure(state, fmt::format(R"({{"version": 1, "nodes": {{
        "u": {{"type": "gradient", "inputs": {{"gradient": [{{"position": 0, "color": [0, 0, 0, 1], "interpolation": "linearknot"}},
            {{"position": 1, "color": [1, 1, 1, 1], "interpolation": "linearknot"}}]}}}},
        "s": {{"type": "spline", "inputs": {{"input": {{"from": "u.result"}}, "points": [{}]}}}}}},
        "outputs": {{"height": "s.result"}}}})",
                       knots));
}
BENCHMARK_CAPTURE(Spline, Linear, "linear");
BENCHMARK_CAPTURE(Spline, Cubic, "cubic");
BENCHMARK_CAPTURE(Spline, Bezier, "bezier");

} // namespace

} // namespace velto::bench
