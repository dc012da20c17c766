// The allocator of everything that modules own.
#pragma once

#include "velto/system.h"

namespace velto::host
{

// Makes requests fail on purpose, to see that every failure is reported and nothing is lost.
class AllocationFault
{
public:
    // From now on, the `n`-th request from here (from 0) fails, and so do those after it where `andAllAfter` is set.
    static void FailAt(Int n, bool andAllAfter = false);
    static void Disarm();

    // Requests since `FailAt`.
    static Int Requests();

    // Counts a request; true: it is to fail. For allocators of a test's own, too.
    static bool Strikes();
};

// No block is larger than this, or a document of a few lines could ask for more than the machine has: systems grant it,
// and end the process when it is used. A raster of 16,384 pixels a side fits.
inline constexpr UInt kMostBytes = UInt(8) << 30;

const SystemInterface& SystemService();

} // namespace velto::host
