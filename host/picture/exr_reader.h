// Reads back the plain OpenEXR files of 32-bit floats that we write: parts of a picture. Anything else is refused.
#pragma once

#include "layout.h"

#include "velto/result.h"

#include <memory>
#include <string>

namespace velto::host
{

class ExrReader
{
public:
    virtual ~ExrReader() = default;

    const PictureLayout& Layout() const { return layout_; }
    // Of the attributes that are texts; empty where there is none of that name.
    std::string Attribute(const std::string& name) const;

    // The next rows, channels interleaved.
    virtual Result ReadRows(float* rows, int rowCount) = 0;

    // A file that was cut is found here.
    static Result Open(const std::string& file, std::unique_ptr<ExrReader>& reader);

protected:
    PictureLayout layout_;
};

} // namespace velto::host
