#include "bake.h"

#include "output.h"

#include "host/system/guard.h"
#include "host/system/message.h"

#include <fmt/format.h>
#include <tbb/blocked_range2d.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <chrono>
#include <cmath>

namespace velto::host
{

namespace
{

constexpr int kTileSide = 64;

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The first error of any thread.
class FirstError
{
public:
    void Take(Result error)
    {
        const std::lock_guard lock(mutex_);
        if (error_.IsOk())
            error_ = std::move(error);
        isSet_.store(true, std::memory_order_relaxed);
    }
    bool IsSet() const { return isSet_.load(std::memory_order_relaxed); }
    Result Get() { return error_; }

private:
    std::mutex mutex_;
    std::atomic<bool> isSet_ = false;
    Result error_;
};

struct Worker
{
    std::unique_ptr<Instance> instance;
    EvaluationCounts counts;
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
    }

    Result Run(const std::vector<BakeTarget>& targets)
    {
        VELTO_TRY(OpenOutputs(targets));
        // Without it more threads than cores are refused, with a warning on stderr.
        const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
            static_cast<std::size_t>(std::max(options_.threads, tbb::info::default_concurrency())));
        tbb::task_arena arena(options_.threads > 0 ? options_.threads : tbb::task_arena::automatic);
        Result ran;
        arena.execute([&] {
            ran = Guarded([&] { return RunInArena(); });
            // In the arena, whose threads alone may run what is waited for.
            if (Result written = outputs_.Wait(); ran.IsOk())
                ran = std::move(written);
        });
        VELTO_TRY(ran);
        return outputs_.Finish();
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
        return outputs_.Open(*graph_.program, targets, window_, options_.encoding);
    }

    Result RunInArena()
    {
        const Clock::time_point start = Clock::now();
        statistics_.evaluations.resize(graph_.program->nodeNames.size(), 0);
        graph_.setup->CountInto(&statistics_.evaluations);
        if (options_.progress)
            graph_.setup->SetProgress([this, start](const SetupRaster& raster) {
                options_.progress({0.0, 0, SecondsSince(start), &raster});
            });
        VELTO_TRY(graph_.setup->Run());
        statistics_.setupSeconds += SecondsSince(start);
        NoteRasters();
        const int rows = BandRows();
        outputs_.Allocate(rows);
        const Clock::time_point samplingStart = Clock::now();
        Report(0, samplingStart);
        for (int row = 0; row < window_.height; row += rows)
        {
            const int count = std::min(rows, window_.height - row);
            const Clock::time_point sampling = Clock::now();
            SampleBand(row, count);
            statistics_.sampleSeconds += SecondsSince(sampling);
            if (error_.IsSet())
                return error_.Get();
            if (IsStopped())
                return MakeError(error::kIllegalState, "interrupted");
            VELTO_TRY(outputs_.Submit(count));
            Report(row + count, samplingStart);
        }
        VELTO_TRY(outputs_.Wait());
        statistics_.writeSeconds += outputs_.Seconds();
        statistics_.samples += static_cast<UInt>(window_.width) * static_cast<UInt>(window_.height) *
                               static_cast<UInt>(options_.view.supersample) *
                               static_cast<UInt>(options_.view.supersample);
        for (const Worker& worker : workers_)
        {
            for (std::size_t i = 0; i < worker.counts.size(); ++i)
                statistics_.evaluations[i] += worker.counts[i];
        }
        graph_.setup->CollectCounts();
        return {};
    }

    // The times of all frames; the sizes are the same in each.
    void NoteRasters()
    {
        std::vector<SetupRaster> rasters = graph_.setup->Rasters();
        for (std::size_t i = 0; i < rasters.size() && i < statistics_.rasters.size(); ++i)
            rasters[i].seconds += statistics_.rasters[i].seconds;
        statistics_.rasters = std::move(rasters);
    }

    // Few enough rows that a band is small, enough that every thread has tiles.
    int BandRows() const
    {
        constexpr int kBandPixels = 1 << 20;
        const int rows = std::max(kTileSide, kBandPixels / std::max(window_.width, 1));
        return std::min(rows / kTileSide * kTileSide, 1024);
    }

    void SampleBand(int row, int count)
    {
        const tbb::blocked_range2d<int> area(0, count, kTileSide, 0, window_.width, kTileSide);
        tbb::parallel_for(
            area,
            [&](const tbb::blocked_range2d<int>& tile) {
                SampleTile(row, tile);
                tilesDone_.fetch_add(1, std::memory_order_release);
            },
            tbb::simple_partitioner());
        // The library has waited for the tiles, but where race detectors do not look.
        tilesDone_.load(std::memory_order_acquire);
    }

