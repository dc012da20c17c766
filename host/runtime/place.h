#pragma once

#include "settle.h"

namespace velto::host
{

// Places what the outputs need of a settled graph in bodies and stores.
Result PlaceGraph(const CoreGraph& source, const CompileOptions& options, SettledGraph& settled, Program& program);

} // namespace velto::host
