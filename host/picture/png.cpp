// PNG, with pieces of its one compressed stream made on all threads.
#include "deflate.h"
#include "encoder.h"

#include <tbb/parallel_for.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace velto::host
{

namespace
{

constexpr int kLevel = 6;
constexpr std::size_t kWindow = 1 << 15;
// Of a piece, unpacked: enough that its beginning weighs nothing, little enough for all threads to have some.
constexpr std::size_t kPieceBytes = 1 << 18;
constexpr int kFilters = 5;

template <class T>
void AppendBig(std::vector<std::byte>& bytes, T value)
{
    for (int shift = 8 * (static_cast<int>(sizeof(T)) - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::byte>(value >> shift));
}

void AppendChunk(std::vector<std::byte>& bytes, const char* name, std::span<const std::byte> content)
{
    AppendBig(bytes, static_cast<std::uint32_t>(content.size()));
    const std::size_t start = bytes.size();
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<std::byte>(name[i]));
    bytes.insert(bytes.end(), content.begin(), content.end());
    AppendBig(bytes, static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(bytes.data() + start),
                         static_cast<uInt>(bytes.size() - start))));
}

using Byte = unsigned char;

Byte Paeth(int left, int above, int corner)
{
    const int toLeft = std::abs(above - corner);
    const int toAbove = std::abs(left - corner);
    const int toCorner = std::abs(left + above - 2 * corner);
    const int nearest = toAbove <= toCorner ? above : corner;
    return static_cast<Byte>(toLeft <= toAbove && toLeft <= toCorner ? left : nearest);
}

// Replaces each byte by its difference from what the filter expects of its neighbours. `row` and `above` have `step`
// zeros ahead of them. Returns the sum of the differences.
template <class Expected>
std::uint64_t Filter(
    const Byte* row, const Byte* above, std::size_t count, std::size_t step, Byte* to, Expected expected)
{
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        const Byte difference = static_cast<Byte>(row[i] - expected(*(row + i - step), above[i], *(above + i - step)));
        to[i] = difference;
        sum += static_cast<unsigned>(std::abs(static_cast<signed char>(difference)));
    }
    return sum;
}

std::uint64_t ApplyFilter(int filter, const Byte* row, const Byte* above, std::size_t count, std::size_t step, Byte* to)
{
    switch (filter)
    {
    case 1:
        return Filter(row, above, count, step, to, [](int left, int, int) { return left; });
    case 2:
        return Filter(row, above, count, step, to, [](int, int up, int) { return up; });
    case 3:
        return Filter(row, above, count, step, to, [](int left, int up, int) { return (left + up) / 2; });
    case 4:
        return Filter(
            row, above, count, step, to, [](int left, int up, int corner) { return Paeth(left, up, corner); });
    default:
        return Filter(row, above, count, step, to, [](int, int, int) { return 0; });
    }
}

class PngEncoder : public PictureEncoder
{
public:
    PngEncoder(const StoredPicture& picture, NewFile& file)
        : picture_(picture), file_(file), rowBytes_(picture.RowBytes()),
          step_(static_cast<std::size_t>(picture.channels) * (picture.depth == PixelDepth::UInt16 ? 2 : 1)),
          lastRow_(rowBytes_)
    {
    }

    int BlockRows() const override { return static_cast<int>(std::max<std::size_t>(kPieceBytes / (rowBytes_ + 1), 1)); }

    Result WriteRows(const std::byte* rows, int rowCount) override
    {
        if (rowsDone_ == 0)
            VELTO_TRY(WriteHead());
        const std::size_t count = static_cast<std::size_t>(rowCount);
        const std::size_t stride = rowBytes_ + 1;
        // What was there before stands ahead of the new bytes, as the window of the first piece.
        filtered_.resize(window_ + count * stride);
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, 16), [&](const auto& range) {
            for (std::size_t y = range.begin(); y < range.end(); ++y)
                FilterRow(rows + y * rowBytes_, y > 0 ? rows + (y - 1) * rowBytes_ : lastRow_.data(),
                    filtered_.data() + window_ + y * stride);
        });
        std::memcpy(lastRow_.data(), rows + (count - 1) * rowBytes_, rowBytes_);
        rowsDone_ += rowCount;
        VELTO_TRY(WritePieces(count * stride));
        const std::size_t kept = std::min(filtered_.size(), kWindow);
        std::memmove(filtered_.data(), filtered_.data() + filtered_.size() - kept, kept);
        window_ = kept;
        return {};
    }

    Result Finish() override
    {
        std::vector<std::byte> sum;
        AppendBig(sum, adler_);
        std::vector<std::byte> end;
        AppendChunk(end, "IDAT", sum);
        AppendChunk(end, "IEND", {});
        return Append(end);
    }

