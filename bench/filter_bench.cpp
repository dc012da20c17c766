// What baking, blurring and looking up rasters costs, beside the plain copy and the plain sampling they are held
// against.
#include "module/source/pattern/2d/bakedimagedata.h"
#include "module/source/pattern/2d/boxblur.h"
#include "support/graph.h"

#include <fmt/format.h>
#include <tbb/task_arena.h>

using namespace velto;
using namespace velto::pattern::twod;

namespace
{

// An upstream of about the cost of a small generator, whose value is copied from a slot as graphs do it.
struct Waves : FunctionInterface
{
    Waves()
    {
        invoke = [](const FunctionInterface*, void* value, const ShadingContext* context, Data*) -> Result {
            const Vector& uvw = context->uvw;
            ColorA slot{std::sin(uvw.x * 40.0), std::cos(uvw.y * 50.0), uvw.x * uvw.y, 1.0};
            benchmark::DoNotOptimize(slot);
            std::memcpy(value, &slot, sizeof(slot));
            return {};
        };
    }
};

struct Fixture
{
    Waves waves;
    ColorAFunction function{Ref<const FunctionInterface>::Share(&waves)};
    SearchPathsType searchPaths;
    BakedImageData image;

    explicit Fixture(UInt32 edge) { PrecomputePortData(searchPaths, function, image, edge, edge).Ignore(); }
};

// The loops run on all threads of the job queue, or on one.
class Threads
{
public:
    explicit Threads(bool all) { g_enableParallelFor = all; }
    ~Threads() { g_enableParallelFor = true; }
};

void SetRates(benchmark::State& state, Int pixels)
{
    state.SetItemsProcessed(state.iterations() * pixels);
    state.SetBytesProcessed(state.iterations() * pixels * Int(sizeof(ColorA)) * 2); // read and written
}

void Copy(benchmark::State& state)
{
    Fixture fixture(2048);
    BaseArray<ColorA> target;
    target.CopyFrom(fixture.image.pixels).Ignore();
    for (auto _ : state)
    {
        std::memcpy(static_cast<void*>(target.Data()), fixture.image.pixels.Data(), target.Count() * sizeof(ColorA));
        benchmark::ClobberMemory();
    }
    SetRates(state, target.Count());
}
BENCHMARK(Copy)->Unit(benchmark::kMillisecond)->UseRealTime();

template <auto Pass>
void BoxPass(benchmark::State& state)
{
    Fixture fixture(2048);
    BaseArray<ColorA> target;
    target.CopyFrom(fixture.image.pixels).Ignore();
    const Threads threads(state.range(1) != 0);
    for (auto _ : state)
        Pass(fixture.image.pixels, target, 2048, static_cast<Int32>(state.range(0)));
    SetRates(state, target.Count());
}
BENCHMARK(BoxPass<BoxBlurH>)
    ->ArgNames({"radius", "parallel"})
    ->ArgsProduct({{0, 10, 100, 500}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BoxPass<BoxBlurT>)
    ->ArgNames({"radius", "parallel"})
    ->ArgsProduct({{0, 10, 100, 500}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// All stages on a raster that is there already; items a second is pixels a second.
void BlurStages(benchmark::State& state)
{
    const auto edge = static_cast<UInt32>(state.range(0));
    Fixture fixture(edge);
    const Threads threads(state.range(1) != 0);
    for (auto _ : state)
        BlurRaster(fixture.image.pixels, edge, 0.02).Ignore();
    SetRates(state, fixture.image.pixels.Count());
}
BENCHMARK(BlurStages)
    ->ArgNames({"edge", "parallel"})
    ->ArgsProduct({{1024, 2048}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// What the blur's pre node does, memory and all. The radius is in thousandths of the raster.
void BakedBlur(benchmark::State& state)
{
    Fixture fixture(1);
    const Threads threads(state.range(1) != 0);
    for (auto _ : state)
    {
        BakedImageData image;
        PrecomputePortData(fixture.searchPaths, fixture.function, image, 2048, 2048).Ignore();
        BlurRaster(image.pixels, 2048, static_cast<Float>(state.range(0)) * 0.001).Ignore();
        benchmark::DoNotOptimize(image.pixels.Data());
    }
    SetRates(state, 2048 * 2048);
}
BENCHMARK(BakedBlur)
    ->ArgNames({"radius", "parallel"})
    ->ArgsProduct({{0, 1, 10, 100, 500}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void Bake(benchmark::State& state)
{
    Fixture fixture(1);
    const Threads threads(false);
    for (auto _ : state)
        PrecomputePortData(fixture.searchPaths, fixture.function, fixture.image, 1024, 1024).Ignore();
    state.SetItemsProcessed(state.iterations() * 1024 * 1024);
}
BENCHMARK(Bake)->Unit(benchmark::kMillisecond);

// The same samples the way an image is baked: row by row, with nothing kept but the row.
void PlainSamples(benchmark::State& state)
{
    Fixture fixture(1);
    UInt32 edge = 1024;
    benchmark::DoNotOptimize(edge);
    BaseArray<ColorA> row;
    row.Resize(edge).Ignore();
    ShadingContext context;
    context.uvwValid = true;
    for (auto _ : state)
    {
        for (UInt32 y = 0; y < edge; ++y)
        {
            for (UInt32 x = 0; x < edge; ++x)
            {
                MoveTo(context, {(x + 0.5) / edge, (y + 0.5) / edge, 0.0});
                Sample(fixture.function, context, row[x]).Ignore();
            }
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(state.iterations() * edge * edge);
}
BENCHMARK(PlainSamples)->Unit(benchmark::kMillisecond);

// What a graph's setup takes to bake a raster against the same samples of what is upstream of it, on one thread, in
// nanoseconds a pixel of each, and their ratio. A raster that is new has its memory cleared by the system meanwhile;
// one that changes its shape alone keeps it.
void GraphBake(benchmark::State& state, std::string_view nodes)
{
    constexpr UInt32 kEdge = 1024;
    UInt32 edge = kEdge; // as little known to the compiler as a raster's
    benchmark::DoNotOptimize(edge);
    const bool isNew = state.range(0) != 0;
    host::Graph baking;
    bench::LoadGraph(fmt::format(R"({{"version": 1, "nodes": {{{},
        "pre": {{"type": "net.velto.pattern.corenode.2d.cachepre", "inputs": {{"color": {{"from": "pattern.result"}},
            "width": {}, "height": {}}}}}}}, "outputs": {{"raster": "pre.imageData"}}}})",
                         nodes, kEdge, kEdge),
        baking);
    host::Graph sampling;
    bench::LoadGraph(
        fmt::format(R"({{"version": 1, "nodes": {{{}}}, "outputs": {{"color": "pattern.result"}}}})", nodes), sampling);
    const std::unique_ptr<host::Instance> instance = bench::MakeInstance(sampling);
    ShadingContext& context = instance->Context();
    context.uvwValid = true;
    BaseArray<ColorA> row;
    row.Resize(kEdge).Ignore();
    tbb::task_arena oneThread(1);
    UInt32 width = kEdge;
    double bakeSeconds = 0.0;
    double sampleSeconds = 0.0;
    for (auto _ : state)
    {
        if (isNew)
        {
            baking.setup.reset();
            host::Setup::Create(baking.program, baking.setup).Ignore();
        }
        else
        {
            width = width == kEdge ? kEdge / 2 : kEdge;
            Data size;
            size.Set(width).Ignore();
            baking.setup->Set("pre.width", size).Ignore();
            size.Set(kEdge * kEdge / width).Ignore();
            baking.setup->Set("pre.height", size).Ignore();
        }
        const bench::Stopwatch bakeWatch;
        if (oneThread.execute([&] { return baking.setup->Run().IsError(); }))
            return state.SkipWithError("the bake failed");
        const double seconds = bakeWatch.Seconds();
        bakeSeconds += seconds;
        const bench::Stopwatch sampleWatch;
        for (UInt32 y = 0; y < edge; ++y)
        {
            for (UInt32 x = 0; x < edge; ++x)
            {
                MoveTo(context, {(x + 0.5) / edge, (y + 0.5) / edge, 0.0});
                if (instance->Evaluate().IsError())
                    return state.SkipWithError("a sample failed");
                row[x] = *static_cast<const ColorA*>(instance->Output(0));
            }
            benchmark::ClobberMemory();
        }
        sampleSeconds += sampleWatch.Seconds();
        state.SetIterationTime(seconds);
    }
    const double pixels = static_cast<double>(state.iterations()) * kEdge * kEdge;
    state.counters["bake_ns"] = bakeSeconds / pixels * 1e9;
    state.counters["sample_ns"] = sampleSeconds / pixels * 1e9;
    state.counters["ratio"] = bakeSeconds / sampleSeconds;
}

void BakeCheckerboard(benchmark::State& state)
{
    GraphBake(state, R"("pattern": {"type": "net.velto.pattern.corenode.generator.checkerboard",
        "inputs": {"color1": [0.8, 0.68, 0.5, 1], "color2": [0.05, 0.2, 0.3, 1]}})");
}
BENCHMARK(BakeCheckerboard)->ArgName("new")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);

void BakePlacedNoise(benchmark::State& state)
{
    GraphBake(state, R"("place": {"type": "placement2d", "inputs": {"localRepetitions": [5, 5], "localRotation": 0.3}},
        "pattern": {"type": "noise", "inputs": {"contextLocal": {"from": "place.result"}}})");
}
BENCHMARK(BakePlacedNoise)->ArgName("new")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond);

// Places in the order of an image's samples, the raster a little finer than the image.
template <auto LookUp>
void LookUpRaster(benchmark::State& state)
{
    const Fixture fixture(1024);
    Float u = 0.0;
    Float v = 0.0;
    for (auto _ : state)
    {
        u += 1.0 / 1000.0;
        v += 1.0 / 1000000.0;
        const ColorA color =
            LookUp(fixture.image, Fraction(static_cast<Float32>(u)), Fraction(static_cast<Float32>(v)));
        benchmark::DoNotOptimize(color);
    }
}
BENCHMARK(LookUpRaster<LookUpNearest>);
BENCHMARK(LookUpRaster<LookUpLinear>);

} // namespace
