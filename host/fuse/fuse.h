// A program compiled as one: what its bodies do over many samples, as machine code. Bits are those of calls.
#pragma once

#include "host/runtime/instance.h"
#include "host/runtime/kernel.h"

#include <string>

namespace velto::host
{

struct FuseOptions
{
    std::string processor;                   // whose instructions may be used, as LLVM names it; empty: this one
    const std::atomic<bool>* stop = nullptr; // true: give up soon
};

struct FuseReport
{
    std::string reason; // why there is no kernel
    double seconds = 0.0;
    UInt directCalls = 0;
    UInt foreignCalls = 0;
};

// Whether there is a library that compiles.
bool CanFuse();

// How long compiling takes, roughly.
double ExpectedFuseSeconds(const Program& program);

// [any thread] Compiles a program, whose setup has run and stays as it is, for samples of one shape. What nodes keep
// starts from `start`. Null, and why, where that cannot be: calls give the same then. The setup outlives the kernel.
std::shared_ptr<const SampleKernel> Fuse(Setup& setup, const ShadingContext& start, const SampleShape& shape,
    const FuseOptions& options, FuseReport& report);

} // namespace velto::host
