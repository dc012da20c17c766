#include "explain.h"

#include "demand.h"
#include "fusing.h"
#include "output.h"
#include "tiles.h"

#include "host/system/cores.h"
#include "host/system/guard.h"

#include <fmt/format.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <map>
#include <thread>

namespace velto::host
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr double kRasterSeconds = 0.15; // that small rasters may take
constexpr double kProbeSeconds = 0.2;   // of sampling as the bake does
constexpr double kTimedSeconds = 0.1;   // of sampling with a look at the clock after every call
constexpr double kStripSeconds = 0.05;  // of sampling what is encoded

// Of the calling thread: what others take of the machine does not count.
double ProcessorSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double MeasureClock()
{
    constexpr int kLooks = 2000;
    const Clock::time_point start = Clock::now();
    Clock::time_point last = start;
    for (int i = 0; i < kLooks; ++i)
        last = Clock::now();
    return std::chrono::duration<double>(last - start).count() / kLooks;
}

// Short blocks of rows, as far apart as the golden ratio of two dimensions sets them.
class Blocks
{
public:
    Blocks(const BakeWindow& window, int width, int height, UInt first) : window_(window), at_(first)
    {
        width_ = std::min(window.width, width);
        height_ = std::min(window.height, height);
    }

    Tile Next()
    {
        const auto along = [this](double step, int length, int side) {
            const double at = step * static_cast<double>(at_);
            return static_cast<int>((at - std::floor(at)) * (length - side + 1));
        };
        ++at_;
        return {window_.x + along(0.7548776662466927, window_.width, width_),
            window_.y + along(0.5698402909980532, window_.height, height_), width_, height_};
    }

    int Width() const { return width_; }
    int Height() const { return height_; }

private:
    BakeWindow window_;
    UInt at_;
    int width_;
    int height_;
};

// One thread's samples of a probe.
struct ProbeThread
{
    std::unique_ptr<TileSampler> sampler;
    std::vector<std::vector<float>> blocks; // by output
    std::vector<float*> to;
    Result result;
    double seconds = 0.0;
    double samples = 0.0;
};

class Explainer
{
public:
    Explainer(
        Graph& graph, const std::vector<BakeTarget>& targets, const BakeOptions& options, Explanation& explanation)
        : graph_(graph), targets_(targets), options_(options), explanation_(explanation), window_(options.window)
    {
        if (window_.width == 0)
            window_ = {0, 0, options.view.width, options.view.height};
        threads_ = std::max(std::min(options.threads > 0 ? options.threads : UsableCores(), UsableCores()), 1);
        for (const BakeTarget& target : targets)
            outputs_.push_back(target.output);
    }

    Result Run()
    {
        Diagnostics ignored;
        explanation_.pictures = LookForPictures(graph_, ignored);
        AddMemory();
        VELTO_TRY(ExplainSetup());
        VELTO_TRY(LookAtFirstSamples());
        VELTO_TRY(ExplainWriting());
        VELTO_TRY(ExplainSamples());
        VELTO_TRY(ExplainNodes());
        return {};
    }

private:
    double Pixels() const { return static_cast<double>(window_.width) * window_.height; }
    double SamplesOfPixel() const { return static_cast<double>(options_.view.supersample) * options_.view.supersample; }

    void AddMemory()
    {
        for (const MemoryDemand& demand : MemoryDemands(graph_, explanation_.pictures))
            explanation_.memory += demand.bytes;
        const int rows = std::min(BandRows(window_.width), window_.height);
        const double bands = rows < window_.height ? 2.0 : 1.0;
        for (const BakeTarget& target : targets_)
        {
            const double numbers =
                static_cast<double>(window_.width) * rows * ChannelsOf(graph_.program->outputs[target.output].type);
            // Bands of floats, and one of what stands in the file.
            const double bytes = target.pixels ? 0.0 : bands * sizeof(float) + 2.0;
            explanation_.memory += static_cast<UInt>(numbers * bytes);
        }
    }

