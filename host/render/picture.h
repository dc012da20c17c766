// Writes a picture row by row, to a temporary file that takes its name at the end.
#pragma once

#include "bake.h"

#include <memory>

namespace velto::host
{

class PictureWriter
{
public:
    virtual ~PictureWriter() = default;

    // Writes the next rows: `rowCount` times width times channels.
    virtual Result WriteRows(const float* rows, int rowCount) = 0;

    // Puts the finished file in place.
    virtual Result Finish() = 0;

    // `channels` of 32-bit floats, linear; encoded as the options and the format say. Without `Finish` nothing of the
    // file is left when the writer goes.
    static Result Open(const std::string& file, int width, int height, int channels, const BakeOptions& options,
        std::unique_ptr<PictureWriter>& writer);
};

} // namespace velto::host
