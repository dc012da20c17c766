// The label of the step that registers the descriptions.
#pragma once

#include "velto/unit.h"

namespace velto
{

extern LabelRecord databaseRegister;

} // namespace velto
