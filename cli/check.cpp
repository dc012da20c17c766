#include "check.h"

namespace velto::cli
{

int Check(const CheckArguments& arguments, const Streams& streams)
{
    std::shared_ptr<host::Module> module;
    if (!LoadModule(arguments.module, streams, module))
        return kFailed;
    host::Graph graph;
    return LoadGraph(arguments.graph, {}, module, streams, graph) ? kSuccess : kWrongInput;
}

} // namespace velto::cli