    void SampleTile(int bandRow, const tbb::blocked_range2d<int>& tile)
    {
        if (error_.IsSet() || IsStopped())
            return;
        Worker& worker = workers_.local();
        if (!worker.instance)
        {
            if (Result made = MakeWorker(worker); made.IsError())
                return error_.Take(std::move(made));
        }
        for (int y = tile.rows().begin(); y < tile.rows().end(); ++y)
        {
            for (int x = tile.cols().begin(); x < tile.cols().end(); ++x)
            {
                if (Result sampled = SamplePixel(*worker.instance, bandRow, x, y); sampled.IsError())
                    return error_.Take(DescribeFailure(sampled, window_.x + x, window_.y + bandRow + y));
            }
        }
    }

    Result MakeWorker(Worker& worker)
    {
        std::unique_ptr<Instance> instance;
        VELTO_TRY(Instance::Create(*graph_.setup, instance));
        instance->SetIndependentSamples();
        PrepareContext(instance->Context());
        worker.counts.resize(graph_.program->nodeNames.size(), 0);
        instance->CountInto(&worker.counts);
        // Every thread's state starts from the picture's first sample, whichever tile the thread gets, or from its
        // middle, where a sphere's corner shows nothing.
        ShadingContext first = instance->Context();
        if (!FillContext(options_.view, 0.5, 0.5, first))
            FillContext(options_.view, 0.5 * options_.view.width, 0.5 * options_.view.height, first);
        instance->StartStateFrom(first);
        worker.instance = std::move(instance);
        return {};
    }

    void PrepareContext(ShadingContext& context) const
    {
        context = {};
        context.time.seconds = options_.seconds;
        context.frameRate = options_.framesPerSecond;
        context.searchPaths = graph_.searchPaths.get();
        context.renderMessages = graph_.messages.get();
    }

    Result SamplePixel(Instance& instance, int bandRow, int x, int y)
    {
        const int n = options_.view.supersample;
        std::vector<BakeOutputs::Target>& targets = outputs_.Targets();
        double sums[kMaxTargets][4] = {};
        for (int j = 0; j < n; ++j)
        {
            for (int i = 0; i < n; ++i)
            {
                const double px = window_.x + x + (i + 0.5) / n;
                const double py = window_.y + bandRow + y + (j + 0.5) / n;
                if (!FillContext(options_.view, px, py, instance.Context()))
                    continue; // transparent
                VELTO_TRY(instance.Evaluate());
                for (std::size_t t = 0; t < targets.size(); ++t)
                    targets[t].channels->add(instance.Output(targets[t].output), sums[t]);
            }
        }
        const double share = 1.0 / (n * n);
        for (std::size_t t = 0; t < targets.size(); ++t)
        {
            BakeOutputs::Target& target = targets[t];
            const int count = target.channels->count;
            const std::size_t pixel =
                static_cast<std::size_t>(y) * static_cast<std::size_t>(window_.width) + static_cast<std::size_t>(x);
            float* const to = &target.band[pixel * static_cast<std::size_t>(count)];
            for (int c = 0; c < count; ++c)
                to[c] = static_cast<float>(n == 1 ? sums[t][c] : sums[t][c] * share);
        }
        return {};
    }

    Result DescribeFailure(const Result& failure, int x, int y) const
    {
        const std::string* const node = Instance::FailedNode(*graph_.program);
        Id kind;
        if (Id::Create(failure.Kind(), kind).IsError())
            return failure;
        return MakeError(
            kind, fmt::format("nodes.{}: {} (at pixel {}, {})", node ? *node : "?", failure.Message(), x, y));
    }

    bool IsStopped() const { return options_.stop && options_.stop->load(std::memory_order_relaxed); }

    void Report(int rowsDone, Clock::time_point start)
    {
        if (!options_.progress)
            return;
        const UInt pixels = static_cast<UInt>(rowsDone) * static_cast<UInt>(window_.width);
        options_.progress({static_cast<double>(rowsDone) / window_.height,
            pixels * static_cast<UInt>(options_.view.supersample) * static_cast<UInt>(options_.view.supersample),
            SecondsSince(start)});
    }

public:
    static constexpr std::size_t kMaxTargets = 64;

private:
    Graph& graph_;
    const BakeOptions& options_;
    BakeStatistics& statistics_;
    BakeWindow window_;
    BakeOutputs outputs_;
    tbb::enumerable_thread_specific<Worker> workers_;
    FirstError error_;
    std::atomic<UInt> tilesDone_ = 0;
};

} // namespace

bool IsPicture(const DataType* type)
{
    return FindChannels(type) != nullptr;
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
