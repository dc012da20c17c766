// Takes from this process whatever decoding does not need.
#pragma once

#include <sys/resource.h>

namespace velto::host
{

struct SandboxLimits
{
    rlim_t memoryBytes;
    rlim_t cpuSeconds;
};

// Leaves it to read one file at any place, to read and write one socket, to ask for memory that holds no code, and to
// end. Any other call of the system ends it. False, and why in `errno`, where that cannot be had.
bool EnterSandbox(int file, int socket, const SandboxLimits& limits);

} // namespace velto::host
