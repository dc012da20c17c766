// OpenEXR's scan lines, blocks of 16 packed on all threads.
#include "exr.h"

#include "deflate.h"
#include "encoder.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace velto::host
{

namespace
{

static_assert(std::endian::native == std::endian::little);

constexpr int kZipRows = 16;
constexpr int kLevel = 4;

template <class T>
void Append(std::vector<std::byte>& bytes, T value)
{
    const std::size_t end = bytes.size();
    bytes.resize(end + sizeof value);
    std::memcpy(bytes.data() + end, &value, sizeof value);
}

void AppendText(std::vector<std::byte>& bytes, std::string_view text)
{
    for (const char c : text)
        bytes.push_back(static_cast<std::byte>(c));
}

void AppendAttribute(
    std::vector<std::byte>& bytes, std::string_view name, std::string_view type, const std::vector<std::byte>& value)
{
    AppendText(bytes, name);
    bytes.push_back({});
    AppendText(bytes, type);
    bytes.push_back({});
    Append(bytes, static_cast<std::int32_t>(value.size()));
    bytes.insert(bytes.end(), value.begin(), value.end());
}

template <class... T>
std::vector<std::byte> Values(T... values)
{
    std::vector<std::byte> bytes;
    (Append(bytes, values), ...);
    return bytes;
}

// High bytes first, then low ones, each as its difference from the byte before, so that similar bytes lie together.
void Arrange(const std::vector<std::byte>& plain, std::vector<std::byte>& arranged)
{
    const std::size_t size = plain.size();
    arranged.resize(size);
    const std::size_t half = (size + 1) / 2;
    for (std::size_t i = 0; i < size; ++i)
        arranged[i / 2 + (i % 2 == 0 ? 0 : half)] = plain[i];
    int before = 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        const int value = std::to_integer<int>(arranged[i]);
        arranged[i] = static_cast<std::byte>(i == 0 ? value : value - before + 128);
        before = value;
    }
}

class ExrEncoder : public PictureEncoder
{
public:
    ExrEncoder(const StoredPicture& picture, NewFile& file)
        : picture_(picture), file_(file), componentBytes_(picture.depth == PixelDepth::Half ? 2 : 4),
          rowBytes_(picture.RowBytes()), blockRows_(picture.layout.isPlain ? 1 : kZipRows)
    {
    }

    int BlockRows() const override { return blockRows_; }

    Result WriteRows(const std::byte* rows, int rowCount) override
    {
        if (rowsDone_ == 0)
            VELTO_TRY(WriteHead());
        const int blocks = (rowCount + blockRows_ - 1) / blockRows_;
        std::vector<std::vector<std::byte>> made(static_cast<std::size_t>(blocks));
        tbb::parallel_for(0, blocks, [&](int block) {
            const int first = block * blockRows_;
            made[static_cast<std::size_t>(block)] = PackBlock(
                rows + static_cast<std::size_t>(first) * rowBytes_, first, std::min(blockRows_, rowCount - first));
        });
        for (const std::vector<std::byte>& block : made)
        {
            offsets_.push_back(file_.Size());
            VELTO_TRY(file_.Write(file_.Size(), block.data(), block.size()));
        }
        rowsDone_ += rowCount;
        return {};
    }

    Result Finish() override
    {
        if (rowsDone_ == 0)
            VELTO_TRY(WriteHead());
        return file_.Write(tableAt_, offsets_.data(), offsets_.size() * sizeof(UInt));
    }

private:
    Result WriteHead()
    {
        std::vector<std::byte> bytes = Values(kExrMagic, kExrVersion);
        AppendAttribute(bytes, "channels", "chlist", ExrChannelList(picture_.channels, picture_.depth));
        AppendAttribute(bytes, "compression", "compression", {picture_.layout.isPlain ? kExrPlain : kExrZip});
        const PictureLayout& layout = picture_.layout;
        AppendAttribute(bytes, "dataWindow", "box2i",
            Values(layout.x, layout.y, layout.x + layout.width - 1, layout.y + layout.height - 1));
        AppendAttribute(bytes, "displayWindow", "box2i",
            Values(std::int32_t{0}, std::int32_t{0}, layout.wholeWidth - 1, layout.wholeHeight - 1));
        AppendAttribute(bytes, "lineOrder", "lineOrder", {std::byte{0}});
        AppendAttribute(bytes, "pixelAspectRatio", "float", Values(1.0f));
        AppendAttribute(bytes, "screenWindowCenter", "v2f", Values(0.0f, 0.0f));
        AppendAttribute(bytes, "screenWindowWidth", "float", Values(1.0f));
        for (const auto& [name, text] : layout.attributes)
        {
            std::vector<std::byte> value;
            AppendText(value, text);
            AppendAttribute(bytes, name, "string", value);
        }
        bytes.push_back({});
        tableAt_ = bytes.size();
        const auto blocks = static_cast<std::size_t>((layout.height + blockRows_ - 1) / blockRows_);
        bytes.resize(bytes.size() + blocks * sizeof(UInt));
        offsets_.reserve(blocks);
        return file_.Write(0, bytes.data(), bytes.size());
    }

    std::vector<std::byte> PackBlock(const std::byte* rows, int first, int rowCount) const
    {
        std::vector<std::byte> plain(static_cast<std::size_t>(rowCount) * rowBytes_);
        const std::size_t step = componentBytes_ * static_cast<std::size_t>(picture_.channels);
        const ExrChannels names = ExrChannelsOf(picture_.channels);
        std::byte* to = plain.data();
        for (int y = 0; y < rowCount; ++y, rows += rowBytes_)
        {
            for (int c = 0; c < picture_.channels; ++c)
            {
                const std::byte* from = rows + static_cast<std::size_t>(names.order[c]) * componentBytes_;
                for (int x = 0; x < picture_.layout.width; ++x, from += step, to += componentBytes_)
                    std::memcpy(to, from, componentBytes_);
            }
        }
        std::vector<std::byte> packed;
        if (!picture_.layout.isPlain)
        {
            std::vector<std::byte> arranged;
            Arrange(plain, arranged);
            DeflateWhole(arranged, kLevel, packed);
        }
        const std::vector<std::byte>& content = !packed.empty() && packed.size() < plain.size() ? packed : plain;
        std::vector<std::byte> block =
            Values(picture_.layout.y + rowsDone_ + first, static_cast<std::int32_t>(content.size()));
        block.insert(block.end(), content.begin(), content.end());
        return block;
    }

    const StoredPicture picture_;
    NewFile& file_;
    const std::size_t componentBytes_;
    const std::size_t rowBytes_;
    const int blockRows_;
    UInt tableAt_ = 0;
    std::vector<UInt> offsets_;
    int rowsDone_ = 0;
};

} // namespace

ExrChannels ExrChannelsOf(int channels)
{
    static constexpr ExrChannels all[] = {{"Y", {0}}, {"YA", {1, 0}}, {"RGB", {2, 1, 0}}, {"RGBA", {3, 2, 1, 0}}};
    return all[channels - 1];
}

std::vector<std::byte> ExrChannelList(int channels, PixelDepth depth)
{
    const ExrChannels names = ExrChannelsOf(channels);
    std::vector<std::byte> list;
    for (int i = 0; i < channels; ++i)
    {
        list.push_back(static_cast<std::byte>(names.names[names.order[i]]));
        list.push_back({});
        Append(list, std::int32_t{depth == PixelDepth::Half ? 1 : 2});
        Append(list, std::uint32_t{0}); // looks linear
        Append(list, std::int32_t{1});  // every pixel of a row
        Append(list, std::int32_t{1});  // and every row
    }
    list.push_back({});
    return list;
}

std::unique_ptr<PictureEncoder> MakeExrEncoder(const StoredPicture& picture, NewFile& file)
{
    return std::make_unique<ExrEncoder>(picture, file);
}

} // namespace velto::host
