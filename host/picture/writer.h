// Writes a picture row by row, to a temporary file that takes its name at the end.
#pragma once

#include "velto/result.h"

#include <memory>
#include <string>

namespace velto::host
{

enum class PixelDepth
{
    Default, // by format
    UInt8,
    UInt16,
    Half,
    Float,
};

enum class PictureColorSpace
{
    Default, // sRGB for 8- and 16-bit files, linear for float files
    Srgb,
    Linear,
};

// How values become what stands in a file.
struct PictureEncoding
{
    PixelDepth depth = PixelDepth::Default;
    PictureColorSpace colorSpace = PictureColorSpace::Default;
};

class PictureWriter
{
public:
    virtual ~PictureWriter() = default;

    // Writes the next rows: `rowCount` times width times channels.
    virtual Result WriteRows(const float* rows, int rowCount) = 0;

    // Puts the finished file in place.
    virtual Result Finish() = 0;

    // `channels` of 32-bit floats, linear; encoded as `encoding` and the format say. Without `Finish` nothing of the
    // file is left when the writer goes.
    static Result Open(const std::string& file, int width, int height, int channels, const PictureEncoding& encoding,
        std::unique_ptr<PictureWriter>& writer);
};

} // namespace velto::host
