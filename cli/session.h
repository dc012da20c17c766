// What all commands share: streams, exit statuses, modules, documents.
#pragma once

#include "host/host.h"

#include <atomic>
#include <filesystem>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace velto::cli
{

struct Streams
{
    std::ostream& out; // results, and nothing but results
    std::ostream& err;
    bool isErrTerminal = false;
    bool isStrict = false; // warnings are errors
    bool isQuiet = false;  // errors only
    bool isVerbose = false;
    std::atomic<std::size_t>* warnings = nullptr; // counts them
    std::vector<std::string>* warningTexts = nullptr;
};

enum Exit : int
{
    kSuccess = 0,
    kFailed = 1,    // the work failed
    kWrongInput = 2 // the command line or a document is wrong
};

// Prints one line, `velto: error: ...`. Characters that would break the line or a terminal are escaped.
void PrintError(const Streams& streams, std::string_view text);
void PrintWarning(const Streams& streams, std::string_view text);
void PrintNote(const Streams& streams, std::string_view text); // with --verbose

// While this lives, the host's output goes to the command's streams. Of equal lines the first is printed, and at last
// how many there were.
class HostOutput
{
public:
    explicit HostOutput(const Streams& streams);
    ~HostOutput();
    HostOutput(const HostOutput&) = delete;
    HostOutput& operator=(const HostOutput&) = delete;

private:
    static constexpr std::size_t kMostLines = 1000; // that are told apart

    const Streams& streams_;
    std::map<std::string, std::size_t> counts_;
};

// A line for each: `velto: error: FILE: PLACE: TEXT`, and who uses the file if it is not the one asked for.
void PrintDiagnostics(const Streams& streams, const std::string& file, const host::Diagnostics& diagnostics);

struct ModuleOptions
{
    std::vector<std::string> files; // beside those of the folder next to the executable
};

// Loads the modules; an error is printed.
bool LoadModules(const ModuleOptions& options, const Streams& streams, std::shared_ptr<host::Modules>& modules);

// Appends the directories that the environment names.
void AddLibraries(std::vector<std::string>& libraries);

struct GraphArguments
{
    std::string file;
    int renderMode = 0;
    std::vector<std::string> searchPaths;
    std::vector<std::string> libraries;
    std::vector<std::string> presets;
    std::vector<std::string> settings; // NODE.PORT=VALUE or PARAMETER=VALUE
    std::string files;                 // any or below; empty: as the document comes
    bool warnsOutsideLimits = false;
    std::vector<std::string> outputs; // that are wanted; empty: all
    int textureMemory = 2048;         // megabytes
    int memory = 0;                   // megabytes; 0: most of what there is
    bool force = false;               // however much work a sample is
};

// The directory with the modules, their resources and the editor's page.
std::filesystem::path HomeDirectory();

// How the documents of a command are read, and what they may take, from now on; an error is printed.
bool TakeGraphOptions(const GraphArguments& arguments, const Streams& streams, host::GraphOptions& options);

// Reads a graph with its settings; errors are printed, and warnings.
bool LoadGraph(const GraphArguments& arguments, const std::set<std::string>& variable,
    const std::shared_ptr<host::Modules>& modules, const Streams& streams, host::Graph& graph);

// Whether there is anything to evaluate. If a material drives no channel, an error is printed.
bool HasOutputs(const GraphArguments& arguments, const host::Graph& graph, const Streams& streams);

// Whether the work of a sample is within the limit. If not, the reason is printed; the estimate is a note.
bool HasTime(const GraphArguments& arguments, const host::Graph& graph, const Streams& streams);

// Whether the budget covers what the graph needs. If not, the largest demands are printed.
bool HasMemory(const GraphArguments& arguments, const host::Graph& graph,
    const std::vector<host::ShownPicture>& pictures, const Streams& streams);

} // namespace velto::cli
