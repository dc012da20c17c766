#include "evaluator.h"

#include "host/bake/changes.h"
#include "host/bake/samples.h"
#include "host/graph/values.h"
#include "host/registry/datatypes.h"

#include <algorithm>
#include <chrono>

namespace velto::editor
{

namespace
{

using host::Json;

constexpr std::size_t kKeptGraphs = 6;
constexpr std::size_t kMostLanes = 1000;

bool IsLink(const Json& value)
{
    return value.IsObject() && (value.Find("from") || value.Find("parameter"));
}

bool HasLink(const Json& value)
{
    return IsLink(value) || std::any_of(value.Elements().begin(), value.Elements().end(), HasLink);
}

// A value of an input, or a parameter's default, that is another one now.
struct Difference
{
    std::string origin;
    const Json* value;
};

// Whether two documents differ in nothing but values; which, in `differences`.
bool DiffersInValues(
    const Json& before, const Json& after, std::vector<std::string>& path, std::vector<Difference>& differences)
{
    const bool isTools = (path.size() == 1 && path[0] == "ui") ||
                         (path.size() == 3 && path[0] == "nodes" && (path[2] == "ui" || path[2] == "comment"));
    if (isTools)
        return true;
    const bool isInput = path.size() == 4 && path[0] == "nodes" && path[2] == "inputs";
    const bool isParameter = path.size() == 3 && path[0] == "parameters" && path[2] == "default";
    const bool canDescend = !isInput && !isParameter && before.IsObject() && after.IsObject() && path.size() < 4 &&
                            before.GetMembers().size() == after.GetMembers().size() &&
                            (path.empty() || path[0] == "nodes" || path[0] == "parameters");
    if (!canDescend)
    {
        if (before.Write() == after.Write())
            return true;
        if ((!isInput && !isParameter) || HasLink(before) || HasLink(after))
            return false;
        differences.push_back({isInput ? path[1] + "." + path[3] : path[1], &after});
        return true;
    }
    for (const auto& [name, value] : before.GetMembers())
    {
        const Json* const other = after.Find(name);
        if (!other)
            return false;
        path.push_back(name);
        const bool isSame = DiffersInValues(value, *other, path, differences);
        path.pop_back();
        if (!isSame)
            return false;
    }
    return true;
}

} // namespace

host::Diagnostics Evaluator::Check(const std::string& text, Json& outputs)
{
    outputs = Json::Array();
    host::Diagnostics diagnostics;
    host::GraphOptions options = options_;
    options.warnsOutsideLimits = true;
    host::Graph graph;
    const std::lock_guard lock(workMutex_);
    if (!host::LoadGraph(text, modules_, options, diagnostics, graph))
        return diagnostics;
    host::LookForPictures(graph, diagnostics);
    for (const auto& output : graph.program->outputs)
    {
        Json json = Json::Object();
        json.Add("name", output.name);
        json.Add("type", host::TypeName(output.type));
        outputs.Append(std::move(json));
    }
    return diagnostics;
}

std::shared_ptr<std::atomic<bool>> Evaluator::Enter(const std::string& lane, UInt serial)
{
    const std::lock_guard lock(lanesMutex_);
    auto stop = std::make_shared<std::atomic<bool>>(false);
    if (lanes_.size() >= kMostLanes)
        lanes_.clear();
    Lane& entered = lanes_[lane];
    if (serial < entered.serial)
    {
        stop->store(true);
        return stop;
    }
    if (entered.stop)
        entered.stop->store(true);
    entered = {serial, stop};
    return stop;
}

bool Evaluator::Load(
    const std::string& text, const std::string& output, host::Diagnostics& diagnostics, host::Graph& graph)
{
    host::GraphOptions options = options_;
    if (!output.empty())
        options.outputs = {output};
    return host::LoadGraph(text, modules_, options, diagnostics, graph);
}

// Gives the graph the values that the document has now, where it differs from its own in nothing else.
bool Evaluator::Adapt(Entry& entry, const Json& document) const
{
    std::vector<std::string> path;
    std::vector<Difference> differences;
    if (!DiffersInValues(entry.document, document, path, differences))
        return false;
    host::Diagnostics diagnostics;
    std::vector<host::InputChange> changes;
    const host::ChangeableInputs inputs(entry.graph.document.graph);
    for (const Difference& difference : differences)
        inputs.Read(difference.origin, *difference.value, difference.origin, diagnostics, changes);
    return !diagnostics.HasFaults() && host::ChangeInputs(entry.graph, changes).IsOk();
}

// [with the work's mutex] The graph of a document, from one that was used lately where that serves.
host::Graph* Evaluator::Find(const std::string& text, const std::string& output, Refusal& refusal)
{
    Json document;
    if (!host::ReadJson(text, document, refusal.diagnostics) || refusal.diagnostics.HasFaults())
        return nullptr;
    for (auto entry = entries_.begin(); entry != entries_.end(); ++entry)
    {
        if (entry->output != output)
            continue;
        if (!Adapt(*entry, document))
            continue;
        entry->document = std::move(document);
        entries_.splice(entries_.begin(), entries_, entry);
        return &entries_.front().graph;
    }
    Entry made;
    if (!Load(text, output, refusal.diagnostics, made.graph))
        return nullptr;
    made.document = std::move(document);
    made.output = output;
    entries_.push_front(std::move(made));
    if (entries_.size() > kKeptGraphs)
        entries_.pop_back();
    return &entries_.front().graph;
}

// Nothing could stop a sample that is too much work.
bool Evaluator::MayRun(const host::Graph& graph, Refusal& refusal) const
{
    refusal.error = isForced_ ? std::string() : host::WorkComplaint(*graph.program);
    if (refusal.error.empty())
        refusal.error = host::MemoryComplaint(host::MemoryDemands(graph, {}));
    return refusal.error.empty();
}

bool Evaluator::MakePicture(const PictureRequest& request, Picture& picture, Refusal& refusal)
{
    const std::shared_ptr<std::atomic<bool>> stop = Enter(request.lane, request.serial);
    const std::lock_guard lock(workMutex_);
    const auto isSuperseded = [&] { return refusal.isSuperseded = stop->load(); };
    if (isSuperseded())
        return false;
    const auto start = std::chrono::steady_clock::now();
    host::Graph* const graph = Find(request.text, request.output, refusal);
    if (!graph)
        return false;
    if (!MayRun(*graph, refusal))
        return false;
    if (graph->program->outputs.empty() || !host::IsPicture(graph->program->outputs.front().type))
    {
        refusal.error = "the output is no picture";
        return false;
    }

    host::BakeOptions options;
    options.view = request.view;
    options.window = request.window;
    if (options.window.width == 0)
        options.window = {0, 0, options.view.width, options.view.height};
    options.seconds = request.frame / request.framesPerSecond;
    options.framesPerSecond = request.framesPerSecond;
    options.threads = threads_;
    options.stop = stop.get();
    picture.width = options.window.width;
    picture.height = options.window.height;
    picture.channels = host::ChannelsOf(graph->program->outputs.front().type);
    picture.pixels.resize(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height) *
                          static_cast<std::size_t>(picture.channels));
    host::BakeTarget target;
    target.pixels = picture.pixels.data();
    host::BakeStatistics statistics;
    const Result baked = host::Bake(*graph, {target}, options, statistics);
    if (isSuperseded())
        return false;
    if (baked.IsError())
    {
        refusal.error = baked.Message();
        refusal.node = statistics.failure.node;
        return false;
    }
    picture.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    return true;
}

