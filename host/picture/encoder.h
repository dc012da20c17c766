// One format's way from rows of stored pixels to bytes of a file.
#pragma once

#include "layout.h"

#include "host/system/newfile.h"

#include <memory>

namespace velto::host
{

struct PictureFormat;

// What a file holds, once the choices are made.
struct StoredPicture
{
    const PictureFormat* format;
    std::string suffix;
    PictureLayout layout;
    int channels; // that are stored
    PixelDepth depth;
    bool isSrgb;
    bool isNormal; // from -1 to 1, in integers

    std::size_t RowBytes() const;
};

class PictureEncoder
{
public:
    virtual ~PictureEncoder() = default;

    // How many rows it likes to get at once: what it gets begins at a multiple of it, and but for the last rows is one.
    virtual int BlockRows() const = 0;

    // [in an arena of tbb] The next rows, channels interleaved, integers and floats as this machine has them.
    virtual Result WriteRows(const std::byte* rows, int rowCount) = 0;

    // After the last row.
    virtual Result Finish() = 0;
};

std::unique_ptr<PictureEncoder> MakePngEncoder(const StoredPicture& picture, NewFile& file);
std::unique_ptr<PictureEncoder> MakeExrEncoder(const StoredPicture& picture, NewFile& file);
std::unique_ptr<PictureEncoder> MakeWebpEncoder(const StoredPicture& picture, NewFile& file);

// The other formats', which the library of pictures has.
Result MakeLibraryEncoder(const StoredPicture& picture, NewFile& file, std::unique_ptr<PictureEncoder>& encoder);

} // namespace velto::host
