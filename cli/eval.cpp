#include "eval.h"

#include "host/bake/samples.h"

#include <ostream>

namespace velto::cli
{

int Eval(const EvalArguments& arguments, const Streams& streams)
{
    host::Diagnostics diagnostics;
    std::string text = R"([{"uvw": [0.5, 0.5, 0]}])";
    host::Json samples;
    const bool isGood =
        (arguments.samples.empty() || host::ReadFile(arguments.samples, host::JsonLimits().bytes, text, diagnostics)) &&
        host::ReadJson(text, samples, diagnostics) && !diagnostics.HasFaults();
    if (!isGood)
    {
        PrintDiagnostics(streams, arguments.samples, diagnostics);
        return kWrongInput;
    }

    std::shared_ptr<host::Module> module;
    if (!LoadModule(arguments.module, streams, module))
        return kFailed;
    host::Graph graph;
    if (!LoadGraph(arguments.graph, host::VariableInputs(samples), module, streams, graph) ||
        !HasOutputs(arguments.graph, graph, streams))
        return kWrongInput;
    host::Json results;
    bool anyFailed = false;
    if (!host::EvaluateSamples(graph, samples, arguments.counts, diagnostics, results, anyFailed))
    {
        PrintDiagnostics(streams, arguments.samples, diagnostics);
        return kWrongInput;
    }
    streams.out << results.Write(true) << '\n';
    return anyFailed ? kFailed : kSuccess;
}

} // namespace velto::cli
