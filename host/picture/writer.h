// Writes a picture row by row to a file that takes its name at the end.
#pragma once

#include "layout.h"

#include "velto/result.h"

#include <memory>
#include <span>
#include <string>

namespace velto::host
{

class NewFile;

class PictureWriter
{
public:
    virtual ~PictureWriter() = default;

    // Writes the next rows: `rowCount` times width times channels of linear floats.
    virtual Result WriteRows(const float* rows, int rowCount) = 0;

    // After the last row: the file is whole and on the disk, without its name.
    virtual Result Complete() = 0;

    // Gives complete files their names: to all of them or, with an error, to none.
    static Result PutInPlace(std::span<const std::unique_ptr<PictureWriter>> writers);

    // The suffix of `file` is the format; `-` is standard output, and `format` a suffix. Without `PutInPlace` nothing
    // of the file is left when the writer goes.
    static Result Open(const std::string& file, const std::string& format, const PictureLayout& layout,
        const PictureEncoding& encoding, std::unique_ptr<PictureWriter>& writer);

private:
    virtual NewFile& File() = 0;
};

} // namespace velto::host
