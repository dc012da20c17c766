// The one table of interned strings.
#pragma once

#include "velto/system.h"

#include <string_view>

namespace velto::host
{

// [any thread] The interned id of `text`; empty for the empty text. Lives until the process ends.
InternedId Intern(std::string_view text);

} // namespace velto::host
