#include "filehead.h"

#include "velto/types.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <limits>

namespace velto::host
{

namespace
{

// The most that a packed file can plausibly unpack to, per byte.
constexpr std::uintmax_t kMostUnpacking = 4096;
constexpr std::uintmax_t kMostBytes = std::uintmax_t(1) << 33;

UInt32 BigEndianAt(const unsigned char* bytes)
{
    return UInt32(bytes[0]) << 24 | UInt32(bytes[1]) << 16 | UInt32(bytes[2]) << 8 | bytes[3];
}

UInt32 LittleEndianAt(const unsigned char* bytes)
{
    return UInt32(bytes[3]) << 24 | UInt32(bytes[2]) << 16 | UInt32(bytes[1]) << 8 | bytes[0];
}

// The first bytes of a file.
struct Opening
{
    unsigned char bytes[32] = {};
    std::size_t count = 0;

    bool Has(std::size_t at, std::string_view text) const
    {
        return at + text.size() <= count && std::memcmp(bytes + at, text.data(), text.size()) == 0;
    }
};

std::string LowerSuffix(const std::filesystem::path& file)
{
    std::string suffix = file.extension().string();
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return suffix;
}

// The name of the reader for what the file holds.
std::string_view FormatOf(const std::filesystem::path& file, const Opening& opening, bool& isMovie)
{
    using namespace std::string_view_literals;
    struct Signature
    {
        std::string_view format;
        std::size_t at;
        std::string_view text;
        bool isMovie = false;
    };
    static constexpr Signature signatures[] = {{"png", 0, "\x89PNG\r\n\x1a\n"sv}, {"jpeg", 0, "\xff\xd8\xff"sv},
        {"tiff", 0, "II*\0"sv}, {"tiff", 0, "MM\0*"sv}, {"tiff", 0, "II+\0"sv}, {"tiff", 0, "MM\0+"sv},
        {"openexr", 0, "\x76\x2f\x31\x01"sv}, {"hdr", 0, "#?"sv}, {"gif", 0, "GIF87a"sv, true},
        {"gif", 0, "GIF89a"sv, true}, {"mov", 4, "ftyp"sv, true}, {"mov", 4, "moov"sv, true},
        {"matroska", 0, "\x1a\x45\xdf\xa3"sv, true}, {"mpeg", 0, "\0\0\x01\xba"sv, true},
        {"mpegvideo", 0, "\0\0\x01\xb3"sv, true}};
    for (const Signature& signature : signatures)
    {
        if (!opening.Has(signature.at, signature.text))
            continue;
        isMovie = signature.isMovie;
        return signature.format;
    }
    if (opening.Has(0, "RIFF") && opening.Has(8, "AVI "))
    {
        isMovie = true;
        return "avi";
    }
    // Targa files have no signature: a header that makes sense under the right name must do.
    static constexpr int kTargaTypes[] = {1, 2, 3, 9, 10, 11};
    if (LowerSuffix(file) == ".tga" && opening.count >= 18 && opening.bytes[1] <= 1 &&
        std::find(std::begin(kTargaTypes), std::end(kTargaTypes), opening.bytes[2]) != std::end(kTargaTypes))
        return "targa";
    FailReading(
        file, "is of no format that is read here (png, jpg, tif, exr, hdr, tga, gif, mp4, mov, avi, webm, mkv, mpg)");
}

// The reader of this format makes room for the whole picture while it opens an interlaced file, and writes to stderr
// what it misses of one that is cut off.
void CheckPng(const std::filesystem::path& file, const FileHead& head, const Opening& opening, std::istream& stream)
{
    if (opening.count < 29 || !opening.Has(12, "IHDR"))
        FailReading(file, "ends within its header");
    const std::int64_t width = BigEndianAt(opening.bytes + 16);
    const std::int64_t height = BigEndianAt(opening.bytes + 20);
    CheckSize(file, width, height);
    static constexpr unsigned kChannels[] = {1, 0, 3, 1, 2, 0, 4};
    const unsigned channels = opening.bytes[25] < std::size(kChannels) ? kChannels[opening.bytes[25]] : 0;
    const auto bits =
        static_cast<std::uintmax_t>(width) * static_cast<std::uintmax_t>(height) * channels * opening.bytes[24];
    CheckBytes(file, bits / 8, head);
    unsigned char chunk[8] = {};
    for (std::int64_t at = 8; std::memcmp(chunk + 4, "IEND", 4) != 0; at += std::int64_t(12) + BigEndianAt(chunk))
    {
        stream.seekg(at);
        if (!stream.read(reinterpret_cast<char*>(chunk), sizeof(chunk)))
            FailReading(file, "is cut off");
    }
}

// The reader of this format makes room for the whole picture while it opens a progressive file. Nothing is refused here
// but a frame that is too large; where there are no segments to go by, the reader says so.
void CheckJpeg(const std::filesystem::path& file, const FileHead& head, std::istream& stream)
{
    for (stream.seekg(2); stream;)
    {
        int marker = stream.get();
        while (stream && marker != 0xff) // what lies between segments is passed over
            marker = stream.get();
        while (marker == 0xff)
            marker = stream.get();
        const bool isAlone = marker <= 0x01 || (marker >= 0xd0 && marker <= 0xd8);
        if (isAlone)
            continue;
        unsigned char segment[8] = {}; // length, depth, height, width, channels
        stream.read(reinterpret_cast<char*>(segment), sizeof(segment));
        if (!stream || marker == 0xd9 || marker == 0xda)
            return;
        const bool isFrame = marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc;
        if (isFrame)
        {
            const UInt32 sides = BigEndianAt(segment + 3);
            const std::int64_t width = sides & 0xffff;
            const std::int64_t height = sides >> 16;
            CheckSize(file, width, height);
            return CheckBytes(file, static_cast<std::uintmax_t>(width * height) * segment[7], head);
        }
        stream.seekg(std::int64_t(BigEndianAt(segment) >> 16) - std::int64_t(sizeof(segment)), std::ios::cur);
    }
}

// The reader of this format makes room for the whole screen, however small its pictures are, and counts in ints.
void CheckGif(const std::filesystem::path& file, const FileHead& head, const Opening& opening)
{
    if (opening.count < 10)
        FailReading(file, "ends within its header");
    const std::int64_t width = LittleEndianAt(opening.bytes + 6) & 0xffff;
    const std::int64_t height = LittleEndianAt(opening.bytes + 8) & 0xffff;
    CheckSize(file, width, height);
    if (width * height > std::numeric_limits<int>::max() / 4)
        FailReading(file, fmt::format("is {} x {} pixels large, too many for a gif", width, height));
    CheckBytes(file, static_cast<std::uintmax_t>(width * height), head);
}

// The reader of this format makes room for whatever an attribute of the header claims to be long, and ends the process
// over channels of a type that it does not know. It goes by an attribute's type where that has a length of its own.
class ExrHeader
{
public:
    ExrHeader(const std::filesystem::path& file, const FileHead& head, std::istream& stream)
        : file_(file), end_(static_cast<std::int64_t>(head.fileSize)), stream_(stream)
    {
    }

