#include "session.h"

#include "host/text/url.h"
#include "host/texture/texture.h"

#include <fmt/format.h>

#include <filesystem>
#include <ostream>

namespace velto::cli
{

namespace
{

constexpr const char* kModuleFile = "modules/shadernodes.module";

std::filesystem::path ExecutableDirectory()
{
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

// The directory with the modules and their resources: that of the command, or the one it is installed for.
std::filesystem::path HomeDirectory()
{
    const std::filesystem::path beside = ExecutableDirectory();
    const std::filesystem::path installed = (beside / VELTO_INSTALLED_DIRECTORY).lexically_normal();
    std::error_code ignored;
    const bool isInstalled = !std::filesystem::exists(beside / kModuleFile, ignored) &&
                             std::filesystem::exists(installed / kModuleFile, ignored);
    return isInstalled ? installed : beside;
}

} // namespace

void PrintError(const Streams& streams, std::string_view text)
{
    streams.err << "velto: error: " << text << '\n';
}

void PrintWarning(const Streams& streams, std::string_view text)
{
    streams.err << "velto: warning: " << text << '\n';
}

void PrintDiagnostics(const Streams& streams, const std::string& file, const host::Diagnostics& diagnostics)
{
    for (const host::Diagnostic& diagnostic : diagnostics.All())
    {
        const std::string line = diagnostic.place.empty()
                                     ? fmt::format("{}: {}", file, diagnostic.text)
                                     : fmt::format("{}: {}: {}", file, diagnostic.place, diagnostic.text);
        if (diagnostic.isWarning)
            PrintWarning(streams, line);
        else
            PrintError(streams, line);
    }
}

bool LoadModule(const ModuleOptions& options, const Streams& streams, std::shared_ptr<host::Module>& module)
{
    const std::filesystem::path file =
        options.file.empty() ? HomeDirectory() / kModuleFile : std::filesystem::path(options.file);
    host::SetResourceDirectory(file.parent_path().parent_path() / "resource");
    const Result loaded = host::Module::Load(file, module);
    if (loaded.IsError())
        PrintError(streams, loaded.Message());
    return loaded.IsOk();
}

bool LoadGraph(const GraphArguments& arguments, const std::set<std::string>& variable,
    const std::shared_ptr<host::Module>& module, const Streams& streams, host::Graph& graph)
{
    host::GraphOptions options;
    options.renderMode.value = arguments.renderMode;
    options.searchPaths = arguments.searchPaths;
    // Files are also looked for beside the document.
    if (arguments.file != "-")
        options.searchPaths.push_back(std::filesystem::absolute(arguments.file).parent_path().string());
    options.variable = variable;
    options.outputs = {arguments.outputs.begin(), arguments.outputs.end()};
    if (arguments.memory > 0)
        host::SetMemoryBudget(static_cast<UInt>(arguments.memory) << 20);
    host::SetTextureMemory(static_cast<UInt>(arguments.textureMemory) << 20);
    for (const std::string& text : arguments.settings)
    {
        host::Setting setting;
        if (!host::ParseSetting(text, setting))
        {
            PrintError(streams, fmt::format("--set {}: expected NODE.PORT=VALUE", text));
            return false;
        }
        options.settings.push_back(std::move(setting));
    }
    host::Diagnostics diagnostics;
    std::string text;
    const bool isGood = host::ReadFile(arguments.file, host::JsonLimits().bytes, text, diagnostics) &&
                        host::LoadGraph(text, module, options, diagnostics, graph);
    PrintDiagnostics(streams, arguments.file, diagnostics);
    return isGood;
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
