// Reads what no program ever wrote as picture files, as the image node does. Into an empty directory it first writes
// small files of all formats, to start from.
#include "host/picture/reader.h"
#include "host/picture/sampling.h"
#include "host/system/allocator.h"
#include "test/fuzz/targets.h"
#include "test/support/picture_files.h"

#include <fmt/format.h>

#include <iterator>

namespace velto::test
{

namespace
{

// An input is a byte that says how the file is read, and the file.
struct Way
{
    std::uint8_t bits;

    std::string Layer() const
    {
        static constexpr const char* kLayers[] = {"", "1", "second", "diffuse"};
        return kLayers[bits & 3];
    }
    bool AsFloat() const { return bits & 4; }
    UInt Memory() const { return bits & 8 ? UInt(1) << 12 : UInt(1) << 28; }
};

void WriteSeeds(const std::filesystem::path& directory)
{
    const PictureFolder folder;
    int count = 0;
    const auto add = [&](const std::string& file, std::uint8_t way = 0) {
        std::ofstream(directory / fmt::format("{:02}", count++), std::ios::binary)
            << static_cast<char>(way) << ReadFile(file);
    };
    const std::vector<float> color{0.2f, 0.4f, 0.6f, 0.8f};
    for (const char* const name : {"a.png", "a.tga", "a.tif"})
        add(folder.Write(name, PictureDepth::UInt8, color));
    for (const char* const name : {"b.png", "b.tif"})
        add(folder.Write(name, PictureDepth::UInt16, color), 4);
    for (const char* const name : {"c.exr", "c.tif"})
        add(folder.Write(name, PictureDepth::Float, color), 8);
    for (const char* const name : {"d.jpg", "d.hdr"})
        add(folder.Write(name, PictureDepth::UInt8, {0.2f, 0.4f, 0.6f}));
    add(folder.WriteChecker("e.tif", 32), 8);
    add(folder.WriteLayers("f.exr"), 2);
    add(folder.WriteLayers("g.exr"), 3);
    add(folder.WritePages("h.tif", {1, 1}), 1);
}

void Read(const std::filesystem::path& file, const Way& way)
{
    std::string note;
    std::unique_ptr<Picture> picture;
    try
    {
        if (host::ReadHead(file).isMovie)
            return; // see movie_fuzz.cpp
        picture = host::ReadPicture({file, way.Layer(), 0, way.AsFloat(), way.Memory()}, note);
    }
    catch (const host::TextureFileError&)
    {
        return;
    }
    for (const Int32 filter : {texture_filter::kNone, texture_filter::kMip, texture_filter::kSat})
        host::SamplePicture(*picture, {.u = 0.7, .v = 1.0, .width = 0.6, .height = 0.4, .interpolation = filter});
}

} // namespace

} // namespace velto::test

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments)
{
    velto::slots<velto::SystemInterface> = velto::host::SystemService(); // what texels lie in
    const std::filesystem::path last((*arguments)[*count - 1]);
    if (std::filesystem::is_directory(last) && std::filesystem::is_empty(last))
        velto::test::WriteSeeds(last);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    // Every file has a name of its own, since files that are known are not opened again.
    static const velto::test::PictureFolder folder;
    static int count = 0;
    const velto::test::Way way{data[0]};
    const std::string file = folder.WriteBytes(
        fmt::format("{}.tga", count++), std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    velto::test::Read(file, way);
    std::filesystem::remove(file);
    return 0;
}
