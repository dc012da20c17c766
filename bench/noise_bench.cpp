// Noise and Voronoi queries beside plain scalar code of the same functions, and generators beside the same formulas in
// a loop by hand.
#include "support/graph.h"

#include "host/noise/noise.h"
#include "host/noise/rendernoise.h"
#include "velto/random.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace velto::bench
{

namespace
{

// --- Plain scalar code, in 64 bits ---

double Fade(double t)
{
    return t * t * t * (t * (t * 6.0 - 15.0) + 10.0);
}

UInt32 LatticeHash(Int x, Int y, Int z, UInt32 seed)
{
    UInt32 h = (static_cast<UInt32>(x) * 501125321u + static_cast<UInt32>(y) * 1136930381u +
                   static_cast<UInt32>(z) * 1720413743u) ^
               seed;
    return (h ^ (h >> 15)) * 668265261u;
}

double GradientDot(UInt32 h, double x, double y, double z)
{
    static constexpr double kEdges[16][3] = {{1, 1, 0}, {-1, 1, 0}, {1, -1, 0}, {-1, -1, 0}, {1, 0, 1}, {-1, 0, 1},
        {1, 0, -1}, {-1, 0, -1}, {0, 1, 1}, {0, -1, 1}, {0, 1, -1}, {0, -1, -1}, {1, 1, 0}, {-1, 1, 0}, {0, -1, 1},
        {0, -1, -1}};
    const double* const g = kEdges[h >> 28];
    return g[0] * x + g[1] * y + g[2] * z;
}

double ScalarGradient(double x, double y, double z, UInt32 seed)
{
    const double fx = std::floor(x);
    const double fy = std::floor(y);
    const double fz = std::floor(z);
    const Int ix = static_cast<Int>(fx);
    const Int iy = static_cast<Int>(fy);
    const Int iz = static_cast<Int>(fz);
    x -= fx;
    y -= fy;
    z -= fz;
    const auto corner = [&](int dx, int dy, int dz) {
        return GradientDot(LatticeHash(ix + dx, iy + dy, iz + dz, seed), x - dx, y - dy, z - dz);
    };
    const auto lerp = [](double t, double a, double b) { return a + t * (b - a); };
    const double u = Fade(x);
    const double v = Fade(y);
    const double w = Fade(z);
    return lerp(u, lerp(v, lerp(w, corner(0, 0, 0), corner(0, 0, 1)), lerp(w, corner(0, 1, 0), corner(0, 1, 1))),
        lerp(v, lerp(w, corner(1, 0, 0), corner(1, 0, 1)), lerp(w, corner(1, 1, 0), corner(1, 1, 1))));
}

double ScalarFbm(double x, double y, double z, int octaves)
{
    double sum = 0.0;
    double squares = 0.0;
    double amplitude = 1.0;
    double frequency = 1.0;
    for (int i = 0; i < octaves; ++i)
    {
        sum += amplitude *
               ScalarGradient(x * frequency + 0.3, y * frequency + 0.6, z * frequency + 0.9, static_cast<UInt32>(i));
        squares += amplitude * amplitude;
        amplitude *= 0.5;
        frequency *= 2.0;
    }
    return sum / std::sqrt(squares);
}

// All 27 cells, with a distance each.
double ScalarVoronoi(double x, double y, double z, UInt32 seed, double& second, Int32& id)
{
    const Int ix = static_cast<Int>(std::floor(x));
    const Int iy = static_cast<Int>(std::floor(y));
    const Int iz = static_cast<Int>(std::floor(z));
    double f1 = 1e30;
    double f2 = 1e30;
    for (Int cz = iz - 1; cz <= iz + 1; ++cz)
    {
        for (Int cy = iy - 1; cy <= iy + 1; ++cy)
        {
            for (Int cx = ix - 1; cx <= ix + 1; ++cx)
            {
                UInt32 h = LatticeHash(cx, cy, cz, seed);
                h ^= h >> 13;
                const UInt32 more = h * 2654435769u;
                const double dx = static_cast<double>(cx) + (h >> 16) * 0x1p-16 - x;
                const double dy = static_cast<double>(cy) + (more >> 16) * 0x1p-16 - y;
                const double dz = static_cast<double>(cz) + ((more << 8) >> 16) * 0x1p-16 - z;
                const double d = std::sqrt(dx * dx + dy * dy + dz * dz);
                if (d < f1)
                {
                    f2 = f1;
                    f1 = d;
                    id = static_cast<Int32>(h);
                }
                else if (d < f2)
                    f2 = d;
            }
        }
    }
    second = f2;
    return f1;
}

// --- Side by side ---

constexpr int kCalls = 4096;

template <class Fast, class Plain>
void Compare(benchmark::State& state, Fast fast, Plain plain)
{
    double fastSeconds = 0.0;
    double plainSeconds = 0.0;
    const auto run = [](auto& function) {
        const Stopwatch watch;
        for (int i = 0; i < kCalls; ++i)
        {
            auto value = function(i * 0.0173, i * 0.0031 + 2.0, i * 0.0007 - 1.0);
            benchmark::DoNotOptimize(value);
        }
        return watch.Seconds();
    };
    for (auto _ : state)
    {
        const double seconds = run(fast);
        plainSeconds += run(plain);
        fastSeconds += seconds;
        state.SetIterationTime(seconds);
    }
    const double calls = static_cast<double>(state.iterations()) * kCalls;
    state.counters["ns"] = fastSeconds / calls * 1e9;
    state.counters["plain_ns"] = plainSeconds / calls * 1e9;
    state.counters["ratio"] = fastSeconds / plainSeconds;
}

const host::NoiseClass& ClassOf(std::string_view name)
{
    const auto classes = host::NoiseClasses();
    return *std::find_if(
        classes.begin(), classes.end(), [name](const host::NoiseClass& noiseClass) { return noiseClass.name == name; });
}

void Fbm(benchmark::State& state, const host::NoiseKernels* kernels, int octaves, float time)
{
    const Ref<RenderNoiseInterface> noise = host::MakeNoise(ClassOf("fbm"), *kernels);
    Compare(
        state,
        [&](double x, double y, double z) {
            return noise->noise(noise.Get(), static_cast<float>(x), static_cast<float>(y), static_cast<float>(z), time,
                static_cast<float>(octaves), false, 0.0f);
        },
        [octaves](double x, double y, double z) { return ScalarFbm(x, y, z, octaves); });
}

void Perlin(benchmark::State& state, const host::NoiseKernels* kernels)
{
    const Ref<RenderNoiseInterface> noise = host::MakeNoise(ClassOf("perlin"), *kernels);
    Compare(
        state,
        [&](double x, double y, double z) {
            return noise->noise(noise.Get(), static_cast<float>(x), static_cast<float>(y), static_cast<float>(z), 0.0f,
                1.0f, false, 0.0f);
        },
        [](double x, double y, double z) { return ScalarFbm(x, y, z, 1); });
}

void Voronoi(benchmark::State& state, const host::NoiseKernels* kernels)
{
    Compare(
        state,
        [kernels](double x, double y, double z) {
            host::NearestPoints nearest;
            kernels->nearest3d(7, {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z), 0.0f}, nearest);
            return nearest;
        },
        [](double x, double y, double z) {
            struct
            {
                double f1;
                double f2;
                Int32 id;
            } nearest{};
            nearest.f1 = ScalarVoronoi(x, y, z, 7, nearest.f2, nearest.id);
            return nearest;
        });
}

const bool kernelsAreMeasured = [] {
    for (const host::NoiseKernels* const kernels : host::AllNoiseKernels())
    {
        const std::string set(kernels->name);
        const auto add = [&](const std::string& name, auto function) {
            benchmark::RegisterBenchmark((name + "/" + set).c_str(), function)->UseManualTime();
        };
        add("Fbm8", [kernels](benchmark::State& state) { Fbm(state, kernels, 8, 0.0f); });
        add("Fbm8Animated", [kernels](benchmark::State& state) { Fbm(state, kernels, 8, 1.7f); });
        add("Perlin1", [kernels](benchmark::State& state) { Perlin(state, kernels); });
        add("Voronoi", [kernels](benchmark::State& state) { Voronoi(state, kernels); });
    }
    for (const host::NoiseClass& noiseClass : host::NoiseClasses())
    {
        const std::string name = "NoiseClass/" + std::string(noiseClass.name);
        benchmark::RegisterBenchmark(name.c_str(), [&noiseClass](benchmark::State& state) {
            const Ref<RenderNoiseInterface> noise = host::MakeNoise(noiseClass, host::BestNoiseKernels());
            float x = 0.0f;
            for (auto _ : state)
            {
                x += 0.0173f;
                float value = noise->noise(noise.Get(), x, 0.4f * x, 0.3f, 0.0f, 5.0f, false, 0.01f);
                benchmark::DoNotOptimize(value);
            }
        });
    }
    return true;
}();

// --- Generators in graphs ---

// The parameters are numbers of a program's user, as they are for the node.
struct HandGrid
{
    ColorA line{0.1, 0.1, 0.2, 1};
    ColorA fill{0.9, 0.8, 0.7, 1};
    Vector thickness{0.1, 0.2, 0.1};
    Vector frequency{60, 70, 1};
    Float softness = 0.05;

    HandGrid() { benchmark::DoNotOptimize(*this); }

    Float Mask(Float p, Float lineThickness) const
    {
        const Float d = std::abs(2.0 * (p - std::floor(p)) - 1.0);
        const Float inner = lineThickness - softness;
        if (inner >= d)
            return 0.0;
        const Float ramp = lineThickness - inner;
        if (ramp == 0.0 || d >= lineThickness)
            return 1.0;
        const Float t = (d - inner) / ramp;
        return t * t * (3.0 - 2.0 * t);
    }

    ColorA operator()(const ShadingContext& context) const
    {
        const Vector& p = context.uvw;
        Int index = static_cast<Int>(std::floor(p.x * frequency.x) * frequency.y + std::floor(p.y * frequency.y));
        benchmark::DoNotOptimize(index);
        const Float m = Min(Min(Mask(p.x * frequency.x + 0.5, thickness.x), Mask(p.y * frequency.y + 0.5, thickness.y)),
            Mask(p.z * frequency.z, thickness.z));
        return Mix(line, fill, m);
    }
};

void Grid(benchmark::State& state)
{
    MeasureAgainstHand(state, R"({"version": 1, "nodes": {"grid": {"type": "net.velto.pattern.corenode.generator.grid",
        "inputs": {"line": [0.1, 0.1, 0.2, 1], "fill": [0.9, 0.8, 0.7, 1], "thickness": [0.1, 0.2, 0.1],
            "softness": 0.05, "frequency": [60, 70, 1]}}}, "outputs": {"color": "grid.result"}})",
        HandGrid());
}
BENCHMARK(Grid)->UseManualTime();

