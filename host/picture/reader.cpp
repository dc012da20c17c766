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

Transfer EncodingOf(const OIIO::ImageSpec& spec)
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

// Gathers the texels of the finest level that is held, each the mean of a square of pixels in linear light.
template <class T>
class Gatherer
{
public:
    Gatherer(const OIIO::ImageSpec& spec, int shift, const Transfer& transfer)
        : width_(spec.width), height_(spec.height), shift_(shift), transfer_(transfer),
          level_(((spec.width - 1) >> shift) + 1, ((spec.height - 1) >> shift) + 1)
    {
        if (shift > 0)
            sums_.resize(std::size_t(level_.width) * 4);
    }

    // `pixels` holds the channels from number `first` on, `stride` of them a pixel.
    void AddRow(int y, const T* pixels, const ChannelChoice& choice, int first, int stride)
    {
        if (shift_ == 0)
        {
            for (int x = 0; x < width_; ++x, pixels += stride)
            {
                T* out = level_.At(x, y);
                for (const int channel : choice)
                    *out++ = channel < 0 ? kOpaque : pixels[channel - first];
            }
            return;
        }
        for (int x = 0; x < width_; ++x, pixels += stride)
        {
            double* const sum = sums_.data() + std::size_t(x >> shift_) * 4;
            for (std::size_t i = 0; i < 4; ++i)
            {
                const double value = (choice[i] < 0 ? kOpaque : pixels[choice[i] - first]) / double(kOpaque);
                sum[i] += i == 3 ? value : ToLinear(value);
            }
        }
        if (y == height_ - 1 || ((y + 1) >> shift_) != y >> shift_)
            FinishRow(y);
    }

    TexelLevel<T> Take() { return std::move(level_); }

private:
    static constexpr T kOpaque = std::is_integral_v<T> ? std::numeric_limits<T>::max() : T(1);

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

    void FinishRow(int y)
    {
        const int row = y >> shift_;
        const int rows = y + 1 - (row << shift_);
        for (int x = 0; x < level_.width; ++x)
        {
            const int columns = std::min(width_ - (x << shift_), 1 << shift_);
            T* out = level_.At(x, row);
            for (std::size_t i = 0; i < 4; ++i)
            {
                double& sum = sums_[std::size_t(x) * 4 + i];
                const double mean = sum / (double(rows) * columns);
                const double encoded = i == 3 ? mean : transfer_.FromLinear(mean);
                if constexpr (std::is_integral_v<T>)
                    *out++ = static_cast<T>(std::clamp(encoded, 0.0, 1.0) * double(kOpaque) + 0.5);
                else
                    *out++ = static_cast<T>(encoded);
                sum = 0.0;
            }
        }
    }

    int width_;
    int height_;
    int shift_;
    Transfer transfer_;
    TexelLevel<T> level_;
    std::vector<double> sums_;
    double lastValue_ = 0.0;
    double lastLinear_ = 0.0;
};

// How often a picture is halved to fit.
int ShiftFor(const OIIO::ImageSpec& spec, std::size_t texelSize, const Transfer& transfer, UInt memory)
{
    int shift = 0;
    const auto bytes = [&] {
        const UInt width = UInt((spec.width - 1) >> shift) + 1;
        const UInt height = UInt((spec.height - 1) >> shift) + 1;
        return BytesOfAllLevels(width * height * texelSize, transfer);
    };
    while (bytes() > memory && shift < 15)
        ++shift;
    return shift;
}

// Builds the picture of what `readRows` reads: it gets the channels that are wanted, by first and one behind the last
// one, and what to call with the pixels of each row.
template <class T, class ReadRows>
std::unique_ptr<Picture> Build(const OIIO::ImageSpec& spec, const ChannelChoice& choice,
    const TextureFileRequest& request, std::string& note, const ReadRows& readRows)
{
    const Transfer transfer = EncodingOf(spec);
    const int shift = ShiftFor(spec, sizeof(T) * 4, transfer, request.memory);
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
    Gatherer<T> gatherer(spec, shift, transfer);
    readRows(first, behind, [&](int y, const T* pixels) { gatherer.AddRow(y, pixels, choice, first, behind - first); });

    auto picture = std::make_unique<Picture>();
    picture->width = spec.width;
    picture->height = spec.height;
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
    CheckBytes(request.file, std::max(spec.image_bytes(true), spec.tile_bytes(true)), head);
    if (spec.depth > 1 || spec.deep || spec.nchannels > kMostChannels)
        FailReading(request.file, "is no flat picture");
    const auto build = [&]<class T>(T) {
        return Build<T>(spec, choice, request, note, [&](int first, int behind, const auto& use) {
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
            return Build<To>(spec, choice, request, note, [&](int, int, const auto& use) {
                std::vector<To> buffer;
                for (int y = 0; y < from.height; ++y)
                {
                    const auto* const row =
                        reinterpret_cast<const From*>(from.pixels + from.rowBytes * static_cast<std::size_t>(y));
                    use(y, Converted(row, static_cast<std::size_t>(from.width * from.channels), buffer));
                }
            });
        };
        if (from.bytesPerChannel == 1)
            return request.asFloat ? build(std::uint8_t(), float()) : build(std::uint8_t(), std::uint8_t());
        return request.asFloat ? build(std::uint16_t(), float()) : build(std::uint16_t(), std::uint16_t());
    });
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
