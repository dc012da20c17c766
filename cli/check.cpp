#include "check.h"

namespace velto::cli
{

int Check(const CheckArguments& arguments, const Streams& streams)
{
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.modules, streams, modules))
        return kFailed;
    GraphArguments asked = arguments.graph;
    asked.warnsOutsideLimits = true;
    host::Graph graph;
    if (!LoadGraph(asked, {}, modules, streams, graph))
        return kWrongInput;
    host::Diagnostics diagnostics;
    const std::vector<host::ShownPicture> pictures = host::LookForPictures(graph, diagnostics);
    PrintDiagnostics(streams, arguments.graph.file, diagnostics);
    if (streams.isStrict && diagnostics.HasWarnings())
        return kWrongInput;
    const bool hasTime = HasTime(arguments.graph, graph, streams);
    return HasMemory(arguments.graph, graph, pictures, streams) && hasTime ? kSuccess : kFailed;
}

} // namespace velto::cli