// The samples lie on the soft edges of the shapes.
struct HandShape
{
    ColorA fill{0.9, 0.8, 0.7, 1};
    ColorA exterior{0.1, 0.1, 0.2, 1};

    static Float Step(Float f, Float from, Float to)
    {
        if (from >= f)
            return 0.0;
        const Float width = to - from;
        if (width == 0.0 || f >= to)
            return 1.0;
        const Float t = (f - from) / width;
        return t * t * (3.0 - (t + t));
    }
};

struct HandCircle : HandShape
{
    Float scale = 1.35;
    Float innerSoftness = 0.5;
    Float outerSoftness = 0.5;

    HandCircle() { benchmark::DoNotOptimize(*this); }

    ColorA operator()(const ShadingContext& context) const
    {
        const Float s = (1.0 / Max(scale, 1e-6)) * 2.0;
        const Float x = (context.uvw.x - 0.5) * s;
        const Float y = (context.uvw.y - 0.5) * s;
        const Float d = std::sqrt(x * x + y * y);
        return Mix(fill, exterior, Step(d - 0.5, 0.5 - innerSoftness, outerSoftness + 0.5));
    }
};

void Circle(benchmark::State& state)
{
    MeasureAgainstHand(state, R"({"version": 1, "nodes": {"circle": {"type": "net.velto.pattern.corenode.shape.circle",
        "inputs": {"exterior": [0.1, 0.1, 0.2, 1], "fill": [0.9, 0.8, 0.7, 1], "scale": 1.35, "innersoftness": 0.5,
            "outersoftness": 0.5}}}, "outputs": {"color": "circle.result"}})",
        HandCircle());
}
BENCHMARK(Circle)->UseManualTime();

