#include "bake.h"

#include "progress.h"
#include "watch.h"

#include "host/bake/encoding.h"

#include <fmt/format.h>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <ostream>

namespace velto::cli
{

using host::Json;

namespace
{

Json DescribeEvaluations(const host::Graph& graph, const host::BakeStatistics& statistics)
{
    std::map<std::string_view, UInt> sums;
    for (std::size_t i = 0; i < statistics.evaluations.size(); ++i)
        sums[graph.program->nodeNames[i]] += statistics.evaluations[i];
    sums.erase(""); // conversions
    Json evaluations = Json::Object();
    for (const std::string& name : graph.program->nodeNames)
    {
        if (const auto sum = sums.extract(name))
            evaluations.Add(name, Json(sum.mapped()));
    }
    return evaluations;
}

void PrintStatistics(const Streams& streams, const host::Graph& graph, const host::BakeStatistics& statistics)
{
    Json json = Json::Object();
    double bakeSeconds = 0.0;
    Json rasters = Json::Array();
    for (const host::SetupRaster& raster : statistics.rasters)
    {
        Json entry = Json::Object();
        entry.Add("node", raster.node);
        entry.Add("width", Json(static_cast<UInt>(raster.width)));
        entry.Add("height", Json(static_cast<UInt>(raster.height)));
        entry.Add("bytes", Json(raster.bytes));
        entry.Add("seconds", raster.seconds);
        rasters.Append(std::move(entry));
        bakeSeconds += raster.seconds;
    }
    json.Add("setupSeconds", statistics.setupSeconds);
    json.Add("bakeSeconds", bakeSeconds); // of the setup's
    json.Add("sampleSeconds", statistics.sampleSeconds);
    json.Add("writeSeconds", statistics.writeSeconds);
    json.Add("samples", Json(statistics.samples));
    json.Add("samplesPerSecond",
        statistics.sampleSeconds > 0.0 ? static_cast<double>(statistics.samples) / statistics.sampleSeconds : 0.0);
    json.Add("evaluations", DescribeEvaluations(graph, statistics));
    json.Add("rasters", std::move(rasters));
    streams.err << json.Write(true) << '\n';
}

// What `--json` prints, gathered over all frames.
class Summary
{
public:
    void AddFile(const host::WrittenFile& file, const host::Graph& graph, const std::optional<int>& frame)
    {
        std::error_code ignored;
        const auto bytes = std::filesystem::file_size(file.path, ignored);
        Json json = Json::Object();
        json.Add("path", file.path);
        json.Add("output", graph.program->outputs[file.output].name);
        json.Add("frame", frame.value_or(0));
        json.Add("width", file.width);
        json.Add("height", file.height);
        json.Add("channels", file.channels);
        json.Add("bytes", Json(ignored ? UInt{0} : static_cast<UInt>(bytes)));
        json.Add("pixels", file.pixels);
        files_.Append(std::move(json));
    }

