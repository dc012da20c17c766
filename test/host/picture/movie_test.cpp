#include "host/picture/library.h"
#include "test/support/picture_files.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <random>

namespace velto::test
{

namespace
{

bool Shell(const std::string& command)
{
    return std::system(command.c_str()) == 0; // NOLINT(concurrency-mt-unsafe)
}

bool HasFfmpeg()
{
    static const bool has = Shell("ffmpeg -version >/dev/null 2>&1");
    return has;
}

template <class T>
std::string Rgb(const host::Pyramid<T>& pyramid, bool hasAlpha)
{
    const auto& level = pyramid.Finest();
    std::string bytes;
    for (int y = 0; y < level.height; ++y)
    {
        for (int x = 0; x < level.width; ++x)
            bytes.append(reinterpret_cast<const char*>(level.At(x, y)), sizeof(T) * (hasAlpha ? 4 : 3));
    }
    return bytes;
}

std::string ReadFrame(const std::string& file, Int frame, bool hasAlpha)
{
    std::string note;
    const auto picture = host::ReadPicture({file, "", frame, false}, note);
    return std::visit([&](const auto& pyramid) { return Rgb(*pyramid, hasAlpha); }, picture->texels);
}

struct MovieCase
{
    const char* file;
    const char* encoding; // what `ffmpeg` is told
    const char* pixels = "rgb24";
    const char* source = "testsrc2=s=66x50:r=24:d=1.5";
    const char* turn = nullptr; // what it is told when the file is copied
};

class MovieTest : public testing::TestWithParam<MovieCase>
{
protected:
    const PictureFolder folder_;
};

} // namespace

// In an order that goes back, ahead, on, and beyond the end.
TEST_P(MovieTest, EveryFrameIsTheOneThatFfmpegDecodes)
{
    if (!HasFfmpeg())
        GTEST_SKIP() << "there is no ffmpeg";
    const MovieCase& movie = GetParam();
    std::string file = folder_.Path(movie.file);
    const std::string raw = folder_.Path("raw");
    ASSERT_TRUE(Shell(
        fmt::format("ffmpeg -loglevel error -f lavfi -i {} {} {} </dev/null", movie.source, movie.encoding, file)));
    if (movie.turn)
    {
        const std::string copy = folder_.Path(fmt::format("copy.{}", movie.file));
        ASSERT_TRUE(
            Shell(fmt::format("ffmpeg -loglevel error -i {} -c copy {} {} </dev/null", file, movie.turn, copy)));
        file = copy;
    }
    ASSERT_TRUE(Shell(fmt::format("ffmpeg -loglevel error -i {} -fps_mode passthrough -f rawvideo -pix_fmt {} {} "
                                  "</dev/null",
        file, movie.pixels, raw)));
    const bool hasAlpha = std::string_view(movie.pixels).starts_with("rgba");
    const std::string expected = ReadFile(raw);
    const std::string first = ReadFrame(file, 0, hasAlpha);
    ASSERT_FALSE(first.empty());
    ASSERT_EQ(expected.size() % first.size(), 0u);
    const auto count = static_cast<Int>(expected.size() / first.size());
    EXPECT_EQ(host::ReadClip(file).frames, count);

    std::vector<Int> order(static_cast<std::size_t>(count));
    std::iota(order.begin(), order.end(), Int(0));
    std::shuffle(order.begin(), order.end(), std::minstd_rand(7)); // NOLINT(cert-msc51-cpp)
    for (Int frame = 0; frame < count; frame += 5)
        order.push_back(frame);
    order.push_back(count + 3);
    for (const Int frame : order)
    {
        const auto at = static_cast<std::size_t>(std::min(frame, count - 1)) * first.size();
        EXPECT_EQ(ReadFrame(file, frame, hasAlpha), expected.substr(at, first.size())) << "frame " << frame;
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, MovieTest,
    testing::Values(MovieCase{"a.mp4", "-c:v libx264 -pix_fmt yuv420p -bf 3 -g 12"},
        MovieCase{"b.mp4", "-c:v libx264 -pix_fmt yuv420p -bf 3 -g 8 -x264-params open-gop=1"},
        MovieCase{"c.mkv", "-c:v libx264 -pix_fmt yuv420p -g 250 -x264-params intra-refresh=1:keyint=10"},
        MovieCase{"d.mkv", "-c:v libx264 -pix_fmt yuv420p -bf 3 -g 8 -x264-params open-gop=1"},
        MovieCase{"e.avi", "-c:v libx264 -pix_fmt yuv420p -bf 3 -g 12"},
        MovieCase{"f.mpg", "-c:v libx264 -pix_fmt yuv420p -bf 3 -g 12"},
        MovieCase{"g.mkv", "-c:v libx264 -pix_fmt yuv420p10le -bf 3 -g 12", "rgb48le"},
        MovieCase{"h.mp4", "-vf scale=out_color_matrix=bt709 -colorspace bt709 -c:v libx264 -pix_fmt yuv420p"},
        MovieCase{"i.mp4", "-vf scale=out_range=full -color_range pc -c:v libx264 -pix_fmt yuv420p"},
        MovieCase{"j.mp4", "-c:v libx265 -x265-params log-level=none -pix_fmt yuv420p -g 12"},
        MovieCase{"k.avi", "-c:v mpeg4 -bf 2 -g 12"}, MovieCase{"l.mp4", "-c:v mpeg4 -bf 2 -g 12"},
        MovieCase{"n.mov", "-c:v mjpeg"}, MovieCase{"p.webm", "-c:v libvpx-vp9 -g 12"},
        MovieCase{"r.webm", "-c:v libvpx -g 12 -auto-alt-ref 0"}, MovieCase{"s.mpg", "-c:v mpeg2video -bf 2 -g 12"},
        MovieCase{"t.mpg", "-c:v mpeg1video -bf 2 -g 12"}, MovieCase{"u.mpg", "-c:v mpeg1video -f mpeg1video"},
        MovieCase{"v.mov", "-c:v prores_ks -pix_fmt yuva444p10le", "rgba64le"}, MovieCase{"w.mov", "-c:v qtrle"},
        MovieCase{"x.mkv", "-c:v ffv1"}, MovieCase{"y.mov", "-c:v png -pix_fmt rgba", "rgba"},
        MovieCase{"z.mp4", "-c:v libaom-av1 -cpu-used 8 -g 12"},
        MovieCase{"turned.mov", "-c:v mjpeg", "rgb24", "testsrc2=s=66x50:r=24:d=0.5", "-metadata:s:v:0 rotate=90"},
        MovieCase{"over.mp4", "-c:v libx264 -pix_fmt yuv420p", "rgb24", "testsrc2=s=66x50:r=24:d=0.5",
            "-metadata:s:v:0 rotate=180"},
        MovieCase{"sound.mpg", "-f lavfi -i sine=d=1.5 -c:v mpeg2video -bf 2 -g 12"},
        MovieCase{"sound.mp4", "-f lavfi -i sine=d=1.5 -c:v libx264 -pix_fmt yuv420p -bf 2 -g 12"},
        MovieCase{"cut.mp4", "-c:v libx264 -pix_fmt yuv420p -bf 2 -ss 0.4"}),
    [](const auto& info) {
        std::string name = info.param.file;
        std::replace(name.begin(), name.end(), '.', '_');
        return name;
    });

namespace
{

// The decoders that this process runs.
std::vector<pid_t> Decoders()
{
    std::ifstream children(fmt::format("/proc/self/task/{}/children", getpid()));
    return {std::istream_iterator<pid_t>(children), {}};
}

std::string FileOf(pid_t process, const char* name)
{
    return ReadFile(fmt::format("/proc/{}/{}", process, name));
}

} // namespace

TEST(MovieDecoder, CanDoNothingButDecode)
{
    const PictureFolder folder;
    const std::string file = folder.WriteVideo("clip.avi", 5, {0.2f, 0.4f});
    const int secret = open("/etc/hostname", O_RDONLY); // NOLINT(android-cloexec-open)
    ReadFrame(file, 0, false);
    ASSERT_EQ(Decoders().size(), 1u);
    const pid_t decoder = Decoders()[0];
    EXPECT_NE(FileOf(decoder, "status").find("NoNewPrivs:\t1\n"), std::string::npos);
    EXPECT_NE(FileOf(decoder, "status").find("Seccomp:\t2\n"), std::string::npos);
    for (const char* const limit :
        {"Max open files            0 ", "Max file size             0 ", "Max core file size        0 ",
            "Max address space         4294967296 ", "Max cpu time              3600 "})
        EXPECT_NE(FileOf(decoder, "limits").find(limit), std::string::npos) << limit;
    std::vector<std::string> open;
    for (const auto& entry : std::filesystem::directory_iterator(fmt::format("/proc/{}/fd", decoder)))
        open.push_back(std::filesystem::read_symlink(entry.path()).string());
    std::sort(open.begin(), open.end());
    ASSERT_EQ(open.size(), 4u);
    EXPECT_EQ(open[0], "/dev/null");
    EXPECT_TRUE(open[1].starts_with("/memfd:")) << open[1];
    EXPECT_EQ(open[2], file);
    EXPECT_TRUE(open[3].starts_with("socket:")) << open[3];
    close(secret);
}

TEST(MovieDecoder, IsReplacedWhenItDies)
{
    const PictureFolder folder;
    const std::string file = folder.WriteVideo("clip.avi", 5, {0.2f, 0.4f, 0.6f});
    const std::string second = ReadFrame(file, 1, false);
    for (const pid_t decoder : Decoders())
        kill(decoder, SIGKILL);
    EXPECT_EQ(ReadFrame(file, 1, false), second);
}

// A list of other files, in the clothes of a movie.
TEST(MovieDecoder, OpensNoOtherFile)
{
    const PictureFolder folder;
    const std::string other = folder.WriteVideo("clip.avi", 5, {0.2f, 0.4f});
    for (const std::string& bytes : {"RIFF\x20\0\0\0AVI ffconcat version 1.0\nfile " + other + "\n",
             "#EXTM3U\n#EXTINF:1\n" + other + "\n", "ffconcat version 1.0\nfile " + other + "\n"})
    {
        const std::string list = folder.WriteBytes("list.avi", bytes);
        EXPECT_THROW(ReadFrame(list, 0, false), host::TextureFileError) << bytes;
        EXPECT_THROW(host::ReadClip(list), host::TextureFileError) << bytes;
    }
}

TEST(Gif, FramesAreShownAsLongAsTheySay)
{
    const PictureFolder folder;
    const host::Clip clip = host::ReadClip(folder.WriteGif("clip.gif", 2, {50, 10, 1, 200}));
    EXPECT_EQ(clip.frames, 4);
    EXPECT_DOUBLE_EQ(clip.seconds, 2.7) << "too short a delay counts as a tenth of a second";
    const std::pair<double, Int> shown[] = {{0.0, 0}, {0.49, 0}, {0.5, 1}, {0.59, 1}, {0.6, 2}, {0.7, 3}, {9.0, 3}};
    for (const auto& [time, frame] : shown)
        EXPECT_EQ(clip.FrameAt(time), frame) << time;
}

} // namespace velto::test
