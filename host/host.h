// The front door of the host: from a document to a graph that can be sampled.
//
//     velto::host::SetResourceDirectory("resource");
//     std::shared_ptr<velto::host::Module> module;
//     velto::host::Module::Load("modules/shadernodes.module", module);
//     velto::host::Graph graph;
//     velto::host::Diagnostics diagnostics;
//     if (velto::host::LoadGraph(text, module, {}, diagnostics, graph)) ...
//     graph.setup->Run();
//     std::unique_ptr<velto::host::Instance> instance; // one a thread
//     velto::host::Instance::Create(*graph.setup, instance);
//     instance->Context().uvw = {u, v, 0};
//     instance->Evaluate();
#pragma once

#include "host/graph/document.h"
#include "host/loader/module.h"
#include "host/render/message.h"
#include "host/runtime/instance.h"
#include "host/text/url.h"

#include <set>

namespace velto::host
{

struct GraphOptions
{
    RenderMode renderMode;
    std::vector<std::string> searchPaths; // directories, in order
    std::vector<Setting> settings;
    // Inputs that will be changed between samples, `NODE.PORT`.
    std::set<std::string> variable;
    std::set<std::string> outputs; // those that are wanted; empty: all
};

// A document with the program made of it and what it computes once. Not yet run: see `Setup::Run`.
struct Graph
{
    GraphDocument document;
    std::shared_ptr<const SearchPathsType> searchPaths;
    std::shared_ptr<RenderMessages> messages = std::make_shared<RenderMessages>();
    std::shared_ptr<const Program> program;
    std::unique_ptr<Setup> setup;
};

// Reads a document and compiles it. False and diagnostics when it is wrong; warnings may come with success.
bool LoadGraph(std::string_view json, const std::shared_ptr<Module>& module, const GraphOptions& options,
    Diagnostics& diagnostics, Graph& graph);

} // namespace velto::host
