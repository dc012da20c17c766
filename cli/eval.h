// `velto eval`: single samples, as JSON.
#pragma once

#include "session.h"

namespace velto::cli
{

struct EvalArguments
{
    ModuleOptions modules;
    GraphArguments graph;
    std::string samples; // file, `-` for standard input; empty: one sample in the middle
    std::string pixel;   // X,Y; the sample is this one
    std::string size = "1024";
    bool counts = false;
};

int Eval(const EvalArguments& arguments, const Streams& streams);

} // namespace velto::cli