    // Makes small rasters in the place of large ones, whose time grows with their pixels.
    Result ExplainSetup()
    {
        const std::vector<RasterDemand> whole = RasterDemands(graph_);
        UInt longest = 0;
        for (const RasterDemand& raster : whole)
            longest = std::max({longest, raster.width, raster.height});
        double first = 0.0;
        VELTO_TRY(RunSetup(whole, std::min(longest, kFirstSide), first)); // reads pictures as well
        if (longest <= kFirstSide)
        {
            explanation_.setupSeconds = first;
            explanation_.rasters = graph_.setup->Rasters();
            return {};
        }
        double again = 0.0;
        VELTO_TRY(RunSetup(whole, kFirstSide, again));
        const double longer = std::sqrt(kRasterSeconds / std::max(again, 1e-6)) * static_cast<double>(kFirstSide);
        double seconds = again;
        if (longer > static_cast<double>(kFirstSide))
            VELTO_TRY(RunSetup(whole, static_cast<UInt>(std::min(longer, static_cast<double>(longest))), seconds));
        explanation_.setupSeconds = std::max(first - again, 0.0) + ScaleRasters(whole, seconds);
        return {};
    }

    // On this thread alone.
    Result RunSetup(const std::vector<RasterDemand>& rasters, UInt side, double& seconds)
    {
        if (!rasters.empty())
        {
            VELTO_TRY(LimitRasters(graph_.document.graph, rasters, static_cast<UInt32>(side)));
            VELTO_TRY(Recompile(graph_));
        }
        Result ran;
        tbb::task_arena arena(1);
        arena.execute([&] {
            const double start = ProcessorSeconds();
            ran = graph_.setup->Update();
            seconds = ProcessorSeconds() - start;
        });
        return ran;
    }

    // Notes the rasters as the bake makes them, on all threads. Returns the time of the whole setup, of which the small
    // ones took `seconds`.
    double ScaleRasters(const std::vector<RasterDemand>& whole, double seconds)
    {
        explanation_.rasters = graph_.setup->Rasters();
        double clock = 0.0; // which rasters go by
        for (const SetupRaster& raster : explanation_.rasters)
            clock += raster.seconds;
        const double share = clock > seconds ? seconds / clock : 1.0;
        double sum = std::max(seconds - clock, 0.0);
        for (SetupRaster& raster : explanation_.rasters)
        {
            const auto demand = std::find_if(whole.begin(), whole.end(),
                [&](const RasterDemand& each) { return graph_.document.graph.nodes[each.node].name == raster.node; });
            double ratio = 1.0;
            if (demand != whole.end() && raster.width > 0 && raster.height > 0)
            {
                const UInt bytes = demand->width * demand->height * sizeof(ColorA);
                ratio =
                    static_cast<double>(bytes) / (static_cast<double>(raster.width) * raster.height * sizeof(ColorA));
                raster.bytes = bytes;
                raster.width = static_cast<UInt32>(demand->width);
                raster.height = static_cast<UInt32>(demand->height);
            }
            raster.seconds *= share * ratio / threads_;
            sum += raster.seconds;
        }
        return sum;
    }

    Result MakeSampler(ProbeThread& thread)
    {
        ShadingContext shared;
        shared.time.seconds = options_.seconds;
        shared.frameRate = options_.framesPerSecond;
        shared.searchPaths = graph_.searchPaths.get();
        shared.renderMessages = graph_.messages.get();
        for (const std::size_t output : outputs_)
            thread.blocks.emplace_back(static_cast<std::size_t>(kTileSide * kTileSide) *
                                       static_cast<std::size_t>(ChannelsOf(graph_.program->outputs[output].type)));
        for (std::vector<float>& block : thread.blocks)
            thread.to.push_back(block.data());
        return TileSampler::Create(*graph_.setup, shared, options_.view, outputs_, thread.sampler);
    }

    Result SampleTile(ProbeThread& thread, const Tile& tile, std::span<float* const> to)
    {
        TileFailure failure;
        const double start = ProcessorSeconds();
        Result sampled = thread.sampler->Sample(tile, to, static_cast<std::size_t>(tile.width), nullptr, failure);
        thread.seconds += ProcessorSeconds() - start;
        thread.samples += static_cast<double>(tile.width) * tile.height * SamplesOfPixel();
        if (sampled.IsOk() || !failure.node)
            return sampled;
        Id kind;
        if (Id::Create(sampled.Kind(), kind).IsError())
            return sampled;
        return MakeError(kind,
            fmt::format("nodes.{}: {} (at pixel {}, {})", *failure.node, sampled.Message(), failure.x, failure.y));
    }

