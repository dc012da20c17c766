// Strings: UTF-8, counted in code points, copied on write.
#pragma once

#include "velto/string.h"

#include <string_view>

namespace velto::host
{

// A new string. Illegal argument when `text` is not UTF-8, out of memory.
Result MakeString(std::string_view text, String& string);

const StringInterface& StringService();

} // namespace velto::host
