#include "parts.h"

#include "host/picture/exr_reader.h"
#include "host/system/cores.h"
#include "host/system/guard.h"

#include <fmt/format.h>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <tuple>

namespace velto::host
{

namespace
{

constexpr int kTileRows = 64;
constexpr const char* kHash = "velto:hash";
constexpr const char* kPart = "velto:part";
constexpr const char* kWindow = "velto:window";
constexpr const char* kEncoding = "velto:encoding";

// Numbers with one character between each and the next, which is ignored.
template <std::size_t N>
bool ParseNumbers(std::string_view text, int (&numbers)[N])
{
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < N; ++i)
    {
        const auto [next, failure] = std::from_chars(at, end, numbers[i]);
        if (failure != std::errc() || (next == end) != (i + 1 == N))
            return false;
        at = next + 1;
    }
    return true;
}

bool ReadIdentity(const ExrReader& part, PartIdentity& identity)
{
    int window[4] = {};
    int encoding[3] = {};
    if (!ParseShard(part.Attribute(kPart), identity.shard) || !ParseNumbers(part.Attribute(kWindow), window) ||
        !ParseNumbers(part.Attribute(kEncoding), encoding))
        return false;
    identity.hash = part.Attribute(kHash);
    identity.window = {window[0], window[1], window[2], window[3]};
    identity.encoding = {static_cast<PixelDepth>(std::clamp(encoding[0], 0, 4)),
        static_cast<PictureColorSpace>(std::clamp(encoding[1], 0, 2)),
        static_cast<PictureContent>(std::clamp(encoding[2], 0, 3))};
    const PictureLayout& layout = part.Layout();
    const BakeWindow rows = ShardWindow(identity.window, identity.shard);
    return identity.window.width > 0 && identity.window.height > 0 && layout.x == identity.window.x &&
           (rows.height == 0 || (layout.y == rows.y && layout.height == rows.height && layout.width == rows.width));
}

struct Part
{
    std::string file;
    std::unique_ptr<ExrReader> reader;
    PartIdentity identity;
};

bool AreOfOne(const Part& a, const Part& b)
{
    const auto key = [](const Part& part) {
        const PartIdentity& i = part.identity;
        const PictureLayout& layout = part.reader->Layout();
        return std::tuple(i.shard.count, i.hash, i.window.x, i.window.y, i.window.width, i.window.height,
            layout.channels, layout.wholeWidth, layout.wholeHeight);
    };
    return key(a) == key(b);
}

// Opens all parts, in order of their rows.
std::vector<Part> OpenParts(const MergeJob& job, std::vector<std::string>& problems)
{
    std::vector<Part> parts;
    for (const std::string& file : job.parts)
    {
        Part part{file, {}, {}};
        if (const Result opened = ExrReader::Open(file, part.reader); opened.IsError())
            problems.emplace_back(opened.Message());
        else if (!ReadIdentity(*part.reader, part.identity))
            problems.push_back(file + " is no part of a picture");
        else if (!job.hash.empty() && part.identity.hash != job.hash)
            problems.push_back(file + " belongs to another bake: other inputs, settings or another version");
        else if (!parts.empty() && !AreOfOne(part, parts.front()))
            problems.push_back(fmt::format("{} and {} belong to different bakes", file, parts.front().file));
        else
            parts.push_back(std::move(part));
    }
    std::stable_sort(parts.begin(), parts.end(),
        [](const Part& a, const Part& b) { return a.identity.shard.index < b.identity.shard.index; });
    const int count = parts.empty() ? 0 : parts.front().identity.shard.count;
    int wanted = 1;
    for (const Part& part : parts)
    {
        const int index = part.identity.shard.index;
        if (index < wanted)
            problems.push_back(fmt::format("{}: part {} is given twice", part.file, index));
        for (; wanted < index; ++wanted)
            problems.push_back(PartName(job.file, {wanted, count}) + " is missing");
        wanted = std::max(wanted, index + 1);
    }
    for (; wanted <= count; ++wanted)
        problems.push_back(PartName(job.file, {wanted, count}) + " is missing");
    if (parts.empty() && problems.empty())
        problems.push_back(job.file + ": there are no parts of it");
    return parts;
}

Result WriteMerged(const MergeJob& job, std::vector<Part>& parts)
{
    const PartIdentity& identity = parts.front().identity;
    PictureLayout layout = parts.front().reader->Layout();
    layout.attributes.clear();
    layout.x = identity.window.x;
    layout.y = identity.window.y;
    layout.width = identity.window.width;
    layout.height = identity.window.height;
    PictureEncoding encoding = job.encoding;
    if (encoding.depth == PixelDepth::Default)
        encoding.depth = identity.encoding.depth;
    if (encoding.colorSpace == PictureColorSpace::Default)
        encoding.colorSpace = identity.encoding.colorSpace;
    if (encoding.content == PictureContent::Default)
        encoding.content = identity.encoding.content;
    std::vector<std::unique_ptr<PictureWriter>> writers(1);
    VELTO_TRY(PictureWriter::Open(job.file, job.format, layout, encoding, writers[0]));
    constexpr int kBandRows = 128;
    std::vector<float> band(
        static_cast<std::size_t>(layout.width) * static_cast<std::size_t>(layout.channels) * kBandRows);
    for (Part& part : parts)
    {
        const int rows = ShardWindow(identity.window, part.identity.shard).height;
        for (int row = 0; row < rows; row += kBandRows)
        {
            const int count = std::min(kBandRows, rows - row);
            VELTO_TRY(part.reader->ReadRows(band.data(), count));
            VELTO_TRY(writers[0]->WriteRows(band.data(), count));
        }
    }
    VELTO_TRY(writers[0]->Complete());
    return PictureWriter::PutInPlace(writers);
}

} // namespace