    // What is made once, and pictures, are paid for by the first of these. The others tell how large blocks may be.
    Result LookAtFirstSamples()
    {
        for (int i = 0; i < threads_; ++i)
            VELTO_TRY(MakeSampler(probes_.emplace_back()));
        ProbeThread& probe = probes_.front();
        const Clock::time_point start = Clock::now();
        Blocks first(window_, 1, 1, 1);
        VELTO_TRY(SampleTile(probe, first.Next(), probe.to));
        const double once = SecondsSince(start);
        double each = 0.0;
        for (int side = 1; side <= kBlockRows && each < 0.01; side *= 4)
        {
            probe.seconds = probe.samples = 0.0;
            Blocks more(window_, side, side, 2);
            for (int i = 0; i < 4; ++i)
                VELTO_TRY(SampleTile(probe, more.Next(), probe.to));
            each = probe.seconds / 4.0;
            pixelSeconds_ = probe.seconds / probe.samples * SamplesOfPixel();
        }
        explanation_.setupSeconds += std::max(once - pixelSeconds_, 0.0);
        return {};
    }

    // Blocks that take about this time.
    Blocks BlocksFrom(UInt first, double seconds = 0.005) const
    {
        const double pixels = std::clamp(seconds / pixelSeconds_, 1.0, 1.0 * kTileSide * kBlockRows);
        const int width = std::min(static_cast<int>(pixels), kTileSide);
        return {window_, width, std::max(static_cast<int>(pixels) / width, 1), first};
    }

    // Encodes blocks of the picture, one below the other.
    Result ExplainWriting()
    {
        std::vector<BakeTarget> targets;
        for (const BakeTarget& target : targets_)
        {
            if (target.pixels)
                continue;
            targets.push_back(target);
            const std::filesystem::path file(target.file);
            const std::string name = fmt::format("velto-{}{}", target.output, file.extension().string());
            targets.back().file = (std::filesystem::temp_directory_path() / name).string();
        }
        if (targets.empty())
            return {};
        Blocks blocks = BlocksFrom(1000);
        const double blockSeconds = pixelSeconds_ * blocks.Width() * blocks.Height();
        const int count = std::clamp(static_cast<int>(kStripSeconds / blockSeconds), 1, 256 / blocks.Height());
        const int rows = count * blocks.Height();
        const BakeWindow strip{0, 0, blocks.Width(), rows};
        tbb::task_arena arena(1);
        Result written;
        arena.execute([&] { written = Guarded([&] { return WriteStrip(targets, blocks, strip); }); });
        return written;
    }

    Result WriteStrip(const std::vector<BakeTarget>& targets, Blocks& blocks, const BakeWindow& strip)
    {
        BakeOutputs outputs;
        VELTO_TRY(outputs.Open(graph_, targets, strip, strip.width, strip.height, options_.encoding, false));
        double start = ProcessorSeconds();
        outputs.Allocate(strip.height);
        double seconds = ProcessorSeconds() - start;
        ProbeThread& probe = probes_.front();
        for (int row = 0; row < strip.height; row += blocks.Height())
        {
            std::vector<float*> to;
            for (const BakeOutputs::Target& target : outputs.Targets())
                to.push_back(target.band + static_cast<std::ptrdiff_t>(row) * strip.width * target.channels);
            VELTO_TRY(SampleTile(probe, blocks.Next(), to));
        }
        start = ProcessorSeconds();
        Result written = outputs.Submit(strip.height);
        if (Result done = outputs.Wait(); written.IsOk())
            written = std::move(done);
        seconds += ProcessorSeconds() - start;
        explanation_.writeSeconds = seconds * Pixels() / (static_cast<double>(strip.width) * strip.height) / threads_;
        return written;
    }

