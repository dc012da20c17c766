#include "bake.h"

#include "fusing.h"
#include "output.h"
#include "tiles.h"

#include "host/system/cores.h"
#include "host/system/guard.h"
#include "host/system/memory.h"
#include "host/system/message.h"

#include <fmt/format.h>
#include <tbb/blocked_range2d.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <time.h>

#include <chrono>
#include <cmath>
#include <thread>

namespace velto::host
{

namespace
{

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Of all threads of this process, whatever else the machine does.
double ProcessorSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// The first error of any thread.
class FirstError
{
public:
    void Take(Result error, const TileFailure& failure = {-1, -1, nullptr})
    {
        const std::lock_guard lock(mutex_);
        if (error_.IsOk())
        {
            error_ = std::move(error);
            failure_ = {failure.node ? *failure.node : std::string(), failure.x >= 0, failure.x, failure.y};
        }
        isSet_.store(true, std::memory_order_relaxed);
    }
    bool IsSet() const { return isSet_.load(std::memory_order_relaxed); }
    Result Get() { return error_; }
    const BakeFailure& Failure() const { return failure_; }

private:
    std::mutex mutex_;
    std::atomic<bool> isSet_ = false;
    Result error_;
    BakeFailure failure_;
};

class Baker
{
public:
    Baker(Graph& graph, const BakeOptions& options, BakeStatistics& statistics)
        : graph_(graph), options_(options), statistics_(statistics), window_(options.window)
    {
        if (window_.width == 0)
            window_ = {0, 0, options.view.width, options.view.height};
    }
    ~Baker()
    {
        graph_.setup->CountInto(nullptr);
        graph_.setup->SetProgress({});
        graph_.setup->SetStop(nullptr);
    }

    Result Run(const std::vector<BakeTarget>& targets)
    {
        VELTO_TRY(OpenOutputs(targets));
        // Without it more threads than cores are refused, with a warning on stderr.
        const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
            static_cast<std::size_t>(std::max(Threads(), tbb::info::default_concurrency())));
        tbb::task_arena arena(Threads());
        Result ran;
        arena.execute([&] {
            ran = Guarded([&] { return RunInArena(); });
            // In the arena, since only its threads may run the tasks that are waited for.
            if (Result written = outputs_.Wait(); ran.IsOk())
                ran = std::move(written);
        });
        VELTO_TRY(ran);
        return outputs_.Finish(statistics_.files);
    }

private:
    Result OpenOutputs(const std::vector<BakeTarget>& targets)
    {
        const bool isWindowInside = window_.x >= 0 && window_.y >= 0 && window_.width > 0 && window_.height > 0 &&
                                    window_.x + window_.width <= options_.view.width &&
                                    window_.y + window_.height <= options_.view.height;
        if (!isWindowInside)
            return MakeError(
                error::kIllegalArgument, fmt::format("the crop {},{},{}x{} is not inside {}x{}", window_.x, window_.y,
                                             window_.width, window_.height, options_.view.width, options_.view.height));
        return outputs_.Open(graph_, targets, window_, options_.view.width, options_.view.height, options_.encoding,
            options_.hashesPixels);
    }

