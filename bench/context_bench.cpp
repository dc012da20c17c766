// What context and shading nodes cost beside their bare formulas, the copy of the context included.
#include "bench/support/graph.h"

#include <fmt/format.h>

#include <cmath>

namespace velto::bench
{

namespace
{

// Runs a document; reports nanoseconds a sample.
void Measure(benchmark::State& state, const std::string& document)
{
    host::Graph graph;
    LoadGraph(document, graph);
    const std::unique_ptr<host::Instance> instance = MakeInstance(graph);
    ShadingContext& context = instance->Context();
    context.shadingNormal = {0.0, 0.0, 1.0};
    context.geometricNormal = {0.0, 0.0, 1.0};
    context.rayDirection = {0.6, 0.0, -0.8};
    context.tangent = {1.0, 0.0, 0.0};
    context.bitangent = {0.0, 1.0, 0.0};
    for (auto _ : state)
    {
        for (int i = 0; i < kSamples; ++i)
        {
            FillSample(context, i);
            if (instance->Evaluate().IsError())
                return state.SkipWithError("a sample failed");
            benchmark::DoNotOptimize(instance->Output(0));
        }
    }
    state.SetItemsProcessed(state.iterations() * kSamples);
    state.counters["ns"] = benchmark::Counter(static_cast<double>(state.iterations()) * kSamples * 1e-9,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

std::string OneNode(std::string_view type, std::string_view inputs, std::string_view output = "result")
{
    return fmt::format(R"({{"version": 1, "nodes": {{"node": {{"type": "{}", "inputs": {{{}}}}}}},
        "outputs": {{"out": "node.{}"}}}})",
        type, inputs, output);
}

// Runs a context node and the least that it can cost in turn: `hand` makes the new context of the old one. Of both the
// nanoseconds a sample, how they compare, and what the node takes over.
template <class Hand>
void MeasureBeside(benchmark::State& state, const std::string& document, Hand hand)
{
    host::Graph graph;
    LoadGraph(document, graph);
    const std::unique_ptr<host::Instance> instance = MakeInstance(graph);
    ShadingContext from;
    ShadingContext to;
    double moduleSeconds = 0.0;
    double handSeconds = 0.0;
    for (auto _ : state)
    {
        const Stopwatch moduleWatch;
        for (int i = 0; i < kSamples; ++i)
        {
            FillSample(instance->Context(), i);
            if (instance->Evaluate().IsError())
                return state.SkipWithError("a sample failed");
            benchmark::DoNotOptimize(instance->Output(0));
        }
        const double seconds = moduleWatch.Seconds();
        const Stopwatch handWatch;
        for (int i = 0; i < kSamples; ++i)
        {
            FillSample(from, i);
            benchmark::DoNotOptimize(from);
            hand(from, to);
            benchmark::DoNotOptimize(to);
        }
        handSeconds += handWatch.Seconds();
        moduleSeconds += seconds;
        state.SetIterationTime(seconds);
    }
    ReportBoth(state, moduleSeconds, handSeconds);
    state.counters["over_ns"] = state.counters["module_ns"] - state.counters["hand_ns"];
}

#define CONTEXT_NODE(name, ...)                                                                                        \
    void name(benchmark::State& state)                                                                                 \
    {                                                                                                                  \
        MeasureBeside(state, OneNode(__VA_ARGS__),                                                                     \
            [](const ShadingContext& from, ShadingContext& to) { CopyContext(to, from); });                            \
    }                                                                                                                  \
    BENCHMARK(name)->UseManualTime()

CONTEXT_NODE(Placement3d, "placement3d", R"("spacePosition": [1, 2, 3], "spaceRotation": [0.1, 0.2, 0.3])");
CONTEXT_NODE(SetShadingContext, "setshadingcontext", R"("uvw": [0.1, 0.2, 0], "shadingnormal": [0, 0.6, 0.8])");
CONTEXT_NODE(Distort, "distorter", R"("color": [0.1, 0.2, 0.3], "strength": 0.5)");

// Its formula for the centre and both neighbours, and the copy.
struct RadialReprojection
{
    double rotation = 0.3;
    double corners = 5.0;
    double repetitions = 3.0;