    Json Finish(const host::Graph& graph, const host::BakeStatistics& statistics, std::vector<std::string> warnings)
    {
        Json json = Json::Object();
        json.Add("files", std::move(files_));
        json.Add("seconds", std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count());
        json.Add("samples", Json(statistics.samples));
        json.Add("evaluations", DescribeEvaluations(graph, statistics));
        rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        json.Add("peakMemory", Json(static_cast<UInt>(usage.ru_maxrss) * 1024));
        json.Add("fused", statistics.fusedTiles > 0);
        Json list = Json::Array();
        for (std::string& warning : warnings)
            list.Append(Json(warning));
        json.Add("warnings", std::move(list));
        return json;
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    Json files_ = Json::Array();
};

// Leaves out targets that exist already: whole files, and whole parts of this very bake.
void SkipExisting(const Streams& streams, std::vector<host::BakeTarget>& targets,
    const std::function<bool(const host::BakeTarget&)>& isThere)
{
    std::erase_if(targets, [&](const host::BakeTarget& target) {
        if (!isThere(target))
            return false;
        if (!streams.isQuiet)
            streams.err << fmt::format("velto: {} is there and is left as it is\n", target.file);
        return true;
    });
}

// Bakes one frame, or a shard of it.
Result BakeFrame(const BakeArguments& arguments, const host::Modules& modules, const Streams& streams,
    const BakePlan& plan, host::Graph& graph, std::vector<host::BakeTarget>& targets, host::BakeStatistics& statistics)
{
    host::BakeOptions options = plan.options;
    if (plan.shard.index == 0)
    {
        if (arguments.skipExisting)
            SkipExisting(streams, targets, [](const host::BakeTarget& target) {
                std::error_code ignored;
                return std::filesystem::is_regular_file(target.file, ignored);
            });
        return targets.empty() ? Result() : host::Bake(graph, targets, options, statistics);
    }
    host::PartIdentity identity;
    identity.shard = plan.shard;
    identity.window = options.window;
    if (identity.window.width == 0)
        identity.window = {0, 0, options.view.width, options.view.height};
    for (host::BakeTarget& target : targets)
    {
        identity.encoding = host::EncodingOf(graph, target.output, options.encoding);
        identity.hash = Fingerprint(arguments, modules, graph, plan, target);
        host::MakePart(identity, options.window, target);
    }
    if (arguments.skipExisting)
        SkipExisting(streams, targets,
            [&](const host::BakeTarget& target) { return host::IsPart(target.file, target.attributes); });
    return targets.empty() ? Result() : host::Bake(graph, targets, options, statistics);
}

// Tells what a frame reads, before it is sampled; what it writes itself does not count.
void Note(const host::Graph& graph, const std::vector<host::BakeTarget>& targets, WatchedFiles& files)
{
    for (const std::string& file : graph.document.files)
        files.Add(file);
    for (const std::string& file : graph.program ? host::PictureFiles(graph) : std::vector<std::string>())
    {
        const bool isWritten =
            std::any_of(targets.begin(), targets.end(), [&](const auto& target) { return target.file == file; });
        if (!isWritten)
            files.AddPicture(file, graph.searchPaths.get());
    }
}

int BakeFrames(const BakeArguments& arguments, BakePlan plan, const std::shared_ptr<host::Modules>& modules,
    const Streams& streams, WatchedFiles* files)
{
    Progress progress(streams, ParseProgress(arguments.progress, streams));
    Summary summary;
    host::BakeStatistics statistics;
    plan.options.hashesPixels = arguments.json;
    const auto messages = std::make_shared<RenderMessages>(); // of all frames, so that each is said once
    for (const std::optional<int>& frame : plan.frames)
    {
        host::Graph graph;
        std::vector<host::BakeTarget> targets;
        const bool isPlanned = PlanFrame(arguments, frame, modules, streams, plan, graph, targets);
        if (files)
            Note(graph, targets, *files);
        if (!isPlanned)
            return kWrongInput;
        if (!HasTime(arguments.graph, graph, streams) || !HasMemory(arguments.graph, graph, {}, streams))
            return kFailed;
        graph.messages = messages;
        const std::string name = targets.front().file;
        plan.options.progress = [&](const host::BakeProgress& at) { progress.Show(at, name); };
        if (const Result baked = BakeFrame(arguments, *modules, streams, plan, graph, targets, statistics);
            baked.IsError())
        {
            host::Diagnostics ignored;
            const bool lacksMemory = baked.Kind() == error::kOutOfMemory.View() && host::MemoryRefusals() > 0;
            if (!lacksMemory || HasMemory(arguments.graph, graph, host::LookForPictures(graph, ignored), streams))
                PrintError(streams, baked.Message());
            return kFailed;
        }
        if (!statistics.notFused.empty())
            PrintNote(streams, fmt::format("the graph is not compiled: {}", std::exchange(statistics.notFused, {})));
        for (const host::WrittenFile& file : std::exchange(statistics.files, {}))
            summary.AddFile(file, graph, frame);
        if (&frame != &plan.frames.back())
            continue;
        if (arguments.stats)
            PrintStatistics(streams, graph, statistics);
        if (arguments.json)
            streams.out << summary
                               .Finish(graph, statistics,
                                   streams.warningTexts ? *streams.warningTexts : std::vector<std::string>())
                               .Write()
                        << '\n';
    }
    return kSuccess;
}

} // namespace

int Bake(const BakeArguments& arguments, const Streams& streams)
{
    BakePlan plan;
    if (!PlanBake(arguments, streams, plan))
        return kWrongInput;
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.modules, streams, modules))
        return kFailed;
    if (!arguments.watches)
        return BakeFrames(arguments, std::move(plan), modules, streams, nullptr);
    for (WatchedFiles files(arguments.graph.file);; files.WaitForChange())
    {
        const int status = BakeFrames(arguments, plan, modules, streams, &files);
        PrintNote(streams, fmt::format("{}: {}; waits for changes of {} files", arguments.graph.file,
                               status == kSuccess ? "is baked" : "is not baked", files.Count()));
        streams.out.flush();
    }
}

} // namespace velto::cli
