// Errors, and "Stop: " diagnostics.
#pragma once

#include "velto/system.h"

namespace velto::host
{

const ErrorInterface& ErrorService();

} // namespace velto::host
