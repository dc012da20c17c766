// `velto inspect`: a graph's root after its set-up, as JSON.
#pragma once

#include "session.h"

namespace velto::cli
{

struct InspectArguments
{
    ModuleOptions modules;
    GraphArguments graph;
};

int Inspect(const InspectArguments& arguments, const Streams& streams);

} // namespace velto::cli
