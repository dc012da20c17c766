// Where a bake's pixels go.
#pragma once

#include "host/picture/writer.h"
#include "velto/datatype.h"

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

// How many channels values of a type become; 0 where they are no pixels. What has two numbers gets a third, which is 0.
int ChannelsOf(const DataType* type);

// One output to one file, or into memory.
struct BakeTarget
{
    std::size_t output = 0; // of the program
    std::string file;       // `-`: standard output
    PictureAttributes attributes = {};
    bool isPart = false;     // floats as they are, not packed
    std::string format = {}; // a suffix; empty: that of the file
    float* pixels = nullptr; // not null: rows of the window go here, channels interleaved, and no file is written
};

// What was written for a target.
struct WrittenFile
{
    std::string path;
    std::size_t output = 0; // of the program
    int width = 0;
    int height = 0;
    int channels = 0;   // that were baked
    std::string pixels; // SHA-256 of the floats before encoding, row by row
};

} // namespace velto::host
