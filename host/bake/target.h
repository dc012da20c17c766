// Where a bake's pixels go.
#pragma once

#include "host/picture/writer.h"

#include <string>

namespace velto::host
{

struct BakeWindow
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// One output to one file.
struct BakeTarget
{
    std::size_t output = 0;  // of the program
    std::string file;        // `-`: standard output
    std::string format = {}; // a suffix; empty: that of the file
};

} // namespace velto::host
