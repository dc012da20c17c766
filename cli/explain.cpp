#include "explain.h"

#include "host/bake/explain.h"

#include <fmt/format.h>

#include <unistd.h>

#include <ctime>
#include <fstream>
#include <ostream>

namespace velto::cli
{

namespace
{

using host::Json;
using host::NodeCost;

const char* NameOf(NodeCost::Runs runs)
{
    switch (runs)
    {
    case NodeCost::Runs::Never:
        return "never";
    case NodeCost::Runs::Folded:
        return "folded";
    case NodeCost::Runs::Setup:
        return "setup";
    case NodeCost::Runs::Area:
        return "area";
    case NodeCost::Runs::Sample:
        break;
    }
    return "sample";
}

// A bake of several frames, and of several machines.
struct Cost
{
    host::Explanation frame;
    double loadSeconds = 0.0; // modules and document
    std::size_t frames = 1;
    int shards = 1;
    UInt memory = 0; // at the peak

    double Seconds() const { return loadSeconds + static_cast<double>(frames) * frame.Seconds(); }
    double SecondsOfShard() const
    {
        const double shared = (frame.sampleSeconds + frame.writeSeconds) / shards;
        return loadSeconds + static_cast<double>(frames) * (frame.setupSeconds + shared);
    }
};

UInt ResidentBytes()
{
    UInt pages = 0;
    UInt resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * static_cast<UInt>(sysconf(_SC_PAGESIZE));
}

Json AsJson(const Cost& cost)
{
    Json json = Json::Object();
    Json nodes = Json::Array();
    for (const NodeCost& node : cost.frame.nodes)
    {
        Json entry = Json::Object();
        entry.Add("name", node.name);
        entry.Add("type", node.type);
        entry.Add("runs", NameOf(node.runs));
        entry.Add("evaluationsPerSample", node.evaluationsPerSample);
        entry.Add("nanoseconds", node.nanoseconds);
        nodes.Append(std::move(entry));
    }
    json.Add("nodes", std::move(nodes));
    Json costliest = Json::Array();
    for (const NodeCost* const node : cost.frame.Costliest())
        costliest.Append(node->name);
    json.Add("costliest", std::move(costliest));
    Json rasters = Json::Array();
    for (const host::SetupRaster& raster : cost.frame.rasters)
    {
        Json entry = Json::Object();
        entry.Add("node", raster.node);
        entry.Add("width", Json(UInt{raster.width}));
        entry.Add("height", Json(UInt{raster.height}));
        entry.Add("bytes", Json(raster.bytes));
        entry.Add("seconds", raster.seconds);
        rasters.Append(std::move(entry));
    }
    json.Add("rasters", std::move(rasters));
    Json pictures = Json::Array();
    for (const host::ShownPicture& picture : cost.frame.pictures)
    {
        Json entry = Json::Object();
        entry.Add("input", picture.place);
        entry.Add("file", picture.file);
        entry.Add("width", picture.width);
        entry.Add("height", picture.height);
        entry.Add("bytes", Json(picture.bytes));
        pictures.Append(std::move(entry));
    }
    json.Add("pictures", std::move(pictures));
    json.Add("memory", Json(cost.memory));
    json.Add("nanosecondsPerSample", cost.frame.nanosecondsPerSample);
    json.Add("setupSeconds", cost.frame.setupSeconds);
    json.Add("sampleSeconds", cost.frame.sampleSeconds);
    json.Add("writeSeconds", cost.frame.writeSeconds);
    json.Add("fused", cost.frame.isFused);
    json.Add("frames", Json(static_cast<UInt>(cost.frames)));
    json.Add("seconds", cost.Seconds());
    if (cost.shards > 1)
    {
        json.Add("shards", cost.shards);
        json.Add("secondsPerShard", cost.SecondsOfShard());
    }
    return json;
}

double Megabytes(UInt bytes)
{
    return static_cast<double>(bytes) / (1 << 20);
}

void Print(const Cost& cost, std::ostream& out)
{
    const host::Explanation& frame = cost.frame;
    out << fmt::format("{:<24} {:<24} {:<7} {:>12} {:>12}\n", "node", "type", "runs", "evaluations", "ns a sample");
    for (const NodeCost& node : frame.nodes)
    {
        std::string line = fmt::format("{:<24} {:<24} {:<7}", node.name, node.type, NameOf(node.runs));
        if (node.evaluationsPerSample > 0.0)
            line += fmt::format(" {:>12.4g} {:>12.1f}", node.evaluationsPerSample, node.nanoseconds);
        out << line << '\n';
    }
    for (const host::SetupRaster& raster : frame.rasters)
        out << fmt::format("raster of {}: {} x {}, {:.1f} MB, {:.2f} s\n", raster.node, raster.width, raster.height,
            Megabytes(raster.bytes), raster.seconds);
    for (const host::ShownPicture& picture : frame.pictures)
        out << fmt::format(
            "picture {}: {} x {}, {:.1f} MB\n", picture.file, picture.width, picture.height, Megabytes(picture.bytes));
    std::string most;
    for (const NodeCost* const node : frame.Costliest())
        most += fmt::format("{}{} ({:.0f} %)", most.empty() ? "" : ", ", node->name,
            100.0 * node->nanoseconds / frame.nanosecondsPerSample);
    if (!most.empty())
        out << "costs most: " << most << '\n';
    out << fmt::format("{:.0f} ns a sample{}; a frame: set-up {:.2f} s, samples {:.2f} s, files {:.2f} s\n",
        frame.nanosecondsPerSample, frame.isFused ? ", compiled" : "", frame.setupSeconds, frame.sampleSeconds,
        frame.writeSeconds);
    out << fmt::format("in all {:.2f} s{} and {:.0f} MB at the peak\n", cost.Seconds(),
        cost.frames > 1 ? fmt::format(" for {} frames", cost.frames) : "", Megabytes(cost.memory));
    if (cost.shards > 1)
        out << fmt::format("each of {} shards {:.2f} s\n", cost.shards, cost.SecondsOfShard());
}

} // namespace

int Explain(const ExplainArguments& arguments, const Streams& streams)
{
    BakePlan plan;
    if (!PlanBake(arguments.bake, streams, plan))
        return kWrongInput;
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.bake.modules, streams, modules))
        return kFailed;
    host::Graph graph;
    std::vector<host::BakeTarget> targets;
    if (!PlanFrame(arguments.bake, plan.frames.front(), modules, streams, plan, graph, targets))
        return kWrongInput;
    if (!HasTime(arguments.bake.graph, graph, streams) || !HasMemory(arguments.bake.graph, graph, {}, streams))
        return kFailed;
    Cost cost;
    cost.frames = plan.frames.size();
    cost.shards = arguments.shards;
    cost.memory = ResidentBytes();
    cost.loadSeconds = static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
    if (const Result explained = host::Explain(std::move(graph), targets, plan.options, cost.frame);
        explained.IsError())
    {
        PrintError(streams, explained.Message());
        return kFailed;
    }
    cost.memory += cost.frame.memory;
    if (arguments.json)
        streams.out << AsJson(cost).Write(true) << '\n';
    else
        Print(cost, streams.out);
    return kSuccess;
}

} // namespace velto::cli