struct HandLine : HandShape
{
    Vector2d source{0.01, 0.0};
    Vector2d destination{0.06, 0.05};
    Float softness = 0.9;
    Float width = 0.05;

    HandLine() { benchmark::DoNotOptimize(*this); }

    ColorA operator()(const ShadingContext& context) const
    {
        const Vector2d a{context.uvw.x - source.x, context.uvw.y - source.y};
        const Vector2d b{destination.x - source.x, destination.y - source.y};
        const Float h = Clamp01((a.x * b.x + a.y * b.y) / (b.x * b.x + b.y * b.y));
        const Float x = a.x - b.x * h;
        const Float y = a.y - b.y * h;
        const Float s = Step(std::sqrt(x * x + y * y), 0.0, width);
        return Mix(fill, exterior, Step(s, width * 0.5, width * 0.5 + softness * 0.5));
    }
};

void Line(benchmark::State& state)
{
    MeasureAgainstHand(state, R"({"version": 1, "nodes": {"line": {"type": "net.velto.pattern.corenode.shape.line",
        "inputs": {"exterior": [0.1, 0.1, 0.2, 1], "fill": [0.9, 0.8, 0.7, 1], "source": [0.01, 0],
            "destination": [0.06, 0.05], "softness": 0.9, "width": 0.05}}}, "outputs": {"color": "line.result"}})",
        HandLine());
}
BENCHMARK(Line)->UseManualTime();