bool Evaluator::Evaluate(const PictureRequest& request, Json& values, Refusal& refusal)
{
    const std::lock_guard lock(workMutex_);
    host::Graph* const graph = Find(request.text, "", refusal);
    if (!graph)
        return false;
    if (!MayRun(*graph, refusal))
        return false;
    ShadingContext context;
    if (!host::FillContext(request.view, request.window.x + 0.5, request.window.y + 0.5, context))
    {
        values = Json::Object(); // beside the sphere
        return true;
    }
    context.time.seconds = request.frame / request.framesPerSecond;
    context.frameRate = request.framesPerSecond;
    Json samples = Json::Array();
    samples.Append(host::WriteValue(host::TypeOf<ShadingContext>(), &context));
    Json results;
    bool anyFailed = false;
    if (!host::EvaluateSamples(*graph, samples, false, refusal.diagnostics, results, anyFailed))
        return false;
    const Json& result = results.Find("results")->Elements().front();
    if (const Json* const error = result.Find("error"))
    {
        refusal.error = error->Find("message")->AsString();
        if (const Json* const node = error->Find("node"))
            refusal.node = node->AsString();
        return false;
    }
    values = *result.Find("outputs");
    return true;
}

bool Evaluator::MeasureCost(const std::string& text, int size, host::Explanation& explanation, Refusal& refusal)
{
    const std::lock_guard lock(workMutex_);
    host::Graph graph;
    if (!Load(text, "", refusal.diagnostics, graph) || !MayRun(graph, refusal))
        return false;
    float pixel = 0.0f; // stands for the pictures, which are not made
    std::vector<host::BakeTarget> targets;
    for (std::size_t i = 0; i < graph.program->outputs.size(); ++i)
    {
        host::BakeTarget target;
        target.output = i;
        target.pixels = &pixel;
        if (host::IsPicture(graph.program->outputs[i].type))
            targets.push_back(std::move(target));
    }
    host::BakeOptions options;
    options.view.width = options.view.height = size;
    options.threads = threads_;
    if (targets.empty())
        refusal.error = "no output is a picture";
    else if (const Result explained = host::Explain(std::move(graph), targets, options, explanation);
             explained.IsError())
        refusal.error = explained.Message();
    return refusal.error.empty();
}

} // namespace velto::editor