private:
    Result Append(std::span<const std::byte> bytes) { return file_.Write(file_.Size(), bytes.data(), bytes.size()); }

    Result WriteHead()
    {
        static constexpr Byte kSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
        std::vector<std::byte> bytes;
        for (const Byte byte : kSignature)
            bytes.push_back(static_cast<std::byte>(byte));
        static constexpr int kColorTypes[] = {0, 4, 2, 6}; // by channels
        std::vector<std::byte> head;
        AppendBig(head, static_cast<std::uint32_t>(picture_.layout.width));
        AppendBig(head, static_cast<std::uint32_t>(picture_.layout.height));
        head.push_back(static_cast<std::byte>(picture_.depth == PixelDepth::UInt16 ? 16 : 8));
        head.push_back(static_cast<std::byte>(kColorTypes[picture_.channels - 1]));
        head.resize(head.size() + 3);
        AppendChunk(bytes, "IHDR", head);
        std::vector<std::byte> transfer;
        if (picture_.isSrgb)
        {
            transfer.push_back(std::byte{0});
            AppendChunk(bytes, "sRGB", transfer);
        }
        else
        {
            AppendBig(transfer, std::uint32_t{100000});
            AppendChunk(bytes, "gAMA", transfer);
        }
        return Append(bytes);
    }

    void FilterRow(const std::byte* source, const std::byte* before, std::byte* to) const
    {
        // The row and the one above it in the order of the file, zeros ahead of each; then the tries.
        thread_local std::vector<Byte> scratch;
        scratch.resize(2 * (rowBytes_ + step_) + 2 * rowBytes_);
        std::fill(scratch.begin(), scratch.begin() + static_cast<std::ptrdiff_t>(2 * (rowBytes_ + step_)), Byte{0});
        Byte* const row = scratch.data() + step_;
        Byte* const above = row + rowBytes_ + step_;
        CopyRow(source, row);
        CopyRow(before, above);
        Byte* best = above + rowBytes_;
        Byte* next = best + rowBytes_;
        std::uint64_t least = 0;
        for (int filter = 0; filter < kFilters; ++filter)
        {
            const std::uint64_t sum = ApplyFilter(filter, row, above, rowBytes_, step_, next);
            if (filter > 0 && sum >= least)
                continue;
            least = sum;
            std::swap(best, next);
            to[0] = static_cast<std::byte>(filter);
        }
        std::memcpy(to + 1, best, rowBytes_);
    }

    void CopyRow(const std::byte* from, Byte* to) const
    {
        std::memcpy(to, from, rowBytes_);
        if (picture_.depth == PixelDepth::UInt16 && std::endian::native == std::endian::little)
        {
            for (std::size_t i = 0; i + 1 < rowBytes_; i += 2)
                std::swap(to[i], to[i + 1]);
        }
    }

    Result WritePieces(std::size_t size)
    {
        const std::size_t pieceBytes = static_cast<std::size_t>(BlockRows()) * (rowBytes_ + 1);
        const std::size_t pieces = (size + pieceBytes - 1) / pieceBytes;
        struct Piece
        {
            std::vector<std::byte> chunk;
            uLong adler = 0;
            std::size_t bytes = 0;
        };
        std::vector<Piece> made(pieces);
        const bool isEnd = rowsDone_ == picture_.layout.height;
        const bool isStart = window_ == 0;
        tbb::parallel_for(std::size_t{0}, pieces, [&](std::size_t i) {
            const std::size_t start = window_ + i * pieceBytes;
            Piece& piece = made[i];
            piece.bytes = std::min(pieceBytes, window_ + size - start);
            const std::span<const std::byte> bytes(filtered_.data() + start, piece.bytes);
            const std::size_t before = std::min(start, kWindow);
            std::vector<std::byte> packed;
            DeflatePiece(
                bytes, {filtered_.data() + start - before, before}, kLevel, true, isEnd && i + 1 == pieces, packed);
            if (isStart && i == 0)
                packed.insert(packed.begin(), {std::byte{0x78}, std::byte{0x9c}});
            AppendChunk(piece.chunk, "IDAT", packed);
            piece.adler = adler32(
                adler32(0, nullptr, 0), reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size()));
        });
        for (const Piece& piece : made)
        {
            VELTO_TRY(Append(piece.chunk));
            adler_ =
                static_cast<std::uint32_t>(adler32_combine(adler_, piece.adler, static_cast<z_off_t>(piece.bytes)));
        }
        return {};
    }

    const StoredPicture picture_;
    NewFile& file_;
    const std::size_t rowBytes_;
    const std::size_t step_; // bytes of a pixel
    std::vector<std::byte> lastRow_;
    std::vector<std::byte> filtered_; // the window, then what is new
    std::size_t window_ = 0;
    std::uint32_t adler_ = 1;
    int rowsDone_ = 0;
};

} // namespace

std::unique_ptr<PictureEncoder> MakePngEncoder(const StoredPicture& picture, NewFile& file)
{
    return std::make_unique<PngEncoder>(picture, file);
}

} // namespace velto::host
