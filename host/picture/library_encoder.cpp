// The formats that the library of pictures encodes, on a stream that loses nothing unnoticed.
#include "encoder.h"
#include "format.h"

#include "velto/system.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <new>

namespace velto::host
{

namespace
{

OIIO::TypeDesc TypeOf(PixelDepth depth)
{
    switch (depth)
    {
    case PixelDepth::UInt16:
        return OIIO::TypeDesc::UINT16;
    case PixelDepth::Half:
        return OIIO::TypeDesc::HALF;
    case PixelDepth::Float:
        return OIIO::TypeDesc::FLOAT;
    default:
        return OIIO::TypeDesc::UINT8;
    }
}

class Stream : public OIIO::Filesystem::IOProxy
{
public:
    explicit Stream(NewFile& file) : IOProxy(file.Path(), Write), file_(file) {}

    const char* proxytype() const override { return "velto"; }
    std::size_t size() const override { return file_.Size(); }

    std::size_t write(const void* bytes, std::size_t count) override
    {
        const std::size_t written = pwrite(bytes, count, m_pos);
        m_pos += static_cast<std::int64_t>(written);
        return written;
    }
    std::size_t pwrite(const void* bytes, std::size_t count, std::int64_t offset) override
    {
        if (error_.IsOk())
            error_ = file_.Write(static_cast<UInt>(offset), bytes, count);
        return error_.IsOk() ? count : 0;
    }
    std::size_t read(void* bytes, std::size_t count) override
    {
        const std::size_t got = pread(bytes, count, m_pos);
        m_pos += static_cast<std::int64_t>(got);
        return got;
    }
    std::size_t pread(void* bytes, std::size_t count, std::int64_t offset) override
    {
        std::size_t got = 0;
        if (error_.IsOk())
            error_ = file_.Read(static_cast<UInt>(offset), bytes, count, got);
        return got;
    }

    // Formats go on after a failed write, and some say that all went well: this is what counts.
    const Result& Error() const { return error_; }

private:
    NewFile& file_;
    Result error_;
};

class LibraryEncoder : public PictureEncoder
{
public:
    LibraryEncoder(const StoredPicture& picture, NewFile& file) : picture_(picture), stream_(file) {}
    // What was begun and is given up is no loss of this file's alone: the format closes it in a stream that takes
    // nothing.
    ~LibraryEncoder() override { output_.reset(); }

    Result Create()
    {
        output_ = OIIO::ImageOutput::create(picture_.format->name);
        return output_ ? Result() : Fault(OIIO::geterror());
    }

    int BlockRows() const override { return 1; }

    Result WriteRows(const std::byte* rows, int rowCount) override
    {
        if (rowsDone_ == 0)
            VELTO_TRY(Begin());
        const int first = picture_.layout.y + rowsDone_;
        const bool isWritten = output_->write_scanlines(first, first + rowCount, 0, TypeOf(picture_.depth), rows);
        rowsDone_ += rowCount;
        return Check(isWritten);
    }

    Result Finish() override { return Check(output_->close()); }

private:
    // With the first rows, so that a picture that fails before them leaves the library no half-made one.
    Result Begin()
    {
        const PictureLayout& layout = picture_.layout;
        OIIO::ImageSpec spec(layout.width, layout.height, picture_.channels, TypeOf(picture_.depth));
        spec.x = layout.x;
        spec.y = layout.y;
        spec.full_width = layout.wholeWidth;
        spec.full_height = layout.wholeHeight;
        // Values are written as they are.
        spec.attribute("oiio:UnassociatedAlpha", 1);
        spec.attribute("DateTime", ""); // not now's: equal pictures are equal files
        const std::string_view format = picture_.format->name;
        // In a stream tiff would lose its first directory to the one with this in.
        if (format != "tiff" || !picture_.isSrgb)
            spec.attribute("oiio:ColorSpace", picture_.isSrgb ? "sRGB" : "Linear");
        if (format == "jpeg")
        {
            spec.attribute("Compression", "jpeg:95");
            spec.attribute("jpeg:subsampling", "4:4:4");
        }
        const std::string name = "picture." + picture_.suffix;
        if (!output_->set_ioproxy(&stream_))
            return Fault("the format writes no streams");
        VELTO_TRY(Check(output_->open(name, spec)));
        if (output_->spec().format != spec.format)
            return Fault(fmt::format("the format {} has no pixels of type {}", format, spec.format.c_str()));
        return {};
    }

    Result Check(bool isGood) const
    {
        if (stream_.Error().IsError())
            return stream_.Error();
        if (isGood)
            return {};
        std::string reason = output_->geterror();
        while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' '))
            reason.pop_back();
        return Fault(reason.empty() ? "the format gives no reason" : reason);
    }

    Result Fault(std::string_view reason) const
    {
        return MakeError(error::kIllegalState, fmt::format("{} cannot be written: {}", stream_.filename(), reason));
    }

    const StoredPicture picture_;
    Stream stream_;
    std::unique_ptr<OIIO::ImageOutput> output_;
    int rowsDone_ = 0;
};

} // namespace

Result MakeLibraryEncoder(const StoredPicture& picture, NewFile& file, std::unique_ptr<PictureEncoder>& encoder)
{
    if (std::string_view(picture.format->name) == "webp")
    {
        encoder = MakeWebpEncoder(picture, file);
        return {};
    }
    auto made = std::make_unique<LibraryEncoder>(picture, file);
    VELTO_TRY(made->Create());
    encoder = std::move(made);
    return {};
}

} // namespace velto::host
