// Single samples: a list of them in, what they give out, as JSON.
#pragma once

#include "host/runtime/graph.h"

namespace velto::host
{

// The inputs that a list of samples changes on its way.
std::set<std::string> VariableInputs(const Json& samples);

// Runs all samples in order on one instance. The result is `{"results": [...]}`, an entry a sample; `anyFailed` tells
// whether one has an error. False and diagnostics when the samples themselves are wrong.
bool EvaluateSamples(
    Graph& graph, const Json& samples, bool withCounts, Diagnostics& diagnostics, Json& results, bool& anyFailed);

} // namespace velto::host