struct HandStar : HandShape
{
    Float scale = 1.2;
    Int spikes = 5;
    Float cutout = 0.8;
    Float innerSoftness = 0.5;
    Float outerSoftness = 0.5;

    HandStar() { benchmark::DoNotOptimize(*this); }

    ColorA operator()(const ShadingContext& context) const
    {
        const Float s = 2.0 / Max(scale, 1e-6);
        const Float x = ((context.uvw.x - 0.5) * s) * 2.0;
        const Float y = ((context.uvw.y - 0.5) * s) * 2.0;
        const Float sector = 6.283185307179586 / static_cast<Float>(spikes);
        const Float turn = std::atan2(x, y) / sector - 0.5;
        const Float e = std::abs(turn - std::floor(turn) - 0.5) * sector;
        const Float r = std::sqrt(x * x + y * y);
        const Float p = r * std::sin(e);
        const Float q = r * std::cos(e) - 0.5;
        const Float tilt = 0.5 * sector + (3.141592653589793 / static_cast<Float>(spikes)) * cutout;
        const Float d = std::cos(tilt) * q + std::sin(tilt) * p;
        return Mix(fill, exterior, Step(d - 0.5, 0.5 - innerSoftness, outerSoftness + 0.5));
    }
};

void Star(benchmark::State& state)
{
    MeasureAgainstHand(state, R"({"version": 1, "nodes": {"star": {"type": "net.velto.pattern.corenode.shape.star",
        "inputs": {"exterior": [0.1, 0.1, 0.2, 1], "fill": [0.9, 0.8, 0.7, 1], "scale": 1.2, "spikes": 5,
            "innersoftness": 0.5, "outersoftness": 0.5, "cutout": 0.8}}}, "outputs": {"color": "star.result"}})",
        HandStar());
}
BENCHMARK(Star)->UseManualTime();

struct HandScratches
{
    Int seed = 3;
    Float bend = 0.3;
    Float scale = 12.0;
    Int layers = 4;
    Float density = 0.7;
    Float frequencyStep = 0.6;
    Float rotation = 1.0;
    Float gamma = 2.0;
    Float thickness = 3.0;
    Float depth = 0.8;

    HandScratches() { benchmark::DoNotOptimize(*this); }

    ColorA operator()(const ShadingContext& context) const
    {
        const Float c = Max(scale * 0.01, 1e-7);
        const Float u = context.uvw.x * (1.0 / c);
        const Float v = context.uvw.y * (1.0 / c);
        const Float step = frequencyStep > 0.0 ? 1.0 / frequencyStep : 0.0;
        Float frequency = 1.0;
        Float a = 0.0;
        for (Int layer = 1; layer <= layers; ++layer)
        {
            const Float x = u * frequency;
            const Float y = v * frequency;
            const Int ix = static_cast<Int32>(std::floor(x / c) * c);
            const Int iy = static_cast<Int32>(std::floor(y / c) * c);
            const Int n =
                ix + iy + (ix + 321 * layer) * (iy + 123 * layer) + (ix ^ iy) + (ix | iy) + seed - 12345 + layer;
            RandomStream stream(IntegerHash32(static_cast<UInt32>(n)));
            Float m = 1.0;
            if (stream.Next01() <= density)
            {
                const Float p = x - std::floor(x);
                const Float r = y - std::floor(y);
                const Float b = (2.0 * stream.Next01() - 1.0) * 6.283185307179586 * rotation;
                const Float sine = std::sin(b);
                const Float cosine = std::cos(b);
                const Float shift = 2.0 * stream.Next01() - 1.0;
                const Float across = p * cosine - r * sine + shift;
                const Float along = p * sine + r * cosine + shift;
                const Float wave = std::sin(3.141592653589793 * along) * (bend * stream.Next01());
                const Float width = stream.Next01() * thickness * 0.05;
                const Float inside = width - std::abs(across - 0.5 + wave + wave);
                if (inside > 0.0)
                    m = Clamp01((std::pow(along, gamma) * along * (1.0 - inside) - 1.0) * depth + 1.0);
            }
            frequency *= step;
            a += Max(a, 1.0 - m);
        }
        const Float value = Clamp01(1.0 - a);
        return {value, value, value, 1.0};
    }
};