    void Check(bool hasParts)
    {
        stream_.seekg(8);
        do
        {
            while (!Text().empty())
                CheckAttribute();
        }
        while (hasParts && stream_.peek() > 0);
    }

private:
    void CheckAttribute()
    {
        static constexpr std::pair<std::string_view, int> kLengths[] = {{"box2f", 16}, {"box2i", 16},
            {"chromaticities", 32}, {"compression", 1}, {"deepImageState", 1}, {"double", 8}, {"envmap", 1},
            {"float", 4}, {"int", 4}, {"keycode", 28}, {"lineOrder", 1}, {"m33d", 72}, {"m33f", 36}, {"m44d", 128},
            {"m44f", 64}, {"rational", 8}, {"tiledesc", 9}, {"timecode", 8}, {"v2d", 16}, {"v2f", 8}, {"v2i", 8},
            {"v3d", 24}, {"v3f", 12}, {"v3i", 12}};
        const std::string type = Text();
        const std::int64_t length = Number();
        const auto fixed = std::find_if(
            std::begin(kLengths), std::end(kLengths), [&](const auto& known) { return known.first == type; });
        if (fixed != std::end(kLengths))
            Pass(fixed->second);
        else if (type == "chlist")
            CheckChannels();
        else if (type == "stringvector")
            CheckTexts(length);
        else if (type == "preview")
            PassPreview();
        else
            Pass(type == "floatvector" ? length / 4 * 4 : length);
    }

