// `velto merge`: the parts of a bake to the files that it would have written whole.
#pragma once

#include "bakeplan.h"

namespace velto::cli
{

struct MergeArguments
{
    BakeArguments bake;             // of the graph whose parts are merged; without a graph only the file matters
    std::vector<std::string> files; // a graph, or parts
    bool removeParts = false;
};

int Merge(const MergeArguments& arguments, const Streams& streams);

} // namespace velto::cli
