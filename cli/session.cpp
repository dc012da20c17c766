#include "session.h"

#include "host/text/url.h"
#include "host/texture/texture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <ostream>

namespace velto::cli
{

namespace
{

constexpr const char* kModuleFolder = "modules";

std::filesystem::path ExecutableDirectory()
{
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

// The directories that a variable of the environment names, with colons between them.
void AddFromEnvironment(const char* variable, std::vector<std::string>& directories)
{
    const char* const value = std::getenv(variable);
    std::string_view left = value ? value : "";
    while (!left.empty())
    {
        const std::size_t end = std::min(left.find(':'), left.size());
        if (end > 0)
            directories.emplace_back(left.substr(0, end));
        left.remove_prefix(std::min(end + 1, left.size()));
    }
}

// The directories of the files that a document names, and which files may be read.
void PlacesOf(const GraphArguments& arguments, host::GraphOptions& options)
{
    const bool isFile = arguments.file != "-";
    options.file = isFile ? arguments.file : std::string();
    options.searchPaths = arguments.searchPaths;
    options.libraries = arguments.libraries;
    AddFromEnvironment("VELTO_SEARCH_PATH", options.searchPaths);
    AddLibraries(options.libraries);
    // Files are also looked for beside the document.
    if (isFile)
        options.searchPaths.push_back(std::filesystem::absolute(arguments.file).parent_path().string());
    if (arguments.files == "any" || (arguments.files.empty() && isFile))
        return host::ReadAnywhere();
    std::vector<std::filesystem::path> directories(options.searchPaths.begin(), options.searchPaths.end());
    directories.insert(directories.end(), options.libraries.begin(), options.libraries.end());
    if (!isFile)
        directories.push_back(std::filesystem::current_path());
    host::ReadOnlyBelow(directories);
}

} // namespace

// That of the command, or the one it is installed for.
std::filesystem::path HomeDirectory()
{
    const std::filesystem::path beside = ExecutableDirectory();
    const std::filesystem::path installed = (beside / VELTO_INSTALLED_DIRECTORY).lexically_normal();
    std::error_code ignored;
    const bool isInstalled = !std::filesystem::exists(beside / kModuleFolder, ignored) &&
                             std::filesystem::exists(installed / kModuleFolder, ignored);
    return isInstalled ? installed : beside;
}

void PrintError(const Streams& streams, std::string_view text)
{
    streams.err << "velto: error: " << host::Escaped(text) << '\n';
}

void PrintWarning(const Streams& streams, std::string_view text)
{
    if (streams.warnings)
        ++*streams.warnings;
    if (streams.warningTexts)
        streams.warningTexts->emplace_back(text);
    if (streams.isStrict)
        PrintError(streams, text);
    else if (!streams.isQuiet)
        streams.err << "velto: warning: " << host::Escaped(text) << '\n';
}

void PrintNote(const Streams& streams, std::string_view text)
{
    if (streams.isVerbose)
        streams.err << "velto: " << host::Escaped(text) << '\n';
}

HostOutput::HostOutput(const Streams& streams) : streams_(streams)
{
    host::SetOutputHandler([this](host::OutputChannel channel, LogTarget, std::string_view line) {
        if (channel == host::OutputChannel::Message)
            PrintWarning(streams_, line);
        else if (counts_.size() >= kMostLines || ++counts_[std::string(line)] == 1)
            streams_.err << host::Escaped(line) << '\n';
    });
}

HostOutput::~HostOutput()
{
    host::SetOutputHandler({});
    for (const auto& [line, count] : counts_)
    {
        if (count > 1)
            streams_.err << fmt::format("{} (said {} times)\n", host::Escaped(line), count);
    }
}

void PrintDiagnostics(const Streams& streams, const std::string& file, const host::Diagnostics& diagnostics)
{
    for (const host::Diagnostic& diagnostic : diagnostics.All())
    {
        std::string line = diagnostic.file.empty() ? file : diagnostic.file;
        if (!diagnostic.place.empty())
            line += ": " + diagnostic.place;
        line += ": " + diagnostic.text;
        if (!diagnostic.usedBy.empty())
            line += fmt::format(" (used by {})", diagnostic.usedBy);
        if (diagnostic.isWarning)
            PrintWarning(streams, line);
        else
            PrintError(streams, line);
    }
}

void AddLibraries(std::vector<std::string>& libraries)
{
    AddFromEnvironment("VELTO_LIBRARY", libraries);
}

bool LoadModules(const ModuleOptions& options, const Streams& streams, std::shared_ptr<host::Modules>& modules)
{
    const std::filesystem::path folder = HomeDirectory() / kModuleFolder;
    std::vector<std::filesystem::path> files = host::ModuleFiles(folder);
    files.insert(files.end(), options.files.begin(), options.files.end());
    if (files.empty())
    {
        PrintError(streams, fmt::format("there is no module in {}, and no --module names one", folder.string()));
        return false;
    }
    const Result loaded = host::Modules::Load(files, modules);
    if (loaded.IsError())
        PrintError(streams, loaded.Message());
    return loaded.IsOk();
}

bool TakeGraphOptions(const GraphArguments& arguments, const Streams& streams, host::GraphOptions& options)
{
    options.renderMode.value = arguments.renderMode;
    options.presets = arguments.presets;
    options.warnsOutsideLimits = arguments.warnsOutsideLimits;
    PlacesOf(arguments, options);
    options.outputs = {arguments.outputs.begin(), arguments.outputs.end()};
    if (arguments.memory > 0)
        host::SetMemoryBudget(static_cast<UInt>(arguments.memory) << 20);
    host::SetTextureMemory(static_cast<UInt>(arguments.textureMemory) << 20);
    for (const std::string& text : arguments.settings)
    {
        host::Setting setting;
        if (!host::ParseSetting(text, setting))
        {
            PrintError(streams, fmt::format("--set {}: expected NODE.PORT=VALUE or PARAMETER=VALUE", text));
            return false;
        }
        options.settings.push_back(std::move(setting));
    }
    return true;
}

bool LoadGraph(const GraphArguments& arguments, const std::set<std::string>& variable,
    const std::shared_ptr<host::Modules>& modules, const Streams& streams, host::Graph& graph)
{
    host::GraphOptions options;
    if (!TakeGraphOptions(arguments, streams, options))
        return false;
    options.variable = variable;
    host::Diagnostics diagnostics;
    std::string text;
    bool isGood = host::ReadFile(arguments.file, host::JsonLimits().bytes, text, diagnostics) &&
                  host::LoadGraph(text, modules, options, diagnostics, graph);
    isGood = isGood && !(streams.isStrict && diagnostics.HasWarnings());
    PrintDiagnostics(streams, arguments.file, diagnostics);
    if (isGood)
    {
        for (const std::string& file : graph.document.files)
            PrintNote(streams, fmt::format("{} uses {}", arguments.file, file));
        PrintNote(streams,
            fmt::format("{}: {} nodes, {} core nodes, {} outputs", arguments.file, graph.document.nodeNames.size(),
                graph.document.graph.nodes.size(), graph.document.graph.outputs.size()));
    }
    return isGood;
}

bool HasTime(const GraphArguments& arguments, const host::Graph& graph, const Streams& streams)
{
    if (streams.isVerbose)
        PrintNote(streams, fmt::format("{}: evaluations of nodes a sample: about {:.2g}", arguments.file,
                               host::EstimateWork(*graph.program).sum));
    const std::string complaint = arguments.force ? std::string() : host::WorkComplaint(*graph.program);
    if (!complaint.empty())
        PrintError(streams, fmt::format("{}: {}", arguments.file, complaint));
    return complaint.empty();
}

bool HasMemory(const GraphArguments& arguments, const host::Graph& graph,
    const std::vector<host::ShownPicture>& pictures, const Streams& streams)
{
    const std::string complaint = host::MemoryComplaint(host::MemoryDemands(graph, pictures));
    if (!complaint.empty())
        PrintError(streams, fmt::format("{}: {}", arguments.file, complaint));
    return complaint.empty();
}

bool HasOutputs(const GraphArguments& arguments, const host::Graph& graph, const Streams& streams)
{
    if (graph.program->outputs.empty())
        PrintError(streams, fmt::format("{}: material: drives no channel: give an input of the material or of a layer",
                                arguments.file));
    return !graph.program->outputs.empty();
}

} // namespace velto::cli
