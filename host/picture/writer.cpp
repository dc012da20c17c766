#include "writer.h"

#include "encoder.h"
#include "format.h"
#include "store.h"

#include "host/system/guard.h"

#include <fmt/format.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <filesystem>
#include <optional>

namespace velto::host
{

namespace
{

const char* NameOf(PixelDepth depth)
{
    switch (depth)
    {
    case PixelDepth::UInt16:
        return "uint16";
    case PixelDepth::Half:
        return "half";
    case PixelDepth::Float:
        return "float";
    default:
        return "uint8";
    }
}

class Writer : public PictureWriter
{
public:
    Result Open(const std::string& file, const std::string& suffix, const PictureLayout& layout,
        const PictureEncoding& encoding)
    {
        const bool isOutput = file == "-";
        std::string chosen = suffix;
        if (chosen.empty() && !isOutput)
            chosen = std::filesystem::path(file).extension().string();
        if (chosen.starts_with('.'))
            chosen.erase(0, 1);
        const PictureFormat* const format = FindPictureFormat(chosen);
        if (!format)
            return MakeError(
                error::kIllegalArgument, fmt::format("{}: {}; known are {}", file,
                                             chosen.empty() ? std::string("a format is missing")
                                                            : fmt::format("no format {} is written", chosen),
                                             PictureFormatNames()));
        StoredPicture picture{format, chosen, layout, layout.channels, encoding.depth, false, false};
        if (picture.layout.wholeWidth == 0)
        {
            picture.layout.wholeWidth = layout.width;
            picture.layout.wholeHeight = layout.height;
        }
        if (picture.depth == PixelDepth::Default)
            picture.depth = format->depths.front();
        if (std::find(format->depths.begin(), format->depths.end(), picture.depth) == format->depths.end())
            return MakeError(error::kIllegalArgument,
                fmt::format("{}: the format {} has no pixels of type {}", file, format->name, NameOf(picture.depth)));
        if (picture.channels == 4 && !format->hasAlpha)
            picture.channels = 3;
        const bool isReal = picture.depth == PixelDepth::Half || picture.depth == PixelDepth::Float;
        const bool isColor = encoding.content == PictureContent::Default || encoding.content == PictureContent::Color;
        picture.isSrgb = encoding.colorSpace == PictureColorSpace::Srgb ||
                         (encoding.colorSpace == PictureColorSpace::Default && isColor && !isReal);
        picture.isNormal = encoding.content == PictureContent::Normal && !isReal;
        VELTO_TRY(file_.Open(isOutput ? std::string() : file));
        if (std::string_view(format->name) == "png")
            encoder_ = MakePngEncoder(picture, file_);
        else if (std::string_view(format->name) == "openexr")
            encoder_ = MakeExrEncoder(picture, file_);
        else
            VELTO_TRY(MakeLibraryEncoder(picture, file_, encoder_));
        picture_.emplace(std::move(picture));
        return {};
    }

    Result WriteRows(const float* rows, int rowCount) override
    {
        const std::size_t rowBytes = picture_->RowBytes();
        const std::size_t waiting = waitingRows_ * rowBytes;
        const auto count = static_cast<std::size_t>(rowCount);
        stored_.resize(waiting + count * rowBytes);
        const auto rowFloats =
            static_cast<std::size_t>(picture_->layout.width) * static_cast<std::size_t>(picture_->layout.channels);
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, 4), [&](const auto& range) {
            for (std::size_t y = range.begin(); y < range.end(); ++y)
                StoreRow(*picture_, rows + y * rowFloats, stored_.data() + waiting + y * rowBytes);
        });
        waitingRows_ += count;
        rowsDone_ += rowCount;
        const auto block = static_cast<std::size_t>(encoder_->BlockRows());
        const std::size_t ready = rowsDone_ == picture_->layout.height ? waitingRows_ : waitingRows_ / block * block;
        if (ready == 0)
            return {};
        VELTO_TRY(encoder_->WriteRows(stored_.data(), static_cast<int>(ready)));
        waitingRows_ -= ready;
        std::copy(stored_.begin() + static_cast<std::ptrdiff_t>(ready * rowBytes), stored_.end(), stored_.begin());
        return {};
    }

    Result Complete() override
    {
        VELTO_TRY(encoder_->Finish());
        return file_.Complete();
    }

private:
    NewFile& File() override { return file_; }

    NewFile file_;
    std::optional<StoredPicture> picture_;
    std::unique_ptr<PictureEncoder> encoder_; // goes before the file
    std::vector<std::byte> stored_;           // rows that wait for their block to be full
    std::size_t waitingRows_ = 0;
    int rowsDone_ = 0;
};

} // namespace

std::size_t StoredPicture::RowBytes() const
{
    const std::size_t bytes = depth == PixelDepth::UInt8 ? 1 : depth == PixelDepth::Float ? 4 : 2;
    return static_cast<std::size_t>(layout.width) * static_cast<std::size_t>(channels) * bytes;
}

Result PictureWriter::PutInPlace(std::span<const std::unique_ptr<PictureWriter>> writers)
{
    return Guarded([&]() -> Result {
        std::vector<NewFile*> files;
        for (const std::unique_ptr<PictureWriter>& writer : writers)
            files.push_back(&writer->File());
        return NewFile::PutInPlace(files);
    });
}

Result PictureWriter::Open(const std::string& file, const std::string& format, const PictureLayout& layout,
    const PictureEncoding& encoding, std::unique_ptr<PictureWriter>& writer)
{
    return Guarded([&]() -> Result {
        auto made = std::make_unique<Writer>();
        VELTO_TRY(made->Open(file, format, layout, encoding));
        writer = std::move(made);
        return {};
    });
}

} // namespace velto::host
