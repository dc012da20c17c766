#include "edit.h"

#include "editor/server/server.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ostream>

namespace velto::cli
{

namespace
{

// What a file holds that is not there yet: something to look at, and to turn.
constexpr const char* kNewDocument = R"({
  "version": 1,
  "nodes": {
    "cloud": { "type": "noise", "inputs": { "octaves": 6 } },
    "tint": {
      "type": "gradient",
      "inputs": {
        "input": { "from": "cloud.result" },
        "gradient": [
          { "position": 0.1, "color": [0.02, 0.1, 0.2, 1] },
          { "position": 0.7, "color": [0.95, 0.85, 0.65, 1] }
        ]
      }
    }
  },
  "outputs": { "color": "tint.result" }
}
)";

// Whoever has no browser has the address.
void OpenBrowser(const std::string& address)
{
    const char* const browser = std::getenv("BROWSER");
    std::string program = browser && *browser ? browser : "xdg-open";
    std::string argument = address;
    char* const words[] = {program.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t silent;
    posix_spawn_file_actions_init(&silent);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&silent, stream, "/dev/null", O_RDWR, 0);
    pid_t child = 0;
    posix_spawnp(&child, program.c_str(), &silent, nullptr, words, environ);
    posix_spawn_file_actions_destroy(&silent);
}

std::string Catalogue()
{
    const host::NodeCatalog catalog;
    host::Json list = host::Json::Array();
    for (const auto& type : catalog.Described())
        list.Append(host::DescribeNode(*type));
    return list.Write();
}

} // namespace

int Edit(const EditArguments& arguments, const Streams& streams)
{
    GraphArguments graph = arguments.graph;
    if (graph.file.empty())
        graph.file = "untitled.json";
    if (graph.file == "-")
    {
        PrintError(streams, "expected the file of a graph, got standard input");
        return kWrongInput;
    }
    if (graph.files.empty())
        graph.files = "below"; // what the page sends is nobody's word
    if (arguments.isView && ::access(graph.file.c_str(), R_OK) != 0)
    {
        PrintError(streams, fmt::format("{} cannot be read", graph.file));
        return kWrongInput;
    }
    host::GraphOptions options;
    if (!TakeGraphOptions(graph, streams, options))
        return kWrongInput;
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.modules, streams, modules))
        return kFailed;

    editor::DocumentFile document;
    host::Diagnostics diagnostics;
    if (!document.Open(graph.file, kNewDocument, diagnostics))
    {
        PrintDiagnostics(streams, graph.file, diagnostics);
        return kWrongInput;
    }
    editor::Evaluator evaluator(modules, options, arguments.threads, arguments.graph.force);
    editor::ServerOptions served;
    served.port = arguments.port;
    served.isView = arguments.isView;
    served.version = "velto " VELTO_VERSION;
    served.page = HomeDirectory() / "editor";
    served.nodes = Catalogue();
    served.pictureFolders.push_back(std::filesystem::path(document.Path()).parent_path());
    for (const std::string& folder : options.searchPaths)
    {
        const std::filesystem::path absolute = std::filesystem::absolute(folder).lexically_normal();
        if (absolute != served.pictureFolders.front())
            served.pictureFolders.push_back(absolute);
    }
    editor::Server server(std::move(served), document, evaluator);
    std::string error;
    if (!server.Listen(error))
    {
        PrintError(streams, error);
        return kFailed;
    }
    streams.out << server.Address() << std::endl;
    if (!arguments.opensNoBrowser)
        OpenBrowser(server.Address());
    server.Run(); // until a signal ends the command
    return kFailed;
}

} // namespace velto::cli
