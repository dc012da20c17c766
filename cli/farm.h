// `velto farm`: hands the parts of a bake, and what puts them together, to a scheduler.
#pragma once

#include "engine.h"
#include "session.h"

namespace velto::cli
{

struct FarmArguments
{
    std::string file;
    int shards = 0;
    std::string engine = "slurm";
    bool wait = false;
    bool dryRun = false;
    bool cancelOnInterrupt = false;
    std::vector<std::string> bakeArguments; // the graph and all options, as they were given
    std::vector<std::string> engineOptions;
};

int Farm(const FarmArguments& arguments, const Streams& streams);

} // namespace velto::cli
