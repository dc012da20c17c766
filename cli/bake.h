// `velto bake`: a graph to image files.
#pragma once

#include "bakeplan.h"

namespace velto::cli
{

int Bake(const BakeArguments& arguments, const Streams& streams);

} // namespace velto::cli