    void operator()(const ShadingContext& from, ShadingContext& to) const
    {
        constexpr double kTwoPi = 6.283185307179586;
        CopyContext(to, from);
        const double c = std::cos(-rotation);
        const double d = std::sin(-rotation);
        const double half = kTwoPi / (2.0 * corners);
        const auto fold = [&](const Vector& uvw, double& turn) {
            const double a = c * (uvw.x - 0.5) - d * (uvw.y - 0.5);
            const double b = d * (uvw.x - 0.5) + c * (uvw.y - 0.5);
            double angle = std::atan2(a, b);
            turn = (angle < 0.0 ? angle + kTwoPi : angle) * 0.15915494309189535;
            double f = turn * corners;
            f -= std::floor(f);
            f = f > 0.5 ? 1.0 - f : f;
            return 2.0 * std::sqrt(a * a + b * b) * std::cos((1.0 - 2.0 * f) * half) / std::cos(half) * repetitions;
        };
        double turn = 0.0;
        const double s = fold(from.uvw, turn);
        const double pass = std::floor(s);
        to.uvw = {s - pass, turn, 0.0};
        to.uvwPlusDeltaU.x = fold(from.uvwPlusDeltaU, turn) - pass;
        to.uvwPlusDeltaU.y = turn;
        to.uvwPlusDeltaV.x = fold(from.uvwPlusDeltaV, turn) - pass;
        to.uvwPlusDeltaV.y = turn;
    }
};

// Fixed inputs of their own: nothing but the sample's context varies.
void Reprojection(benchmark::State& state)
{
    RadialReprojection hand;
    benchmark::DoNotOptimize(hand);
    MeasureBeside(state,
        OneNode(
            "gradientplacement", R"("mode": "n_angle", "corners": 5, "tile": true, "repetitions": 3, "rotation": 0.3)"),
        hand);
}
BENCHMARK(Reprojection)->UseManualTime();

// A surface seen from ever flatter.
struct RayFiller
{
    void operator()(ShadingContext& context, int i) const
    {
        const Float slope = i * (1.0 / kSamples);
        context.rayDirection = {slope, 0.0, slope - 1.0};
        context.geometricNormal = context.shadingNormal = {0.0, 0.0, 1.0};
    }
};

Float CosineOfIncidence(const ShadingContext& context)
{
    const Vector& d = context.rayDirection;
    const Vector& n = context.shadingNormal;
    return static_cast<Float32>(-Dot(Dot(context.geometricNormal, d) > 0.0 ? -n : n, d));
}

void FresnelDielectric(benchmark::State& state)
{
    volatile Float given = 1.5;
    const Float ior = given;
    MeasureAgainstHand(
        state, OneNode("net.velto.pattern.node.effect.fresneldielectric", R"("ior": 1.5)"),
        [ior](const ShadingContext& context) {
            const Float c = Min(Max(CosineOfIncidence(context), -1.0), 1.0);
            const Float a = c > 0.0 ? 1.0 : ior;
            const Float b = c > 0.0 ? ior : 1.0;
            const Float t = (a / b) * std::sqrt(Max(1.0 - c * c, 0.0));
            if (t >= 1.0)
                return 1.0;
            const Float q = std::sqrt(Max(1.0 - t * t, 0.0));
            const Float m = std::abs(c);
            const Float parallel = (b * m - a * q) / (b * m + a * q);
            const Float perpendicular = (a * m - b * q) / (a * m + b * q);
            return 0.5 * (parallel * parallel + perpendicular * perpendicular);
        },
        RayFiller());
}
BENCHMARK(FresnelDielectric)->UseManualTime();

void FresnelConductor(benchmark::State& state)
{
    Vector ior{0.143, 0.375, 1.442};
    Vector absorption{3.983, 2.386, 1.603};
    benchmark::DoNotOptimize(ior);
    benchmark::DoNotOptimize(absorption);
    MeasureAgainstHand(
        state,
        OneNode("net.velto.pattern.node.effect.fresnelconductor",
            R"("ior": [0.143, 0.375, 1.442], "absorption": [3.983, 2.386, 1.603])"),
        [ior, absorption](const ShadingContext& context) {
            const Float c = CosineOfIncidence(context);
            const auto reflectance = [c](Float n, Float k) {
                const Float e = n * n + k * k;
                const Float f = 2.0 * n * c;
                const Float ec = e * (c * c);
                return 0.5 * ((e - f + c * c) / (e + f + c * c) + (ec - f + 1.0) / (ec + f + 1.0));
            };
            return ColorA{reflectance(ior.x, absorption.x), reflectance(ior.y, absorption.y),
                reflectance(ior.z, absorption.z), 1.0};
        },
        RayFiller());
}
BENCHMARK(FresnelConductor)->UseManualTime();

std::string Ramp(std::string_view more, std::string_view output)
{
    return fmt::format(R"({{"version": 1, "nodes": {{
        "tiles": {{"type": "checkerboard", "inputs": {{}}}}{}}}, "outputs": {{"out": "{}"}}}})",
        more, output);
}

void BumpHeightAlone(benchmark::State& state)
{
    Measure(state, Ramp("", "tiles.result"));
}
BENCHMARK(BumpHeightAlone);

void Bump(benchmark::State& state)
{
    Measure(state, Ramp(R"(, "bump": {"type": "bump", "inputs": {"color": {"from": "tiles.result"}}})", "bump.result"));
}
BENCHMARK(Bump);

std::string Scattered(Int count, bool removeOverlaps)
{
    return fmt::format(R"({{"version": 1, "nodes": {{"s": {{"type": "scatter", "arguments": {{"count": {}}},
        "inputs": {{"perItemScale": [0.03, 0.03], "perItemRandomScaleUniform": 0, "removeOverlaps": {}}}}}}},
        "outputs": {{"index": "s.index"}}}})",
        count, removeOverlaps);
}

void ScatterLookUp(benchmark::State& state)
{
    Measure(state, Scattered(state.range(0), false));
}
BENCHMARK(ScatterLookUp)->Arg(100)->Arg(1000);

// The first sample of an instance makes the items.
void ScatterBuild(benchmark::State& state)
{
    host::Graph graph;
    LoadGraph(Scattered(state.range(0), state.range(1) != 0), graph);
    for (auto _ : state)
    {
        const std::unique_ptr<host::Instance> instance = MakeInstance(graph);
        FillSample(instance->Context(), 0);
        if (instance->Evaluate().IsError())
            return state.SkipWithError("a sample failed");
    }
}
BENCHMARK(ScatterBuild)->Args({10000, 0})->Args({10000, 1})->Unit(benchmark::kMillisecond);

} // namespace

} // namespace velto::bench
