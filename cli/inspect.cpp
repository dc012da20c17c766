#include "inspect.h"

#include <ostream>

namespace velto::cli
{

int Inspect(const InspectArguments& arguments, const Streams& streams)
{
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.modules, streams, modules))
        return kFailed;
    host::Graph graph;
    if (!LoadGraph(arguments.graph, {}, modules, streams, graph))
        return kWrongInput;
    streams.out << host::DescribeNodeSystem(host::AsHost(graph.document.root)).Write(true) << '\n';
    return kSuccess;
}

} // namespace velto::cli
