// Worker threads.
#pragma once

#include "velto/jobqueue.h"

namespace velto::host
{

const JobQueueInterface& JobQueueService();
const ThreadServicesInterface& ThreadService();

} // namespace velto::host
