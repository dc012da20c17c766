// From linear floats to what a file stores.
#pragma once

#include "encoder.h"

namespace velto::host
{

// A row of `layout.width` pixels of `layout.channels` floats: encoded, rounded to the nearest stored value, channels
// that the format has no place for left out.
void StoreRow(const StoredPicture& picture, const float* row, std::byte* stored);

} // namespace velto::host