    Result RunInArena()
    {
        const Clock::time_point start = Clock::now();
        const UInt refusals = MemoryRefusals();
        statistics_.evaluations.resize(graph_.program->nodeNames.size(), 0);
        graph_.setup->CountInto(&statistics_.evaluations);
        if (options_.progress)
            graph_.setup->SetProgress([this, start](const SetupRaster& raster) {
                options_.progress({0.0, 0, SecondsSince(start), &raster});
            });
        graph_.setup->SetStop(options_.stop);
        if (Result ran = graph_.setup->Update(); ran.IsError())
        {
            if (const std::string* const node = Instance::FailedNode(*graph_.program))
                statistics_.failure.node = *node;
            return ran;
        }
        statistics_.setupSeconds += SecondsSince(start);
        NoteRasters();
        const int rows = std::min(BandRows(window_.width), window_.height);
        outputs_.Allocate(rows);
        samplingStart_ = Clock::now();
        processorStart_ = ProcessorSeconds();
        if (options_.fusing == Fusing::First)
            VELTO_TRY(FuseFirst());
        sampler_ = std::this_thread::get_id();
        Report(0);
        for (int row = 0; row < window_.height; row += rows)
        {
            const int count = std::min(rows, window_.height - row);
            const Clock::time_point sampling = Clock::now();
            SampleBand(row, count);
            statistics_.sampleSeconds += SecondsSince(sampling);
            if (error_.IsSet())
            {
                statistics_.failure = error_.Failure();
                return error_.Get();
            }
            if (IsStopped())
                return MakeError(error::kIllegalState, "interrupted");
            // A picture or a level of one that was refused would show as something else.
            if (MemoryRefusals() != refusals)
                return OutOfMemory();
            VELTO_TRY(outputs_.Submit(count));
            Report(static_cast<UInt>(row + count) * static_cast<UInt>(window_.width));
        }
        VELTO_TRY(outputs_.Wait());
        statistics_.writeSeconds += outputs_.Seconds();
        statistics_.samples += static_cast<UInt>(window_.width) * static_cast<UInt>(window_.height) *
                               static_cast<UInt>(options_.view.supersample) *
                               static_cast<UInt>(options_.view.supersample);
        for (const std::unique_ptr<TileSampler>& worker : workers_)
        {
            for (std::size_t i = 0; worker && i < worker->Counts().size(); ++i)
                statistics_.evaluations[i] += worker->Counts()[i];
        }
        graph_.setup->CollectCounts();
        statistics_.notFused = fusing_.Finish();
        statistics_.tiles += tilesDone_.load(std::memory_order_relaxed);
        statistics_.fusedTiles += fusedTiles_.load(std::memory_order_relaxed);
        return {};
    }

    // Compiles before anything is sampled.
    Result FuseFirst()
    {
        std::unique_ptr<TileSampler>& worker = workers_.local();
        if (!worker)
            VELTO_TRY(MakeWorker(worker));
        StartFusing(*worker, {window_.x, window_.y, 1, 1});
        fusing_.Wait();
        return {};
    }

    void StartFusing(TileSampler& worker, const Tile& tile)
    {
        fusing_.Start(*graph_.setup, worker.Start(), worker.Shape(tile));
    }

    // Whether what is left would by calls take long enough to compile for it.
    bool Pays() const
    {
        constexpr UInt kFirst = 4; // tiles, of which the first may do what the others need not
        const UInt done = tilesDone_.load(std::memory_order_relaxed);
        if (options_.fusing != Fusing::WhenItPays || done < kFirst)
            return false;
        const auto across = [](int side) { return (side + kTileSide - 1) / kTileSide; };
        const UInt all = static_cast<UInt>(across(window_.width)) * static_cast<UInt>(across(window_.height));
        const double each = (ProcessorSeconds() - processorStart_) / static_cast<double>(done);
        return FusingPays(graph_.setup->GetProgram(), each * static_cast<double>(all - std::min(all, done)));
    }

    // The times of all frames; the sizes are the same in each.
    void NoteRasters()
    {
        std::vector<SetupRaster> rasters = graph_.setup->Rasters();
        for (std::size_t i = 0; i < rasters.size() && i < statistics_.rasters.size(); ++i)
            rasters[i].seconds += statistics_.rasters[i].seconds;
        statistics_.rasters = std::move(rasters);
    }

    void SampleBand(int row, int count)
    {
        const tbb::blocked_range2d<int> area(0, count, kTileSide, 0, window_.width, kTileSide);
        tbb::parallel_for(
            area,
            [&](const tbb::blocked_range2d<int>& tile) {
                SampleTile(row, tile);
                tilesDone_.fetch_add(1, std::memory_order_relaxed);
                const auto pixels = static_cast<UInt>(tile.rows().size() * tile.cols().size());
                const UInt done = pixelsDone_.fetch_add(pixels, std::memory_order_release) + pixels;
                if (std::this_thread::get_id() == sampler_)
                    Report(done);
            },
            tbb::simple_partitioner());
        // The library has waited for the tiles, but where race detectors do not look.
        pixelsDone_.load(std::memory_order_acquire);
    }

