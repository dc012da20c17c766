// How the command ends before its time: by a signal, when its time is over, or without memory.
#pragma once

namespace velto::cli
{

// From here on INT, TERM, HUP and QUIT end the process at once, by the signal, wherever it is, and nothing of a file
// is left. Ignored signals stay ignored.
void EndBySignals();

// Ends the process with status 1, as a signal would, once the time is over.
void EndAfter(double seconds);

// What nobody catches ends it with a message and status 1.
void EndWithoutAbort();

} // namespace velto::cli
