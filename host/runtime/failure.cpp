#include "failure.h"

namespace velto::host
{

namespace
{

thread_local Result failure; // of the node at which the last run failed

} // namespace

void NoteFailure(UInt32 node, const Result& error)
{
    if (failedNode >= 0 && failure.Error() == error.Error())
        return;
    failedNode = node;
    failure = error;
}

} // namespace velto::host
