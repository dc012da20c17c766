// From a document to a graph that can be sampled.
#pragma once

#include "instance.h"

#include "host/graph/document.h"
#include "host/system/message.h"

#include <set>

namespace velto::host
{

struct GraphOptions
{
    RenderMode renderMode;
    std::string file;                     // the document's, for what it names; empty: it has none
    std::vector<std::string> searchPaths; // directories, in order
    std::vector<std::string> libraries;   // directories of documents that go by their names
    std::vector<std::string> presets;     // in order
    std::vector<Setting> settings;        // after the presets
    bool warnsOutsideLimits = false;      // of values that descriptions call unusual
    // Inputs that will be changed between samples, `NODE.PORT`, and parameters.
    std::set<std::string> variable;
    std::set<std::string> outputs; // those that are wanted; empty: all
};

// A document with the program made of it and what it computes once. Not yet run: see `Setup::Run`.
struct Graph
{
    GraphDocument document;
    std::shared_ptr<const SearchPathsType> searchPaths;
    std::shared_ptr<RenderMessages> messages = std::make_shared<RenderMessages>();
    RenderMode renderMode;
    std::set<std::string> variable; // as in its options
    std::shared_ptr<const Program> program;
    std::unique_ptr<Setup> setup;
};

// Reads a document and compiles it. The program keeps `module`, whose nodes it runs, loaded. False and diagnostics when
// it is wrong; warnings may come with success.
bool LoadGraph(std::string_view json, std::shared_ptr<const void> module, const GraphOptions& options,
    Diagnostics& diagnostics, Graph& graph);

// The same for a document that a program makes: what it leaves out has the defaults of the described nodes.
bool LoadDocument(const Json& json, std::shared_ptr<const void> module, const GraphOptions& options,
    Diagnostics& diagnostics, Graph& graph);

// Makes the program and the setup anew, of the document's graph and the variable inputs as they are now. On error they
// stay as they were.
Result Recompile(Graph& graph);

} // namespace velto::host