    void CheckChannels()
    {
        for (std::string channel = Text(); !channel.empty(); channel = Text())
        {
            if (const std::int64_t type = Number(); type < 0 || type > 2)
                FailReading(file_, fmt::format("has a channel of an unknown type {}", type));
            Pass(12);
        }
    }

    void CheckTexts(std::int64_t length)
    {
        while (length > 0 && stream_)
        {
            const std::int64_t text = Number();
            Pass(text);
            length -= 4 + text;
        }
    }

    void PassPreview()
    {
        const std::int64_t width = Number();
        const std::int64_t height = Number();
        const bool isLikely = width >= 0 && height >= 0 && width <= kLargestPicture && height <= kLargestPicture;
        Pass(isLikely ? width * height * 4 : -1);
    }

    std::string Text()
    {
        std::string text;
        std::getline(stream_, text, '\0');
        return text;
    }

    // 0 beyond the end.
    std::int64_t Number()
    {
        unsigned char bytes[4] = {};
        stream_.read(reinterpret_cast<char*>(bytes), sizeof(bytes));
        return static_cast<Int32>(LittleEndianAt(bytes));
    }

    void Pass(std::int64_t count)
    {
        if (count < 0 || (stream_ && count > end_ - stream_.tellg()))
            FailReading(file_, fmt::format("claims a header that its {} bytes cannot hold", end_));
        stream_.seekg(count, std::ios::cur);
    }

    const std::filesystem::path& file_;
    std::int64_t end_;
    std::istream& stream_;
};

} // namespace

FileHead ReadHead(const std::filesystem::path& file)
{
    std::error_code failure;
    const auto status = std::filesystem::status(file, failure);
    if (!std::filesystem::exists(status))
        FailReading(
            file, failure && failure != std::errc::no_such_file_or_directory ? failure.message() : "no such file");
    if (std::filesystem::is_directory(status))
        FailReading(file, "is a directory");
    if (!std::filesystem::is_regular_file(status))
        FailReading(file, "is not a regular file");
    FileHead head;
    head.fileSize = std::filesystem::file_size(file, failure);
    std::ifstream stream(file, std::ios::binary);
    Opening opening;
    stream.read(reinterpret_cast<char*>(opening.bytes), sizeof(opening.bytes));
    opening.count = static_cast<std::size_t>(stream.gcount());
    if (failure || (!stream && !stream.eof()))
        FailReading(file, "cannot be opened");
    if (opening.count == 0)
        FailReading(file, "is empty");
    head.format = FormatOf(file, opening, head.isMovie);
    stream.clear();
    if (head.format == "png")
        CheckPng(file, head, opening, stream);
    else if (head.format == "jpeg")
        CheckJpeg(file, head, stream);
    else if (head.format == "gif")
        CheckGif(file, head, opening);
    else if (head.format == "openexr")
        ExrHeader(file, head, stream).Check((opening.bytes[5] & 0x10) != 0);
    return head;
}

void FailReading(const std::filesystem::path& file, std::string_view reason)
{
    // Readers may give several reasons, a line each.
    std::string line(reason.substr(0, reason.find_last_not_of(" \n\r.") + 1));
    for (auto at = line.find_first_of("\n\r"); at != line.npos; at = line.find_first_of("\n\r", at))
        line.replace(at, line.find_first_not_of("\n\r", at) - at, "; ");
    throw TextureFileError(fmt::format("{}: {}.", file.string(), line.empty() ? "cannot be read" : line));
}

void CheckSize(const std::filesystem::path& file, std::int64_t width, std::int64_t height)
{
    if (width < 1 || height < 1)
        FailReading(file, fmt::format("has no pixels ({} x {})", width, height));
    if (width > kLargestPicture || height > kLargestPicture)
        FailReading(
            file, fmt::format("is {} x {} pixels large, at most {} a side are read", width, height, kLargestPicture));
}

void CheckBytes(const std::filesystem::path& file, std::uintmax_t bytes, const FileHead& head)
{
    if (bytes > kMostBytes || bytes / kMostUnpacking > head.fileSize)
        FailReading(file, fmt::format("claims more pixels than its {} bytes can hold", head.fileSize));
}

} // namespace velto::host
