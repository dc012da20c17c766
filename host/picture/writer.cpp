#include "writer.h"

#include "host/system/guard.h"
#include "velto/srgb.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace velto::host
{

namespace
{

OIIO::TypeDesc FormatOf(PixelDepth depth, const std::string& format)
{
    switch (depth)
    {
    case PixelDepth::UInt8:
        return OIIO::TypeDesc::UINT8;
    case PixelDepth::UInt16:
        return OIIO::TypeDesc::UINT16;
    case PixelDepth::Half:
        return OIIO::TypeDesc::HALF;
    case PixelDepth::Float:
        return OIIO::TypeDesc::FLOAT;
    case PixelDepth::Default:
        break;
    }
    if (format == "openexr")
        return OIIO::TypeDesc::HALF;
    if (format == "hdr" || format == "pnm")
        return format == "hdr" ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8;
    return OIIO::TypeDesc::UINT8;
}

class Writer : public PictureWriter
{
public:
    ~Writer() override
    {
        output_.reset();
        std::error_code ignored;
        if (!temporary_.empty())
            std::filesystem::remove(temporary_, ignored);
    }

    Result Open(const std::string& file, int width, int height, int channels, const PictureEncoding& encoding)
    {
        file_ = file;
        const std::filesystem::path path(file);
        output_ = OIIO::ImageOutput::create(file);
        if (!output_)
            return Fault(error::kIllegalArgument, fmt::format("{}: {}", file, OIIO::geterror()));
        const std::string format = output_->format_name();
        channels_ = channels;
        writtenChannels_ = channels;
        if (channels == 4 && !output_->supports("alpha"))
            writtenChannels_ = 3;

        OIIO::ImageSpec spec(width, height, writtenChannels_, FormatOf(encoding.depth, format));
        // Values are written as they are.
        spec.attribute("oiio:UnassociatedAlpha", 1);
        const bool isReal = spec.format == OIIO::TypeDesc::HALF || spec.format == OIIO::TypeDesc::FLOAT;
        isSrgb_ = encoding.colorSpace == PictureColorSpace::Srgb ||
                  (encoding.colorSpace == PictureColorSpace::Default && !isReal);
        spec.attribute("oiio:ColorSpace", isSrgb_ ? "sRGB" : "Linear");
        if (format == "openexr" || format == "tiff")
            spec.attribute("DateTime", ""); // not now's: equal pictures are equal files
        if (format == "png")
            spec.attribute("png:compressionLevel", 6);
        if (format == "jpeg")
            spec.attribute("Compression", "jpeg:95");

        // In the same directory, so that the rename is one step; with the suffix that the format goes by.
        temporary_ = path.parent_path() /
                     fmt::format(".{}.{}.part{}", path.stem().string(), ::getpid(), path.extension().string());
        // A file that cannot be made is told before anything is sampled; the format begins it with the first rows, so
        // that a picture that fails at once leaves no half-made one to its library.
        if (!std::ofstream(temporary_))
            return Fault(error::kIllegalState, fmt::format("{} cannot be written: {}", file, std::strerror(errno)));
        spec_ = spec;
        depth_ = encoding.depth;
        width_ = width;
        return {};
    }

    Result Begin()
    {
        if (!output_->open(temporary_.string(), spec_))
            return Fault(error::kIllegalState, fmt::format("{} cannot be written: {}", file_, Reason()));
        if (output_->spec().format != spec_.format && depth_ != PixelDepth::Default)
            return Fault(error::kIllegalArgument, fmt::format("{}: the format {} has no pixels of type {}", file_,
                                                      output_->format_name(), spec_.format.c_str()));
        hasBegun_ = true;
        return {};
    }

    Result WriteRows(const float* rows, int rowCount) override
    {
        if (!hasBegun_)
            VELTO_TRY(Begin());
        const std::size_t pixels = static_cast<std::size_t>(width_) * static_cast<std::size_t>(rowCount);
        encoded_.resize(pixels * static_cast<std::size_t>(writtenChannels_));
        const int colorChannels = channels_ == 2 ? 1 : std::min(channels_, 3);
        float* to = encoded_.data();
        for (std::size_t i = 0; i < pixels; ++i, rows += channels_)
        {
            for (int c = 0; c < writtenChannels_; ++c)
                *to++ = isSrgb_ && c < colorChannels ? SrgbFromLinear(rows[c]) : rows[c];
        }
        if (!output_->write_scanlines(row_, row_ + rowCount, 0, OIIO::TypeDesc::FLOAT, encoded_.data()))
            return Fault(error::kIllegalState, fmt::format("{} cannot be written: {}", file_, Reason()));
        row_ += rowCount;
        return {};
    }

    Result Finish() override
    {
        if (!output_->close())
            return Fault(error::kIllegalState, fmt::format("{} cannot be written: {}", file_, Reason()));
        output_.reset();
        std::error_code failure;
        std::filesystem::rename(temporary_, file_, failure);
        if (failure)
            return Fault(error::kIllegalState, fmt::format("{} cannot be written: {}", file_, failure.message()));
        temporary_.clear();
        return {};
    }

private:
    static Result Fault(const Id& kind, std::string_view text) { return MakeError(kind, text); }

    std::string Reason() const
    {
        std::string reason = output_->geterror();
        while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' '))
            reason.pop_back();
        return reason.empty() ? "the disk may be full" : reason;
    }

    std::string file_;
    std::filesystem::path temporary_;
    std::unique_ptr<OIIO::ImageOutput> output_;
    OIIO::ImageSpec spec_;
    PixelDepth depth_ = PixelDepth::Default;
    bool hasBegun_ = false;
    std::vector<float> encoded_;
    int width_ = 0;
    int row_ = 0;
    int channels_ = 0;
    int writtenChannels_ = 0;
    bool isSrgb_ = false;
};

} // namespace

Result PictureWriter::Open(const std::string& file, int width, int height, int channels,
    const PictureEncoding& encoding, std::unique_ptr<PictureWriter>& writer)
{
    return Guarded([&]() -> Result {
        auto made = std::make_unique<Writer>();
        VELTO_TRY(made->Open(file, width, height, channels, encoding));
        writer = std::move(made);
        return {};
    });
}

} // namespace velto::host
