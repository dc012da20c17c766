// Whole graphs, and what a node costs beyond its arithmetic.
#include "support/graph.h"

#include <fmt/format.h>

#include <cmath>
#include <thread>

namespace velto::bench
{

namespace
{

constexpr std::string_view kPlaced = R"({"version": 1, "nodes": {
    "place": {"type": "net.velto.render.corenode.placement2d", "inputs": {"localLength": [1, 1], "localPivot": [0, 0],
        "localRotation": 0.3, "localRepetitions": [5, 5], "localModeU": "repeat", "localModeV": "repeat"}},
    "board": {"type": "net.velto.pattern.corenode.generator.checkerboard", "inputs": {
        "contextLocal": {"from": "place.result"}, "color1": [0.8, 0.68, 0.5, 1], "color2": [0.05, 0.2, 0.3, 1]}}},
    "outputs": {"color": "board.result"}})";

constexpr std::string_view kGraded = R"({"version": 1, "nodes": {
    "place": {"type": "net.velto.render.corenode.placement2d", "inputs": {"localLength": [1, 1], "localPivot": [0, 0],
        "localRotation": 0.3, "localRepetitions": [5, 5], "localModeU": "repeat", "localModeV": "repeat"}},
    "board": {"type": "net.velto.pattern.corenode.generator.checkerboard", "inputs": {
        "contextLocal": {"from": "place.result"}, "color1": [0.8, 0.68, 0.5, 1], "color2": [0.05, 0.2, 0.3, 1]}},
    "crisp": {"type": "net.velto.pattern.corenode.effect.contrast", "inputs": {"color": {"from": "board.result"},
        "contrast": 0.2, "maskblend": 1, "maskred": true, "maskgreen": true, "maskblue": true}},
    "lit": {"type": "net.velto.pattern.corenode.effect.exposure", "inputs": {"color": {"from": "crisp.result"},
        "exposure": 0.5, "offset": 0.01, "gamma": 2.2, "maskblend": 1, "maskred": true, "maskgreen": true,
        "maskblue": true}}},
    "outputs": {"color": "lit.result"}})";

// The same formulas, as one would write them for this graph alone.
struct Board
{
    ColorA color1{0.8, 0.68, 0.5, 1};
    ColorA color2{0.05, 0.2, 0.3, 1};
    Float c = std::cos(0.3);
    Float s = std::sin(0.3);
    Float determinant = c * c - -s * s;
    Vector2d axisU{c / determinant * 5.0, -s / determinant * 5.0};
    Vector2d axisV{s / determinant * 5.0, c / determinant * 5.0};

    ColorA operator()(const ShadingContext& context) const
    {
        const auto map = [this](const Vector& p) {
            return Vector2d{0.0 + axisU.x * p.x + axisV.x * p.y, 0.0 + axisU.y * p.x + axisV.y * p.y};
        };
        Vector2d y = map(context.uvw);
        Vector2d nextU = map(context.uvwPlusDeltaU);
        Vector2d nextV = map(context.uvwPlusDeltaV);
        const Float tileU = std::floor(y.x);
        const Float tileV = std::floor(y.y);
        y = {y.x - tileU, y.y - tileV};
        nextU = {nextU.x - tileU, nextU.y - tileV};
        nextV = {nextV.x - tileU, nextV.y - tileV};
        const Float w = Max(Max(y.x, nextU.x), nextV.x) - Min(Min(y.x, nextU.x), nextV.x);
        const Float h = Max(Max(y.y, nextU.y), nextV.y) - Min(Min(y.y, nextU.y), nextV.y);
        Float u = y.x - std::floor(y.x);
        Float v = y.y - std::floor(y.y);
        const bool secondU = u >= 0.5;
        const bool secondV = v >= 0.5;
        if (secondU)
            u -= 0.5;
        if (secondV)
            v -= 0.5;
        const Float hw = Min(w, 0.5);
        const Float hh = Min(h, 0.5);
        const Float minU = u - hw;
        const Float maxU = u + hw;
        const Float minV = v - hh;
        const Float maxV = v + hh;
        const Float area = (maxU - minU) * (maxV - minV);
        const Float cu = Min(maxU, 0.5) - Max(minU, 0.0);
        const Float cv = Min(maxV, 0.5) - Max(minV, 0.0);
        Float f = area;
        if (maxU > 0.5)
            f -= (maxU - 0.5) * cv;
        if (minU < 0.0)
            f += cv * minU;
        if (maxV > 0.5)
            f -= (maxV - 0.5) * cu;
        if (minV < 0.0)
            f += cu * minV;
        f /= area == 0.0 ? 1.0 : area;
        if (secondU == secondV)
            f = 1.0 - f;
        return f <= 0.0 ? color1 : f >= 1.0 ? color2 : Mix(color1, color2, f);
    }
};

struct Graded
{
    Board board;
    Float gain = std::exp2(0.5);