    // All threads at once, as they share what processors share.
    Result Probe(double seconds, double& nanoseconds)
    {
        const auto run = [&](std::size_t i) {
            ProbeThread& probe = probes_[i];
            probe.seconds = probe.samples = 0.0;
            Blocks blocks = BlocksFrom(1'000'000 * (i + 1));
            const Clock::time_point start = Clock::now();
            while (probe.result.IsOk() && probe.seconds < seconds && SecondsSince(start) < 2.0 * seconds)
                probe.result = Guarded([&] { return SampleTile(probe, blocks.Next(), probe.to); });
        };
        {
            std::vector<std::jthread> others;
            for (std::size_t i = 1; i < probes_.size(); ++i)
                others.emplace_back(run, i);
            run(0);
        }
        double sum = 0.0;
        double samples = 0.0;
        for (ProbeThread& probe : probes_)
        {
            VELTO_TRY(probe.result);
            sum += probe.seconds;
            samples += probe.samples;
        }
        nanoseconds = 1e9 * sum / samples;
        return {};
    }

    Result ExplainSamples()
    {
        double nanoseconds = 0.0;
        VELTO_TRY(Probe(kProbeSeconds, nanoseconds));
        const double samples = Pixels() * SamplesOfPixel();
        explanation_.nanosecondsPerSample = nanoseconds;
        explanation_.sampleSeconds = 1e-9 * nanoseconds * samples / threads_;
        const bool fuses = options_.fusing == Fusing::First ||
                           (options_.fusing == Fusing::WhenItPays &&
                               FusingPays(graph_.setup->GetProgram(), explanation_.sampleSeconds * threads_));
        return fuses ? ExplainFused(samples) : Result();
    }

    // The bake goes on by calls while it compiles, on a thread more.
    Result ExplainFused(double samples)
    {
        FusingTask fusing;
        TileSampler& sampler = *probes_.front().sampler;
        const Clock::time_point start = Clock::now();
        fusing.Start(*graph_.setup, sampler.Start(), sampler.Shape({window_.x, window_.y, 1, 1}));
        fusing.Wait();
        const double compiling = SecondsSince(start);
        const std::shared_ptr<const SampleKernel> kernel = fusing.Kernel();
        if (!kernel)
            return {};
        for (const ProbeThread& probe : probes_)
            probe.sampler->UseKernel(kernel);
        const double byCalls = explanation_.nanosecondsPerSample;
        VELTO_TRY(Probe(kProbeSeconds, explanation_.nanosecondsPerSample));
        for (const ProbeThread& probe : probes_)
            probe.sampler->UseKernel(nullptr);
        explanation_.isFused = true;
        const double before =
            options_.fusing == Fusing::First ? 0.0 : std::min(1e9 * compiling * threads_ / byCalls, samples);
        explanation_.sampleSeconds =
            (compiling + 1e-9 * (before * byCalls + (samples - before) * explanation_.nanosecondsPerSample)) / threads_;
        return {};
    }

    // In small blocks, of which those count during which nothing else ran on this processor.
    Result TimeNodes(std::vector<double>& seconds)
    {
        ProbeThread& probe = probes_.front();
        NodeTimes times;
        seconds.assign(graph_.program->nodeNames.size(), 0.0);
        times.clockSeconds = MeasureClock();
        probe.sampler->TimeInto(&times);
        probe.seconds = probe.samples = 0.0;
        Blocks blocks = BlocksFrom(3'000'000, 0.0005);
        double counted = 0.0;
        for (const Clock::time_point begin = Clock::now();
             counted < kTimedSeconds && (counted == 0.0 || SecondsSince(begin) < 2.0 * kTimedSeconds);)
        {
            times.seconds.assign(seconds.size(), 0.0);
            const Clock::time_point start = Clock::now();
            const double before = probe.seconds;
            VELTO_TRY(SampleTile(probe, blocks.Next(), probe.to));
            const double own = probe.seconds - before;
            if (SecondsSince(start) > 1.1 * own + 20e-6 && SecondsSince(begin) < 2.0 * kTimedSeconds)
                continue;
            counted += own;
            for (std::size_t i = 0; i < seconds.size(); ++i)
                seconds[i] += times.seconds[i];
        }
        probe.sampler->TimeInto(nullptr);
        return {};
    }