bool ParseShard(std::string_view text, Shard& shard)
{
    int numbers[2] = {};
    if (text.find('/') == text.npos || !ParseNumbers(text, numbers))
        return false;
    shard = {numbers[0], numbers[1]};
    return shard.index >= 1 && shard.index <= shard.count && shard.count <= 1'000'000;
}

BakeWindow ShardWindow(const BakeWindow& window, const Shard& shard)
{
    const long tiles = (window.height + kTileRows - 1) / kTileRows;
    const auto rowOf = [&](long index) {
        return std::min(static_cast<int>(tiles * index / shard.count) * kTileRows, window.height);
    };
    const int first = rowOf(shard.index - 1);
    return {window.x, window.y + first, window.width, rowOf(shard.index) - first};
}

std::string PartName(const std::string& file, const Shard& shard)
{
    const std::filesystem::path path(file);
    return (path.parent_path() / fmt::format("{}.{}-of-{}.part.exr", path.stem().string(), shard.index, shard.count))
        .string();
}

std::vector<std::string> FindParts(const std::string& file)
{
    const std::filesystem::path path(file);
    const std::string start = path.stem().string() + '.';
    std::vector<std::string> parts;
    std::error_code ignored;
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    {
        const std::string name = entry.path().filename().string();
        constexpr std::string_view kEnd = ".part.exr";
        constexpr std::string_view kOf = "-of-";
        if (!name.starts_with(start) || !name.ends_with(kEnd) || name.size() <= start.size() + kEnd.size())
            continue;
        std::string shard = name.substr(start.size(), name.size() - start.size() - kEnd.size());
        Shard parsed;
        if (const auto of = shard.find(kOf); of != shard.npos)
            shard.replace(of, kOf.size(), "/");
        if (ParseShard(shard, parsed))
            parts.push_back((path.parent_path() / name).string());
    }
    std::sort(parts.begin(), parts.end());
    return parts;
}

void MakePart(const PartIdentity& identity, BakeWindow& window, BakeTarget& target)
{
    window = ShardWindow(identity.window, identity.shard);
    if (window.height == 0)
        window = {identity.window.x, identity.window.y, 1, 1};
    target.file = PartName(target.file, identity.shard);
    target.format = "exr";
    target.isPart = true;
    const BakeWindow& whole = identity.window;
    target.attributes = {{kHash, identity.hash},
        {kPart, fmt::format("{}/{}", identity.shard.index, identity.shard.count)},
        {kWindow, fmt::format("{},{},{}x{}", whole.x, whole.y, whole.width, whole.height)},
        {kEncoding, fmt::format("{},{},{}", static_cast<int>(identity.encoding.depth),
                        static_cast<int>(identity.encoding.colorSpace), static_cast<int>(identity.encoding.content))}};
}

bool IsPart(const std::string& file, const PictureAttributes& attributes)
{
    std::unique_ptr<ExrReader> reader;
    PartIdentity found;
    const Result opened = ExrReader::Open(file, reader);
    return opened.IsOk() && ReadIdentity(*reader, found) && reader->Layout().attributes == attributes;
}

bool MergeParts(const MergeJob& job, std::vector<std::string>& problems)
{
    const Result merged = Guarded([&]() -> Result {
        std::vector<Part> parts = OpenParts(job, problems);
        if (!problems.empty())
            return {};
        const int threads = job.threads > 0 ? job.threads : UsableCores();
        const tbb::global_control limit(
            tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(std::max(threads, 2)));
        tbb::task_arena arena(threads);
        Result written;
        arena.execute([&] { written = Guarded([&] { return WriteMerged(job, parts); }); });
        return written;
    });
    if (merged.IsError())
        problems.emplace_back(merged.Message());
    return problems.empty();
}

} // namespace velto::host
