// WebP, without loss and with the colours of transparent pixels kept: the library of pictures would bend both.
#include "encoder.h"

#include "velto/system.h"

#include <fmt/format.h>
#include <webp/encode.h>

namespace velto::host
{

namespace
{

constexpr int kEffort = 6; // of 9

class WebpEncoder : public PictureEncoder
{
public:
    WebpEncoder(const StoredPicture& picture, NewFile& file) : picture_(picture), file_(file)
    {
        WebPPictureInit(&pixels_);
    }
    ~WebpEncoder() override { WebPPictureFree(&pixels_); }
    WebpEncoder(const WebpEncoder&) = delete;
    WebpEncoder& operator=(const WebpEncoder&) = delete;

    int BlockRows() const override { return 1; }

    // The format has no rows: the picture is kept whole.
    Result WriteRows(const std::byte* rows, int rowCount) override
    {
        if (rowsDone_ == 0)
            VELTO_TRY(Begin());
        const auto* byte = reinterpret_cast<const std::uint8_t*>(rows);
        for (const int end = rowsDone_ + rowCount; rowsDone_ < end; ++rowsDone_)
        {
            std::uint32_t* const row = pixels_.argb + static_cast<std::ptrdiff_t>(rowsDone_) * pixels_.argb_stride;
            for (int x = 0; x < pixels_.width; ++x, byte += picture_.channels)
                row[x] = Pixel(byte);
        }
        return {};
    }

    Result Finish() override
    {
        WebPConfig config;
        if (!WebPConfigInit(&config) || !WebPConfigLosslessPreset(&config, kEffort))
            return Fault("the library of the format is of another version");
        config.exact = 1;
        config.thread_level = 1;
        pixels_.writer = &Write;
        pixels_.custom_ptr = this;
        const bool isWritten = WebPEncode(&config, &pixels_) != 0;
        if (error_.IsError())
            return error_;
        return isWritten ? Result() : Fault();
    }

private:
    Result Begin()
    {
        pixels_.use_argb = 1;
        pixels_.width = picture_.layout.width;
        pixels_.height = picture_.layout.height;
        if (pixels_.width > WEBP_MAX_DIMENSION || pixels_.height > WEBP_MAX_DIMENSION)
            return Fault(fmt::format("the format has at most {} pixels a side", WEBP_MAX_DIMENSION));
        return WebPPictureAlloc(&pixels_) ? Result() : Fault();
    }

    std::uint32_t Pixel(const std::uint8_t* channels) const
    {
        const bool isGray = picture_.channels < 3;
        const std::uint32_t red = channels[0];
        const std::uint32_t green = channels[isGray ? 0 : 1];
        const std::uint32_t blue = channels[isGray ? 0 : 2];
        const std::uint32_t alpha = picture_.channels % 2 == 0 ? channels[picture_.channels - 1] : 0xff;
        return alpha << 24 | red << 16 | green << 8 | blue;
    }

    static int Write(const std::uint8_t* bytes, std::size_t count, const WebPPicture* picture)
    {
        WebpEncoder& self = *static_cast<WebpEncoder*>(picture->custom_ptr);
        self.error_ = self.file_.Write(self.file_.Size(), bytes, count);
        return self.error_.IsOk() ? 1 : 0;
    }

    Result Fault() const
    {
        if (pixels_.error_code == VP8_ENC_ERROR_OUT_OF_MEMORY ||
            pixels_.error_code == VP8_ENC_ERROR_BITSTREAM_OUT_OF_MEMORY)
            return OutOfMemory();
        return Fault(fmt::format("the encoder failed with error {}", static_cast<int>(pixels_.error_code)));
    }

    Result Fault(const std::string& reason) const
    {
        return MakeError(error::kIllegalState, fmt::format("{} cannot be written: {}", file_.Path(), reason));
    }

    const StoredPicture picture_;
    NewFile& file_;
    WebPPicture pixels_{};
    Result error_;
    int rowsDone_ = 0;
};

} // namespace

std::unique_ptr<PictureEncoder> MakeWebpEncoder(const StoredPicture& picture, NewFile& file)
{
    return std::make_unique<WebpEncoder>(picture, file);
}

} // namespace velto::host