// The conversion to a colour is the graph's own.
void Scratches(benchmark::State& state)
{
    MeasureAgainstHand(state, R"({"version": 1, "nodes": {
        "s": {"type": "net.velto.pattern.corenode.generator.scratches", "inputs": {"seed": 3, "bend": 0.3, "scale": 12,
            "layers": 4, "density": 0.7, "frequencystep": 0.6, "rotation": 1, "gamma": 2, "thickness": 3, "depth": 0.8}},
        "c": {"type": "net.velto.pattern.corenode.effect.invertcolor", "inputs": {"color": {"from": "s.result"},
            "maskblend": 0, "maskred": true, "maskgreen": true, "maskblue": true, "maskalpha": false}}},
        "outputs": {"color": "c.result"}})",
        HandScratches());
}
BENCHMARK(Scratches)->UseManualTime();

// Time of a whole graph alone.
void MeasureGraph(benchmark::State& state, const std::string& document)
{
    host::Graph graph;
    LoadGraph(document, graph);
    const std::unique_ptr<host::Instance> instance = MakeInstance(graph);
    double total = 0.0;
    for (auto _ : state)
    {
        const Stopwatch watch;
        for (int i = 0; i < kSamples; ++i)
        {
            FillSample(instance->Context(), i);
            if (instance->Evaluate().IsError())
                return state.SkipWithError("a sample failed");
        }
        const double seconds = watch.Seconds();
        state.SetIterationTime(seconds);
        total += seconds;
    }
    state.counters["module_ns"] = total / (static_cast<double>(state.iterations()) * kSamples) * 1e9;
}

void Cells1000(benchmark::State& state, const std::string& mode, const std::string& exponent)
{
    MeasureGraph(state, R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.2d.pointgenerator", "inputs": {"points": 1000, "seed": 5, "strategy": "1"}},
        "cells": {"type": "net.velto.pattern.corenode.generator.cells", "inputs": {
            "pointDistribution": {"from": "pre.pointDistribution"}, "distanceMode": ")" +
                            mode + R"(", "exponent": )" + exponent + R"(}}}, "outputs": {"color": "cells.distance"}})");
}
BENCHMARK_CAPTURE(Cells1000, euclidean, "0", "1")->UseManualTime();
BENCHMARK_CAPTURE(Cells1000, power, "1", "0.37")->UseManualTime();
BENCHMARK_CAPTURE(Cells1000, minkowski, "6", "1.7")->UseManualTime();
BENCHMARK_CAPTURE(Cells1000, farthest, "1", "-0.5")->UseManualTime();

// Veins in stone: what a colour graph of a material looks like.
void Marble(benchmark::State& state)
{
    MeasureGraph(state, R"({"version": 1, "nodes": {
        "place": {"type": "net.velto.render.corenode.placement2d", "inputs": {"localLength": [1, 1], "localPivot": [0, 0],
            "localRotation": 0.3, "localRepetitions": [0.5, 0.5], "localModeU": "repeat", "localModeV": "repeat"}},
        "veins": {"type": "noise", "inputs": {"contextLocal": {"from": "place.result"}, "octaves": 8,
            "noiseType": "net.velto.render.rendernoiseclass.fbm", "absolute": true, "animationSpeed": 0}},
        "ramp": {"type": "gradient", "inputs": {"input": {"from": "veins.result"}, "gradient": [
            {"position": 0, "color": [0.1, 0.1, 0.15, 1]}, {"position": 0.1, "color": [0.5, 0.5, 0.55, 1]},
            {"position": 0.4, "color": [0.85, 0.84, 0.8, 1]}, {"position": 1, "color": [1, 1, 1, 1]}]}},
        "crisp": {"type": "net.velto.pattern.corenode.effect.contrast", "inputs": {"color": {"from": "ramp.result"},
            "contrast": 0.2, "maskblend": 1, "maskred": true, "maskgreen": true, "maskblue": true}},
        "lit": {"type": "net.velto.pattern.corenode.effect.exposure", "inputs": {"color": {"from": "crisp.result"},
            "exposure": 0.2, "offset": 0.01, "gamma": 2.2, "maskblend": 1, "maskred": true, "maskgreen": true,
            "maskblue": true}}},
        "outputs": {"color": "lit.result"}})");
}
BENCHMARK(Marble)->UseManualTime();

} // namespace

} // namespace velto::bench
