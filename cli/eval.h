// `velto eval`: single samples, as JSON.
#pragma once

#include "session.h"

namespace velto::cli
{

struct EvalArguments
{
    ModuleOptions module;
    GraphArguments graph;
    std::string samples; // file, `-` for standard input; empty: one sample in the middle
    bool counts = false;
};

int Eval(const EvalArguments& arguments, const Streams& streams);

} // namespace velto::cli
