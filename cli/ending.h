// How the command ends before its time: by a signal, when its time is over, or without memory.
#pragma once

namespace velto::cli
{

// From here on INT, TERM, HUP and QUIT end the process at once, by the signal, wherever it is, and leave no unfinished
// file. Ignored signals stay ignored.
void EndBySignals();

// Ends the process with status 1, as a signal would, once the time is over.
void EndAfter(double seconds);

// Exceptions that nothing catches end the process with a message and status 1.
void EndWithoutAbort();

} // namespace velto::cli
