// An estimate of the work of one sample, before it is done.
#pragma once

#include "host/runtime/program.h"

#include <string>
#include <string_view>

namespace velto::host
{

// The most evaluations for one sample that are made unless the user insists.
inline constexpr double kMostEvaluations = 1e9;

// The sample is one of the outputs, or of a raster or table of the set-up if that takes more.
struct WorkEstimate
{
    std::vector<double> evaluations; // of each node, by its place among the program's names
    double sum = 0.0;
};

// Multiplies through function-valued inputs: what a node invokes ten times is evaluated ten times. It goes by the
// constants of the document; a number that is linked counts as one invocation.
WorkEstimate EstimateWork(const Program& program);

// Empty if the work of a sample is within the limit, or else a text that names the three nodes that run most often, and
// by what users insist.
std::string WorkComplaint(const Program& program, std::string_view insistence = "--force");

} // namespace velto::host
