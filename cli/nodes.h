// `velto nodes`: what documents may use.
#pragma once

#include "session.h"

namespace velto::cli
{

struct NodesArguments
{
    ModuleOptions modules;
    std::vector<std::string> words; // a node's id, a document, or words to look for; empty: all
    std::vector<std::string> libraries;
    bool core = false;
    bool json = false;
};

int Nodes(const NodesArguments& arguments, const Streams& streams);

} // namespace velto::cli
