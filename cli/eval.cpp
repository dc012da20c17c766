#include "eval.h"

#include "bake.h"

#include "host/bake/samples.h"
#include "host/graph/values.h"
#include "host/registry/datatypes.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

namespace velto::cli
{

namespace
{

// The list of one sample: what a bake of that size computes for a pixel.
bool ReadPixel(const EvalArguments& arguments, const Streams& streams, host::Json& samples)
{
    host::BakeView view;
    if (!ParseSize(arguments.size, view.width, view.height))
    {
        PrintError(streams,
            fmt::format("--size {}: expected N or WxH, each from 1 to {}", arguments.size, host::kMaxPictureSide));
        return false;
    }
    host::BakeWindow pixel;
    if (!ParseCrop(arguments.pixel + ",1x1", pixel) || pixel.x >= view.width || pixel.y >= view.height)
    {
        PrintError(
            streams, fmt::format("--pixel {}: expected X,Y inside {}x{}", arguments.pixel, view.width, view.height));
        return false;
    }
    ShadingContext context;
    host::FillContext(view, pixel.x + 0.5, pixel.y + 0.5, context);
    samples = host::Json::Array();
    samples.Append(host::WriteValue(host::TypeOf<ShadingContext>(), &context));
    return true;
}

bool HasMessages(const host::Json& results)
{
    const auto& entries = results.Find("results")->Elements();
    return std::any_of(
        entries.begin(), entries.end(), [](const host::Json& entry) { return entry.Find("messages") != nullptr; });
}

} // namespace

int Eval(const EvalArguments& arguments, const Streams& streams)
{
    host::Diagnostics diagnostics;
    std::string text = R"([{"uvw": [0.5, 0.5, 0]}])";
    host::Json samples;
    const bool isGood =
        (arguments.samples.empty() || host::ReadFile(arguments.samples, host::JsonLimits().bytes, text, diagnostics)) &&
        host::ReadJson(text, samples, diagnostics) && !diagnostics.HasFaults();
    if (!isGood)
    {
        PrintDiagnostics(streams, arguments.samples, diagnostics);
        return kWrongInput;
    }

    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.modules, streams, modules))
        return kFailed;
    if (!arguments.pixel.empty() && !ReadPixel(arguments, streams, samples))
        return kWrongInput;
    host::Graph graph;
    if (!LoadGraph(arguments.graph, host::VariableInputs(samples), modules, streams, graph) ||
        !HasOutputs(arguments.graph, graph, streams))
        return kWrongInput;
    if (!HasTime(arguments.graph, graph, streams) || !HasMemory(arguments.graph, graph, {}, streams))
        return kFailed;
    host::Json results;
    bool anyFailed = false;
    if (!host::EvaluateSamples(graph, samples, arguments.counts, diagnostics, results, anyFailed))
    {
        PrintDiagnostics(streams, arguments.samples, diagnostics);
        return kWrongInput;
    }
    if (host::MemoryRefusals() > 0) // what was refused shows as something else
    {
        anyFailed = true;
        host::Diagnostics ignored;
        if (HasMemory(arguments.graph, graph, host::LookForPictures(graph, ignored), streams))
            PrintError(streams, "Out of memory.");
    }
    streams.out << results.Write(true) << '\n';
    return anyFailed || (streams.isStrict && HasMessages(results)) ? kFailed : kSuccess;
}

} // namespace velto::cli
