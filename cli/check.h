// `velto check`: reads and builds a graph, evaluates nothing.
#pragma once

#include "session.h"

namespace velto::cli
{

struct CheckArguments
{
    ModuleOptions modules;
    GraphArguments graph;
};

int Check(const CheckArguments& arguments, const Streams& streams);

} // namespace velto::cli
