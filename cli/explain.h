// `velto explain`: what a bake costs before it runs.
#pragma once

#include "bakeplan.h"

namespace velto::cli
{

struct ExplainArguments
{
    BakeArguments bake;
    int shards = 1;
    bool json = false;
};

int Explain(const ExplainArguments& arguments, const Streams& streams);

} // namespace velto::cli