    // Shares of the time of a sample, by calls that are timed one by one.
    Result ExplainNodes()
    {
        ProbeThread& probe = probes_.front();
        const EvaluationCounts before = probe.sampler->Counts();
        std::vector<double> times;
        VELTO_TRY(TimeNodes(times));
        double sum = 0.0;
        for (double& seconds : times)
            sum += seconds = std::max(seconds, 0.0);
        const double scale = sum > 0.0 ? explanation_.nanosecondsPerSample / sum : 0.0;

        const CoreGraph& core = graph_.document.graph;
        const std::vector<bool> isNeeded = NeededNodes(core);
        const Reached reached = Reach();
        const EvaluationCounts& after = probe.sampler->Counts();
        std::map<std::string_view, std::size_t> byName;
        for (std::size_t i = 0; i < graph_.document.nodeNames.size(); ++i)
        {
            explanation_.nodes.push_back({graph_.document.nodeNames[i], graph_.document.nodeTypes[i]});
            byName.emplace(graph_.document.nodeNames[i], i);
        }
        for (std::size_t i = 0; i < core.nodes.size(); ++i)
        {
            const std::string_view name = core.nodes[i].name;
            const auto found = byName.find(name.substr(0, name.find('/'))); // a document's nodes count as its own
            if (found == byName.end())
                continue;
            NodeCost& node = explanation_.nodes[found->second];
            const UInt evaluations = after[i] - before[i];
            node.evaluationsPerSample += static_cast<double>(evaluations) / probe.samples;
            node.nanoseconds += scale * times[i];
            // A node may have a function to ask that it never asks, as its raster was made of it.
            const bool isArea = reached.inSamples[i] && (evaluations > 0 || !reached.inSetup[i]);
            node.runs = std::max(node.runs, reached.everySample[i] ? NodeCost::Runs::Sample
                                            : isArea               ? NodeCost::Runs::Area
                                            : reached.inSetup[i]   ? NodeCost::Runs::Setup
                                            : isNeeded[i]          ? NodeCost::Runs::Folded
                                                                   : NodeCost::Runs::Never);
        }
        return {};
    }

    // Nodes by where their calls are.
    struct Reached
    {
        std::vector<bool> everySample;
        std::vector<bool> inSamples; // also in functions that others ask
        std::vector<bool> inSetup;
    };

    Reached Reach() const
    {
        const Program& program = *graph_.program;
        const auto mark = [&](const BodyPlan& body, std::vector<bool>& nodes) {
            for (const CallPlan& call : body.calls)
                nodes[call.node] = true;
        };
        const auto markAll = [&](const BodyPlan& first, std::vector<bool>& nodes) {
            std::vector<bool> seen(program.bodies.size(), false);
            std::vector<const BodyPlan*> open{&first};
            while (!open.empty())
            {
                const BodyPlan& body = *open.back();
                open.pop_back();
                mark(body, nodes);
                for (const FunctionPlan& function : body.functions)
                {
                    if (function.body < 0 || seen[static_cast<std::size_t>(function.body)])
                        continue;
                    seen[static_cast<std::size_t>(function.body)] = true;
                    open.push_back(&program.bodies[static_cast<std::size_t>(function.body)]);
                }
            }
        };
        const std::vector<bool> none(program.nodeNames.size(), false);
        Reached reached{none, none, none};
        mark(program.bodies[0], reached.everySample);
        markAll(program.bodies[0], reached.inSamples);
        markAll(program.setupBody, reached.inSetup);
        return reached;
    }

    static constexpr UInt kFirstSide = 16; // of a raster
    static constexpr int kBlockRows = 16;

    Graph& graph_;
    const std::vector<BakeTarget>& targets_;
    const BakeOptions& options_;
    Explanation& explanation_;
    BakeWindow window_;
    int threads_ = 1;
    std::vector<std::size_t> outputs_;
    std::vector<ProbeThread> probes_;
    double pixelSeconds_ = 0.0;
};

} // namespace

std::vector<const NodeCost*> Explanation::Costliest() const
{
    std::vector<const NodeCost*> costliest;
    for (const NodeCost& node : nodes)
    {
        if (node.nanoseconds > 0.0)
            costliest.push_back(&node);
    }
    std::stable_sort(costliest.begin(), costliest.end(),
        [](const NodeCost* a, const NodeCost* b) { return a->nanoseconds > b->nanoseconds; });
    costliest.resize(std::min<std::size_t>(costliest.size(), 3));
    return costliest;
}

Result Explain(
    Graph graph, const std::vector<BakeTarget>& targets, const BakeOptions& options, Explanation& explanation)
{
    return Guarded([&] { return Explainer(graph, targets, options, explanation).Run(); });
}

} // namespace velto::host
