// Makes requests for memory fail, one after another.
#pragma once

#include "velto/result.h"

#include <functional>

namespace velto::test
{

// The two allocators that the host has.
enum class Memory
{
    Modules,
    Containers,
};

// Runs `work` with its n-th request failing, for every n, or every `step`-th, until none is left to fail. It fails as
// out of memory then, or it succeeds.
void SweepMemory(Memory memory, const std::function<void()>& prepare, const std::function<Result()>& work,
    const std::function<void(const Result&)>& check, Int step = 1);

} // namespace velto::test
