// How values of a type become the channels of a picture.
#pragma once

#include "velto/datatype.h"

namespace velto::host
{

struct Channels
{
    const DataType* type;
    int count;
    void (*add)(const void* value, double* sums);
};

// Null where values of the type are no pixels.
const Channels* FindChannels(const DataType* type);

} // namespace velto::host
