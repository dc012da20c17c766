// Reads what no program ever wrote as movies: most often by a copy of this process, in the sandbox, which starts much
// faster than the decoder's program; now and then by that program, as the host does it. Whatever becomes of them, the
// host goes on. Into an empty directory it first writes small movies, where there is an ffmpeg to encode them.
#include "host/decode/decoder.h"
#include "host/decode/sandbox.h"
#include "host/picture/reader.h"
#include "host/system/allocator.h"
#include "test/fuzz/targets.h"
#include "test/support/picture_files.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

using namespace velto;

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments)
{
    slots<SystemInterface> = host::SystemService(); // what texels lie in
    const std::filesystem::path last((*arguments)[*count - 1]);
    if (!std::filesystem::is_directory(last) || !std::filesystem::is_empty(last))
        return 0;
    const test::PictureFolder folder;
    std::filesystem::copy(folder.WriteGif("a.gif", 2, {50, 0, 3}), last);
    std::filesystem::copy(folder.WriteVideo("b.avi", 5, {0.1f, 0.9f}), last);
    static constexpr std::pair<const char*, const char*> kMovies[] = {{"c.mp4", "libx264 -bf 2 -pix_fmt yuv420p"},
        {"d.mov", "mjpeg"}, {"e.avi", "mpeg4 -bf 2"}, {"f.webm", "libvpx-vp9"}, {"g.mkv", "ffv1"},
        {"h.mpg", "mpeg2video -bf 2"}, {"i.mov", "qtrle"}, {"j.mov", "mpeg4"}, {"k.gif", "gif"}};
    for (const auto& [file, encoding] : kMovies)
    {
        const std::string command =
            fmt::format("ffmpeg -loglevel quiet -f lavfi -i testsrc2=s=24x16:r=8:d=0.75 -c:v {} "
                        "{} </dev/null",
                encoding, (last / file).string());
        if (std::system(command.c_str()) != 0) // NOLINT(concurrency-mt-unsafe)
            std::filesystem::remove(last / file);
    }
    return 0;
}

namespace
{

[[noreturn]] void Decode(int file, const char* container)
{
    host::MovieDecoder decoder(file, container);
#if !defined(__has_feature) // sanitizers ask for more than the sandbox gives
    if (!host::EnterSandbox(file, -1, {rlim_t(4) << 30, 10}))
        std::abort();
#endif
    if (decoder.Open() == host::MovieStatus::Fine)
    {
        const host::MovieFacts& facts = decoder.Facts();
        std::vector<std::uint8_t> pixels(
            static_cast<std::size_t>(facts.rowBytes) * static_cast<std::size_t>(facts.height));
        for (const std::int64_t number : {facts.pictures - 1, std::int64_t(0), facts.pictures / 2})
            decoder.Decode(number, pixels.data());
    }
    _exit(0);
}

void ReadByCopy(const std::string& name)
{
    std::string container;
    try
    {
        const host::FileHead head = host::ReadHead(name);
        if (!head.isMovie)
            return;
        container = head.format;
    }
    catch (const host::TextureFileError&)
    {
        return;
    }
    const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    const pid_t copy = fork();
    if (copy == 0)
        Decode(file, container.c_str());
    close(file);
    waitpid(copy, nullptr, 0);
}

void ReadByHost(const std::string& file)
{
    try
    {
        std::string note;
        const host::Clip clip = host::ReadClip(file);
        for (const Int frame : {clip.frames - 1, Int(0), clip.frames / 2})
            host::ReadPicture({file, "", frame, false, UInt(1) << 28}, note);
    }
    catch (const host::TextureFileError&)
    {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Every file has a name of its own, since movies that are known stay open.
    static const test::PictureFolder folder;
    static int count = 0;
    const std::string file =
        folder.WriteBytes(fmt::format("{}.movie", count), std::string(reinterpret_cast<const char*>(data), size));
    count++ % 64 == 0 ? ReadByHost(file) : ReadByCopy(file);
    std::filesystem::remove(file);
    return 0;
}