    void SampleTile(int bandRow, const tbb::blocked_range2d<int>& part)
    {
        if (error_.IsSet() || IsStopped())
            return;
        std::unique_ptr<TileSampler>& worker = workers_.local();
        if (!worker)
        {
            if (Result made = MakeWorker(worker); made.IsError())
                return error_.Take(std::move(made));
        }
        const Tile tile{window_.x + part.cols().begin(), window_.y + bandRow + part.rows().begin(),
            part.cols().end() - part.cols().begin(), part.rows().end() - part.rows().begin()};
        const auto pitch = static_cast<std::size_t>(window_.width);
        const std::size_t pixel =
            static_cast<std::size_t>(part.rows().begin()) * pitch + static_cast<std::size_t>(part.cols().begin());
        std::vector<BakeOutputs::Target>& targets = outputs_.Targets();
        float* to[kMaxTargets];
        for (std::size_t t = 0; t < targets.size(); ++t)
            to[t] = targets[t].band + pixel * static_cast<std::size_t>(targets[t].channels);
        const std::shared_ptr<const SampleKernel> kernel = fusing_.Kernel();
        if (kernel)
        {
            worker->UseKernel(kernel);
            fusedTiles_.fetch_add(1, std::memory_order_relaxed);
        }
        else if (Pays())
            StartFusing(*worker, tile);
        TileFailure failure;
        if (Result sampled = worker->Sample(tile, {to, targets.size()}, pitch, options_.stop, failure);
            sampled.IsError())
            error_.Take(DescribeFailure(sampled, failure), failure);
    }

    Result MakeWorker(std::unique_ptr<TileSampler>& worker)
    {
        ShadingContext shared;
        shared.time.seconds = options_.seconds;
        shared.frameRate = options_.framesPerSecond;
        shared.searchPaths = graph_.searchPaths.get();
        shared.renderMessages = graph_.messages.get();
        std::vector<std::size_t> outputs;
        for (const BakeOutputs::Target& target : outputs_.Targets())
            outputs.push_back(target.output);
        return TileSampler::Create(*graph_.setup, shared, options_.view, std::move(outputs), worker);
    }

    static Result DescribeFailure(const Result& error, const TileFailure& failure)
    {
        Id kind;
        if (Id::Create(error.Kind(), kind).IsError())
            return error;
        return MakeError(kind, fmt::format("nodes.{}: {} (at pixel {}, {})", failure.node ? *failure.node : "?",
                                   error.Message(), failure.x, failure.y));
    }

    int Threads() const { return options_.threads > 0 ? options_.threads : UsableCores(); }

    bool IsStopped() const { return options_.stop && options_.stop->load(std::memory_order_relaxed); }

    // [the calling thread]
    void Report(UInt pixels)
    {
        if (!options_.progress || pixels < pixelsReported_)
            return;
        pixelsReported_ = pixels;
        const double whole = static_cast<double>(window_.width) * window_.height;
        options_.progress({static_cast<double>(pixels) / whole,
            pixels * static_cast<UInt>(options_.view.supersample) * static_cast<UInt>(options_.view.supersample),
            SecondsSince(samplingStart_)});
    }

public:
    static constexpr std::size_t kMaxTargets = 64;

private:
    Graph& graph_;
    const BakeOptions& options_;
    BakeStatistics& statistics_;
    BakeWindow window_;
    BakeOutputs outputs_;
    tbb::enumerable_thread_specific<std::unique_ptr<TileSampler>> workers_;
    FirstError error_;
    std::atomic<UInt> pixelsDone_ = 0;
    UInt pixelsReported_ = 0;
    Clock::time_point samplingStart_;
    double processorStart_ = 0.0;
    std::thread::id sampler_; // the calling thread
    std::atomic<UInt> tilesDone_ = 0;
    std::atomic<UInt> fusedTiles_ = 0;
    FusingTask fusing_; // ends before what it reads
};

} // namespace

bool IsPicture(const DataType* type)
{
    return ChannelsOf(type) > 0;
}

Result Bake(
    Graph& graph, const std::vector<BakeTarget>& targets, const BakeOptions& options, BakeStatistics& statistics)
{
    return Guarded([&]() -> Result {
        if (targets.size() > Baker::kMaxTargets)
            return MakeError(error::kIllegalArgument,
                fmt::format("{} outputs at once; at most {} are baked", targets.size(), Baker::kMaxTargets));
        return Baker(graph, options, statistics).Run(targets);
    });
}

} // namespace velto::host
