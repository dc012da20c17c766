#include "graph.h"

#include "sampler.h"

#include "host/graph/values.h"
#include "host/system/guard.h"
#include "host/text/url.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace velto::host
{

namespace
{

// The origins of the graph's values that a name stands for: an input, or the elements of one.
std::set<std::string> Origins(const CoreGraph& graph, const std::set<std::string>& names)
{
    std::set<std::string> origins;
    if (names.empty())
        return origins;
    for (const CoreNode& node : graph.nodes)
    {
        for (const auto& [port, input] : node.inputs)
        {
            for (const std::string& name : names)
            {
                const bool isPartOf = input.origin.size() > name.size() && input.origin.starts_with(name) &&
                                      (input.origin[name.size()] == '[' || input.origin[name.size()] == '.');
                if (input.origin == name || isPartOf)
                    origins.insert(input.origin);
            }
        }
    }
    return origins;
}

// Drops the outputs that nobody wants, and with them all that only they need.
bool KeepOutputs(const std::set<std::string>& wanted, std::vector<CoreOutput>& outputs, Diagnostics& diagnostics)
{
    if (wanted.empty())
        return true;
    std::vector<std::string> names;
    for (const CoreOutput& output : outputs)
        names.push_back(output.name);
    for (const std::string& name : wanted)
    {
        if (std::find(names.begin(), names.end(), name) == names.end())
            diagnostics.Fault("outputs", fmt::format("there is no output \"{}\"{}", name, Suggestion(name, names)));
    }
    std::erase_if(outputs, [&](const CoreOutput& output) { return !wanted.contains(output.name); });
    return !diagnostics.HasFaults();
}

// The directories of the documents that are used follow, for what those name.
std::vector<std::string> SearchPaths(const GraphOptions& options, const GraphDocument& document)
{
    std::vector<std::string> paths = options.searchPaths;
    for (const std::string& file : document.files)
    {
        std::string directory = std::filesystem::path(file).parent_path().string();
        if (std::find(paths.begin(), paths.end(), directory) == paths.end())
            paths.push_back(std::move(directory));
    }
    return paths;
}

Result Compile(Graph& graph, std::shared_ptr<const void> module)
{
    CompileOptions options;
    options.renderMode = graph.renderMode;
    options.searchPaths = graph.searchPaths.get();
    options.variable = Origins(graph.document.graph, graph.variable);
    options.keepAlive = std::move(module);
    std::shared_ptr<const Program> program;
    std::unique_ptr<Setup> setup;
    VELTO_TRY(Program::Compile(graph.document.graph, options, program));
    VELTO_TRY(Setup::Create(program, setup));
    graph.setup = std::move(setup);
    graph.program = std::move(program);
    return {};
}

// An encoding is of pixels.
void CheckEncodings(const Graph& graph, Diagnostics& diagnostics)
{
    for (const OutputPlan& output : graph.program->outputs)
    {
        if (NumbersOf(output.type) == 0 && graph.document.encodings.contains(output.name))
            diagnostics.Fault(
                "outputs." + output.name, fmt::format("a {} is no picture and has no encoding", TypeName(output.type)));
    }
}

bool ReadAndCompile(const Json& json, std::shared_ptr<const void> module, const GraphOptions& options,
    Diagnostics& diagnostics, Graph& graph)
{
    const DocumentOptions document{options.presets, options.settings,
        {options.file, options.searchPaths, options.libraries}, options.warnsOutsideLimits, {}};
    if (!ReadDocument(json, std::make_shared<NodeCatalog>(), document, diagnostics, graph.document) ||
        !KeepOutputs(options.outputs, graph.document.graph.outputs, diagnostics))
        return false;
    auto paths = std::make_shared<SearchPathsType>();
    for (const std::string& path : SearchPaths(options, graph.document))
    {
        Url url;
        Result made = MakeUrl(path, url);
        if (made.IsOk())
            made = paths->Append(std::move(url));
        if (made.IsError())
        {
            diagnostics.Fault("", made.Message());
            return false;
        }
    }
    graph.searchPaths = std::move(paths);
    graph.renderMode = options.renderMode;
    graph.variable = options.variable;
    const Result made = Compile(graph, std::move(module));
    if (made.IsError())
        diagnostics.Fault("", made.Message());
    else
        CheckEncodings(graph, diagnostics);
    return !diagnostics.HasFaults();
}

template <class Load>
bool GuardMemory(Diagnostics& diagnostics, const Load& load)
{
    try
    {
        return load();
    }
    catch (const std::bad_alloc&)
    {
        try
        {
            diagnostics.Fault("", "Out of memory.");
        }
        catch (const std::bad_alloc&)
        {
            // There is no memory for the message either.
        }
        return false;
    }
}

} // namespace

bool LoadGraph(std::string_view text, std::shared_ptr<const void> module, const GraphOptions& options,
    Diagnostics& diagnostics, Graph& graph)
{
    return GuardMemory(diagnostics, [&] {
        Json json;
        return ReadJson(text, json, diagnostics) &&
               ReadAndCompile(json, std::move(module), options, diagnostics, graph);
    });
}

bool LoadDocument(const Json& json, std::shared_ptr<const void> module, const GraphOptions& options,
    Diagnostics& diagnostics, Graph& graph)
{
    return GuardMemory(
        diagnostics, [&] { return ReadAndCompile(json, std::move(module), options, diagnostics, graph); });
}

Result Recompile(Graph& graph)
{
    return Guarded([&] { return Compile(graph, graph.program->keepAlive); });
}

} // namespace velto::host
