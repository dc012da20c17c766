// The thread that runs, and what failed on it.
#pragma once

#include "velto/result.h"

namespace velto::host
{

// Tells threads apart by its address.
inline constinit thread_local char threadMark = 0;

// The index of the node at which the last run of this thread failed, or -1.
inline constinit thread_local Int failedNode = -1;

// Blame the innermost node that returned the error. An error that a caller dropped gives way to the next one.
void NoteFailure(UInt32 node, const Result& error);

} // namespace velto::host
