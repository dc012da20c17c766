// The cell noise of the render framework.
#pragma once

#include "velto/noise.h"

namespace velto::host
{

const NoiseInterface& NoiseService();

} // namespace velto::host