    ColorA operator()(const ShadingContext& context) const
    {
        const ColorA x = board(context);
        const auto channel = [this](Float c) {
            // The mask's own arithmetic changes the last bit.
            const Float crisp = (Max((c - 0.5) * (0.2 + 1.0) + 0.5, 0.0) - c) * 1.0 + c;
            const Float lit = std::pow(Max(gain * crisp + 0.01, 0.0), 1.0 / 2.2);
            return (lit - crisp) * 1.0 + crisp;
        };
        return {channel(x.r), channel(x.g), channel(x.b), x.a};
    }
};

void PlacedCheckerboard(benchmark::State& state)
{
    MeasureAgainstHand(state, kPlaced, Board());
}
BENCHMARK(PlacedCheckerboard)->UseManualTime();

void PlacedCheckerboardContrastExposure(benchmark::State& state)
{
    MeasureAgainstHand(state, kGraded, Graded());
}
BENCHMARK(PlacedCheckerboardContrastExposure)->UseManualTime();

// A chain of inversions behind a colour that varies.
std::string InvertChain(int length)
{
    std::string nodes = R"("n0": {"type": "net.velto.pattern.corenode.generator.checkerboard",
        "inputs": {"color1": [0.1, 0.2, 0.3, 1], "color2": [0.7, 0.6, 0.5, 1]}})";
    for (int i = 1; i <= length; ++i)
        nodes += fmt::format(R"(, "n{}": {{"type": "net.velto.pattern.corenode.effect.invertcolor", "inputs":
            {{"color": {{"from": "n{}.result"}}, "maskblend": 1, "maskred": true, "maskgreen": true, "maskblue": true}}}})",
            i, i - 1);
    return fmt::format(R"({{"version": 1, "nodes": {{{}}}, "outputs": {{"color": "n{}.result"}}}})", nodes, length);
}

// What one more trivial node costs a sample, beyond its arithmetic.
void TrivialNode(benchmark::State& state)
{
    constexpr int kLength = 32;
    host::Graph graphs[2];
    std::unique_ptr<host::Instance> instances[2];
    for (int k = 0; k < 2; ++k)
    {
        LoadGraph(InvertChain(k * kLength), graphs[k]);
        instances[k] = MakeInstance(graphs[k]);
    }
    double seconds[2] = {};
    double handSeconds = 0.0;
    for (auto _ : state)
    {
        for (int k = 0; k < 2; ++k)
        {
            const Stopwatch watch;
            for (int i = 0; i < kSamples; ++i)
            {
                FillSample(instances[k]->Context(), i);
                if (instances[k]->Evaluate().IsError())
                    return state.SkipWithError("a sample failed");
            }
            seconds[k] += watch.Seconds();
        }
        const Stopwatch watch;
        ColorA x{0.1, 0.2, 0.3, 1.0};
        for (int i = 0; i < kSamples * kLength; ++i)
        {
            x = {(1.0 - x.r - x.r) * 1.0 + x.r, (1.0 - x.g - x.g) * 1.0 + x.g, (1.0 - x.b - x.b) * 1.0 + x.b, x.a};
            benchmark::DoNotOptimize(x);
        }
        handSeconds += watch.Seconds();
        state.SetIterationTime(seconds[1]);
    }
    const double nodes = static_cast<double>(state.iterations()) * kSamples * kLength;
    const double node = (seconds[1] - seconds[0]) / nodes * 1e9;
    const double hand = handSeconds / nodes * 1e9;
    state.counters["node_ns"] = node;
    state.counters["hand_ns"] = hand;
    state.counters["over_ns"] = node - hand;
}
BENCHMARK(TrivialNode)->UseManualTime()->Iterations(50);

// Samples a second of two threads against one.
void TwoThreads(benchmark::State& state)
{
    host::Graph graph;
    LoadGraph(kGraded, graph);
    std::unique_ptr<host::Instance> instances[2] = {MakeInstance(graph), MakeInstance(graph)};
    constexpr int kRounds = 100;
    const auto run = [&](host::Instance& instance) {
        for (int round = 0; round < kRounds; ++round)
        {
            for (int i = 0; i < kSamples; ++i)
            {
                FillSample(instance.Context(), i);
                instance.Evaluate().Ignore();
            }
        }
    };
    double one = 0.0;
    double two = 0.0;
    for (auto _ : state)
    {
        const Stopwatch oneWatch;
        run(*instances[0]);
        one += oneWatch.Seconds();
        const Stopwatch twoWatch;
        std::thread other(run, std::ref(*instances[1]));
        run(*instances[0]);
        other.join();
        two += twoWatch.Seconds();
        state.SetIterationTime(twoWatch.Seconds());
    }
    state.counters["speedup"] = 2.0 * one / two;
}
BENCHMARK(TwoThreads)->UseManualTime()->Iterations(10);

} // namespace

} // namespace velto::bench
