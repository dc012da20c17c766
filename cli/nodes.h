// `velto nodes`: what documents may use.
#pragma once

#include "session.h"

namespace velto::cli
{

struct NodesArguments
{
    ModuleOptions module;
    std::string id; // empty: all
    bool core = false;
    bool json = false;
};

int Nodes(const NodesArguments& arguments, const Streams& streams);

} // namespace velto::cli
