#include "reader.h"

#include "filehead.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace velto::host
{

namespace
{

constexpr int kMostChannels = 1024;

// Calls `read` and gives what is wrong with the file a text that names it.
template <class Read>
auto WithFileName(const std::filesystem::path& file, const Read& read)
{
    try
    {
        return read();
    }
    catch (const TextureFileError&)
    {
        throw;
    }
    catch (const std::bad_alloc&)
    {
        throw;
    }
    catch (const std::exception& failure)
    {
        FailReading(file, failure.what());
    }
}

std::unique_ptr<OIIO::ImageInput> Open(
    const std::filesystem::path& file, std::string_view format, OIIO::ImageSpec& spec)
{
    auto input = OIIO::ImageInput::create(std::string(format));
    if (!input)
        FailReading(file, OIIO::geterror());
    input->threads(1);
    OIIO::ImageSpec wish;
    wish["oiio:UnassociatedAlpha"] = 1; // colours as the file has them
    if (!input->open(file.string(), spec, wish))
        FailReading(file, input->geterror());
    return input;
}

Transfer EncodingOf(const OIIO::ImageSpec& spec, std::string_view format)
{
    std::string space = spec.get_string_attribute("oiio:ColorSpace");
    std::transform(space.begin(), space.end(), space.begin(), [](unsigned char c) { return std::tolower(c); });
    if (space == "srgb" || space == "srgb_texture")
        return {Transfer::Curve::Srgb};
    if (space == "rec709")
        return {Transfer::Curve::Rec709};
    if (space.starts_with("linear") || space == "scene_linear" || space == "lin_srgb")
        return {};
    if (space.starts_with("gamma"))
    {
        const double gamma = spec.get_float_attribute("oiio:Gamma", std::strtof(space.c_str() + 5, nullptr));
        // What a png says in this way of an sRGB picture is all that old readers understand.
        if (format == "png" && std::abs(gamma - 2.2) < 0.01)
            return {Transfer::Curve::Srgb};
        if (gamma > 0.1 && gamma < 10.0)
            return gamma == 1.0 ? Transfer{} : Transfer{Transfer::Curve::Power, gamma};
    }
    return spec.format.is_floating_point() ? Transfer{} : Transfer{Transfer::Curve::Srgb};
}

// Which channels of a part make the picture: red, green, blue and alpha by number, -1 for those that are not there.
using ChannelChoice = std::array<int, 4>;

int FindChannel(const OIIO::ImageSpec& spec, const std::string& prefix, std::initializer_list<std::string_view> names)
{
    for (int i = 0; i < spec.nchannels; ++i)
    {
        const std::string& channel = spec.channelnames[static_cast<std::size_t>(i)];
        for (const std::string_view name : names)
        {
            if (channel.size() == prefix.size() + name.size() && channel.starts_with(prefix) && channel.ends_with(name))
                return i;
        }
    }
    return -1;
}

ChannelChoice ChooseChannels(const OIIO::ImageSpec& spec, const std::string& prefix)
{
    ChannelChoice choice{FindChannel(spec, prefix, {"R", "r", "red", "X", "x"}),
        FindChannel(spec, prefix, {"G", "g", "green", "Y", "y"}),
        FindChannel(spec, prefix, {"B", "b", "blue", "Z", "z"}), FindChannel(spec, prefix, {"A", "a", "alpha"})};
    if (choice[0] >= 0 && choice[1] >= 0 && choice[2] >= 0)
        return choice;
    // Grey, or channels of other names.
    std::vector<int> others;
    for (int i = 0; i < spec.nchannels; ++i)
    {
        if (i != choice[3] && spec.channelnames[static_cast<std::size_t>(i)].starts_with(prefix))
            others.push_back(i);
    }
    if (others.empty() && choice[3] >= 0)
        others.push_back(choice[3]);
    if (others.empty())
        return {-1, -1, -1, -1};
    if (others.size() >= 3)
        return {others[0], others[1], others[2], choice[3]};
    if (others.size() == 2 && choice[3] < 0)
        choice[3] = others[1];
    return {others[0], others[0], others[0], choice[3]};
}

// Goes to the part that the layer names and says which of its channels make it.
ChannelChoice SeekLayer(
    OIIO::ImageInput& input, OIIO::ImageSpec& spec, const std::filesystem::path& file, const std::string& layer)
{
    if (layer.empty())
        return ChooseChannels(spec, "");
    constexpr int kMostParts = 1024;
    const bool isNumber = layer.find_first_not_of("0123456789") == layer.npos && layer.size() < 5;
    for (int part = 0; part < kMostParts && input.seek_subimage(part, 0); ++part)
    {
        spec = input.spec();
        if ((isNumber && std::stoi(layer) == part) || spec.get_string_attribute("oiio:subimagename") == layer ||
            spec.get_string_attribute("name") == layer)
            return ChooseChannels(spec, "");
        const ChannelChoice choice = ChooseChannels(spec, layer + ".");
        if (choice[0] >= 0)
            return choice;
    }
    FailReading(file, fmt::format("has no layer \"{}\"", layer));
}

template <class T>
constexpr OIIO::TypeDesc::BASETYPE kTexelType = std::is_same_v<T, std::uint8_t>    ? OIIO::TypeDesc::UINT8
                                                : std::is_same_v<T, std::uint16_t> ? OIIO::TypeDesc::UINT16
                                                                                   : OIIO::TypeDesc::FLOAT;

// Calls `use` with the pixels of each row, from the top.
template <class T, class Use>
void ReadRows(OIIO::ImageInput& input, int part, const OIIO::ImageSpec& spec, int first, int behind,
    const std::filesystem::path& file, const Use& use)
{
    const int strip = spec.tile_width ? spec.tile_height : std::clamp((1 << 20) / spec.width, 1, 64);
    const auto rowSize = static_cast<std::size_t>(spec.width) * static_cast<std::size_t>(behind - first);
    std::vector<T> rows(rowSize * static_cast<std::size_t>(std::min(strip, spec.height)));
    for (int y = 0; y < spec.height; y += strip)
    {
        const int end = std::min(y + strip, spec.height);
        const bool read = spec.tile_width
                              ? input.read_tiles(part, 0, spec.x, spec.x + spec.width, spec.y + y, spec.y + end, spec.z,
                                    spec.z + 1, first, behind, OIIO::TypeDesc(kTexelType<T>), rows.data())
                              : input.read_scanlines(part, 0, spec.y + y, spec.y + end, spec.z, first, behind,
                                    OIIO::TypeDesc(kTexelType<T>), rows.data());
        if (!read)
            FailReading(file, input.geterror());
        for (int row = y; row < end; ++row)
            use(row, rows.data() + rowSize * static_cast<std::size_t>(row - y));
    }
}

// Where the pixels of a file lie in its picture. What is outside of it is left out, what is missing is transparent.
struct Layout
{
    int width; // of the picture, before it is turned
    int height;
    int left; // of the pixels, from the picture's corner
    int top;
    int columns; // of pixels
    int rows;
    int orientation; // by the numbers of TIFF and Exif, 1 to 8

    Layout(const OIIO::ImageSpec& spec, std::string_view format)
        : width(spec.width), height(spec.height), left(0), top(0), columns(spec.width), rows(spec.height),
          orientation(spec.get_int_attribute("Orientation", 1))
    {
        if (format == "openexr")
        {
            width = spec.full_width;
            height = spec.full_height;
            left = spec.x - spec.full_x;
            top = spec.y - spec.full_y;
        }
        if (orientation < 1 || orientation > 8)
            orientation = 1;
    }

    bool IsTurned() const { return orientation > 4; } // by a right angle
    bool HasGaps() const { return left > 0 || top > 0 || left + columns < width || top + rows < height; }
};

// Gathers the texels of the finest level that is held, each the mean of a square of pixels in linear light, where each
// counts by its alpha.
template <class T>
class Gatherer
{
public:
    Gatherer(const Layout& layout, int shift, const Transfer& transfer)
        : layout_(layout), shift_(shift), transfer_(transfer), width_(((layout.width - 1) >> shift) + 1),
          height_(((layout.height - 1) >> shift) + 1),
          level_(layout.IsTurned() ? height_ : width_, layout.IsTurned() ? width_ : height_),
          first_(std::max(0, -layout.left)), after_(std::min(layout.columns, layout.width - layout.left))
    {
        if (shift > 0)
            sums_.resize(std::size_t(width_) * 4);
    }

    // `pixels` holds the channels from number `first` on, `stride` of them a pixel.
    void AddRow(int row, const T* pixels, const ChannelChoice& choice, int first, int stride)
    {
        const int y = row + layout_.top;
        if (y < 0 || y >= layout_.height || first_ >= after_)
            return;
        pixels += std::size_t(first_) * std::size_t(stride);
        if (shift_ == 0)
        {
            for (int x = first_; x < after_; ++x, pixels += stride)
            {
                T* out = Texel(x + layout_.left, y);
                for (const int channel : choice)
                    *out++ = channel < 0 ? kOpaque : pixels[channel - first];
            }
            return;
        }
        if (y >> shift_ != square_)
            FinishSquares();
        square_ = y >> shift_;
        for (int x = first_; x < after_; ++x, pixels += stride)
        {
            double* const sum = sums_.data() + std::size_t((x + layout_.left) >> shift_) * 4;
            const auto value = [&](std::size_t i) {
                return (choice[i] < 0 ? kOpaque : pixels[choice[i] - first]) / double(kOpaque);
            };
            const double alpha = std::max(value(3), kLeastAlpha);
            for (std::size_t i = 0; i < 3; ++i)
                sum[i] += ToLinear(value(i)) * alpha;
            sum[3] += alpha;
        }
    }

    TexelLevel<T> Take()
    {
        if (shift_ > 0)
            FinishSquares();
        return std::move(level_);
    }

private:
    static constexpr T kOpaque = std::is_integral_v<T> ? std::numeric_limits<T>::max() : T(1);
    static constexpr double kLeastAlpha = 1e-12; // leaves its colour to what is all transparent

    double ToLinear(double value)
    {
        if (transfer_.curve == Transfer::Curve::Linear)
            return value;
        if (value != lastValue_) // neighbours are often alike
        {
            lastValue_ = value;
            lastLinear_ = transfer_.ToLinear(value);
        }
        return lastLinear_;
    }

    // By the place in the file.
    T* Texel(int x, int y)
    {
        const int mirroredX = width_ - 1 - x;
        const int mirroredY = height_ - 1 - y;
        switch (layout_.orientation)
        {
        case 2:
            return level_.At(mirroredX, y);
        case 3:
            return level_.At(mirroredX, mirroredY);
        case 4:
            return level_.At(x, mirroredY);
        case 5:
            return level_.At(y, x);
        case 6:
            return level_.At(mirroredY, x);
        case 7:
            return level_.At(mirroredY, mirroredX);
        case 8:
            return level_.At(y, mirroredX);
        default:
            return level_.At(x, y);
        }
    }

    void FinishSquares()
    {
        const int rows = std::min(layout_.height - (square_ << shift_), 1 << shift_);
        for (int x = 0; x < width_; ++x)
        {
            const int columns = std::min(layout_.width - (x << shift_), 1 << shift_);
            double* const sum = sums_.data() + std::size_t(x) * 4;
            T* const out = Texel(x, square_);
            const bool up = ((x ^ square_) & 1) != 0;
            for (std::size_t i = 0; i < 3 && sum[3] > 0.0; ++i)
                out[i] = Stored<T>(transfer_.FromLinear(sum[i] / sum[3]), up);
            const double alpha = sum[3] / (double(rows) * columns);
            out[3] = Stored<T>(alpha < 2.0 * kLeastAlpha ? 0.0 : alpha, up);
            std::fill_n(sum, 4, 0.0);
        }
    }

    Layout layout_;
    int shift_;
    Transfer transfer_;
    int width_; // of the level, before it is turned
    int height_;
    TexelLevel<T> level_;
    int first_; // column of pixels that is in the picture
    int after_; // the last one
    std::vector<double> sums_;
    int square_ = 0; // row of squares that is being summed
    double lastValue_ = 0.0;
    double lastLinear_ = 0.0;
};

// How often a picture is halved to fit.
int ShiftFor(const Layout& layout, std::size_t texelSize, const Transfer& transfer, bool isOpaque, UInt memory)
{
    int shift = 0;
    const auto bytes = [&] {
        const UInt width = UInt((layout.width - 1) >> shift) + 1;
        const UInt height = UInt((layout.height - 1) >> shift) + 1;
        return BytesOfAllLevels(width * height * texelSize, transfer, isOpaque);
    };
    while (bytes() > memory && shift < 15)
        ++shift;
    return shift;
}

// Builds the picture of what `readRows` reads: it gets the channels that are wanted, by first and one past the last
// one, and what to call with the pixels of each row.
template <class T, class ReadRows>
std::unique_ptr<Picture> Build(const OIIO::ImageSpec& spec, std::string_view format, const ChannelChoice& choice,
    const TextureFileRequest& request, std::string& note, const ReadRows& readRows)
{
    const Transfer transfer = EncodingOf(spec, format);
    const Layout layout(spec, format);
    const bool isOpaque = choice[3] < 0 && !layout.HasGaps();
    const int shift = ShiftFor(layout, sizeof(T) * 4, transfer, isOpaque, request.memory);
    if (shift > 0)
        note = fmt::format("{}: is too large for the memory of textures, shown with one pixel for each {} x {}.",
            request.file.string(), 1 << shift, 1 << shift);

    int first = spec.nchannels;
    int behind = 0;
    for (const int channel : choice)
    {
        if (channel >= 0)
        {
            first = std::min(first, channel);
            behind = std::max(behind, channel + 1);
        }
    }
    Gatherer<T> gatherer(layout, shift, transfer);
    readRows(first, behind, [&](int y, const T* pixels) { gatherer.AddRow(y, pixels, choice, first, behind - first); });

    auto picture = std::make_unique<Picture>();
    picture->width = layout.IsTurned() ? layout.height : layout.width;
    picture->height = layout.IsTurned() ? layout.width : layout.height;
    picture->texels = std::make_unique<Pyramid<T>>(gatherer.Take(), transfer);
    return picture;
}

std::unique_ptr<Picture> ReadStill(const TextureFileRequest& request, const FileHead& head, std::string& note)
{
    OIIO::ImageSpec spec;
    const auto input = Open(request.file, head.format, spec);
    const ChannelChoice choice = SeekLayer(*input, spec, request.file, request.layer);
    if (choice[0] < 0)
        FailReading(request.file, "has no channels");
    CheckSize(request.file, spec.width, spec.height);
    const Layout layout(spec, head.format);
    CheckSize(request.file, layout.width, layout.height);
    CheckBytes(request.file, std::max(spec.image_bytes(true), spec.tile_bytes(true)), head);
    if (spec.depth > 1 || spec.deep || spec.nchannels > kMostChannels)
        FailReading(request.file, "is not a flat picture");
    const auto build = [&]<class T>(T) {
        return Build<T>(spec, head.format, choice, request, note, [&](int first, int behind, const auto& use) {
            ReadRows<T>(*input, input->current_subimage(), spec, first, behind, request.file, use);
        });
    };
    if (!request.asFloat && (spec.format == OIIO::TypeDesc::UINT8 || spec.format == OIIO::TypeDesc::INT8))
        return build(std::uint8_t());
    if (!request.asFloat && (spec.format == OIIO::TypeDesc::UINT16 || spec.format == OIIO::TypeDesc::INT16))
        return build(std::uint16_t());
    return build(float());
}

// A row of whole numbers as numbers of another type, 0 and 1 staying what they are.
template <class To, class From>
const To* Converted(const From* row, std::size_t count, std::vector<To>& buffer)
{
    if constexpr (std::is_same_v<To, From>)
        return row;
    buffer.resize(count);
    std::transform(row, row + count, buffer.begin(),
        [](From value) { return static_cast<To>(value) / static_cast<To>(std::numeric_limits<From>::max()); });
    return buffer.data();
}

// A movie has no layers. And what it unpacks to has little to do with its bytes.
std::unique_ptr<Picture> ReadMovie(const TextureFileRequest& request, const FileHead& head, std::string& note)
{
    const std::shared_ptr<Movie> movie = Movie::Open(request.file, head);
    auto picture = movie->Read(request.frame, [&](const MoviePicture& from) {
        const OIIO::ImageSpec spec(from.width, from.height, from.channels,
            from.bytesPerChannel == 1 ? OIIO::TypeDesc::UINT8 : OIIO::TypeDesc::UINT16);
        const ChannelChoice choice = {0, 1, 2, from.channels == 4 ? 3 : -1};
        const auto build = [&]<class From, class To>(From, To) {
            return Build<To>(spec, head.format, choice, request, note, [&](int, int, const auto& use) {
                std::vector<To> buffer;
                for (int y = 0; y < from.height; ++y)
                {
                    const auto* const row =
                        reinterpret_cast<const From*>(from.pixels + from.rowBytes * static_cast<std::size_t>(y));
                    use(y, Converted(row,
                               static_cast<std::size_t>(from.width) * static_cast<std::size_t>(from.channels), buffer));
                }
            });
        };
        if (from.bytesPerChannel == 1)
            return request.asFloat ? build(std::uint8_t(), float()) : build(std::uint8_t(), std::uint8_t());
        return request.asFloat ? build(std::uint16_t(), float()) : build(std::uint16_t(), std::uint16_t());
    });
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): it loses sight of the pointer within the lambdas
    picture->framesPerSecond = movie->GetClip().framesPerSecond;
    picture->seconds = movie->GetClip().seconds;
    return picture;
}

} // namespace

Clip ReadClip(const std::filesystem::path& file)
{
    return WithFileName(file, [&] {
        const FileHead head = ReadHead(file);
        return head.isMovie ? Movie::Open(file, head)->GetClip() : Clip();
    });
}

std::unique_ptr<Picture> ReadPicture(const TextureFileRequest& request, std::string& note)
{
    return WithFileName(request.file, [&] {
        const FileHead head = ReadHead(request.file);
        return head.isMovie ? ReadMovie(request, head, note) : ReadStill(request, head, note);
    });
}

} // namespace velto::host
