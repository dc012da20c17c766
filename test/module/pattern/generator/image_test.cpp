#include "test/support/eval.h"
#include "test/support/picture_files.h"

#include "velto/imagesequence_cache.h"

#include "host/text/url.h"

#include <fmt/format.h>

namespace velto::test
{

using host::Json;

namespace
{

class ImageTest : public ::testing::Test
{
protected:
    // The node on a file of the folder, with the other inputs as they are given.
    static std::string Document(const std::string& file, std::string_view more = "")
    {
        return fmt::format(R"({{"version": 1, "nodes": {{"image": {{
                "type": "net.velto.pattern.corenode.generator.image", "inputs": {{"url": "{}", "interpolation": "none",
                    "mode": "raw", "defaultColor": [0.25, 0.5, 0.75, 1] {}}}}}}},
                "outputs": {{"color": "image.result", "width": "image.width", "height": "image.height",
                    "fps": "image.fps", "length": "image.length"}}}})",
            file, more);
    }

    // The first channel of what is shown, in hundredths.
    static int Shown(const std::string& file, std::string_view more = "", double seconds = 0.0)
    {
        const Json results = EvalJson(Document(file, more), fmt::format(R"([{{"time": {}}}])", seconds));
        return static_cast<int>(Parse(Output(results, "color")).Elements().at(0).AsNumber() * 100.0 + 0.5);
    }

    // Frames that show their own number in hundredths.
    std::string Sequence(int first, int last, const char* name = "frame_{:04}.png") const
    {
        for (int frame = first; frame <= last; ++frame)
            folder.Write(fmt::format(fmt::runtime(name), frame), PictureDepth::UInt16, {frame / 100.0f, 0.0f, 0.0f});
        return folder.Path(fmt::format(fmt::runtime(name), first));
    }

    // The file of a frame beside `name`, without its directory.
    std::string FrameFile(const std::string& name, Int frame, bool* found = nullptr)
    {
        TheModule();
        Url url;
        EXPECT_TRUE(host::MakeUrl(folder.Path(name), url).IsOk());
        const Result set = SetSequenceFrame(url, frame, found);
        return set.IsError() ? std::string(set.Message()) : std::filesystem::path(velto::Path(url)).filename().string();
    }

    PictureFolder folder;
};

} // namespace

TEST_F(ImageTest, NumbersInNames)
{
    for (const char* const name :
        {"a7.png", "b007.png", "b07.png", "c000000012.png", "d.v2.007.tif", "e3.mp4", "f4.r2k"})
        folder.WriteBytes(name, "x");
    struct Row
    {
        const char* name;
        Int frame;
        const char* expected;
        bool found;
    };
    const Row rows[] = {{"a1.png", 7, "a7.png", true}, {"b1.png", 7, "b07.png", true},
        {"c1.png", 12, "c000000012.png", true}, {"d.v2.001.tif", 7, "d.v2.007.tif", true},
        {"e1.mp4", 3, "e3.mp4", true}, {"f1.r2k", 4, "f4.r2k", true}, {"a0001.png", 8, "a8.png", false},
        {"a1.png", 1234567890, "a1234567890.png", false}, {"a1.png", -7, "a-7.png", false},
        {"001.png", 7, "001.png", false}, {"x.png", 7, "x.png", false}, {"x.mp4", 7, "x.mp4", false},
        {"x.mp3", 7, "x.mp7", false}};
    for (const Row& row : rows)
    {
        bool found = !row.found;
        EXPECT_EQ(row.expected, FrameFile(row.name, row.frame, &found)) << row.name;
        EXPECT_EQ(row.found, found) << row.name;
    }
    EXPECT_EQ("Found no or too long number sequence.", FrameFile("001.png", 7));
    EXPECT_EQ("a7.png", FrameFile("a1.png", 7));
}

TEST_F(ImageTest, PlaybackOfASequence)
{
    const std::string file = Sequence(10, 14);
    struct Row
    {
        const char* mode;
        double seconds;
        int frame;
    };
    // Five frames at five a second: a second each pass, 0.8 in ping-pong.
    const Row rows[] = {{"once", 0.0, 10}, {"once", 0.2, 11}, {"once", 0.6, 13}, {"once", 7.0, 14}, {"once", -3.0, 10},
        {"loop", 0.8, 14}, {"loop", 1.0, 10}, {"loop", 1.2, 11}, {"loop", 6.6, 13}, {"pingpong", 0.4, 12},
        {"pingpong", 0.8, 14}, {"pingpong", 1.0, 13}, {"pingpong", 1.6, 10}, {"pingpong", 1.8, 11}, {"", 9.0, 14}};
    for (const Row& row : rows)
        EXPECT_EQ(
            row.frame, Shown(file,
                           fmt::format(R"(, "frameStart": 10, "frameEnd": 14, "frameRate": 5, "playbackEnd": 100 {})",
                               *row.mode ? fmt::format(R"(, "playbackMode": "{}")", row.mode) : ""),
                           row.seconds))
            << row.mode << " at " << row.seconds;
}

TEST_F(ImageTest, PlaybackBounds)
{
    const std::string file = Sequence(10, 14);
    const auto at = [&](std::string_view more, double seconds) {
        return Shown(file, fmt::format(R"(, "frameStart": 10, "frameEnd": 14, {})", more), seconds);
    };
    // Before the start and behind the end it stands still.
    EXPECT_EQ(10, at(R"("frameRate": 5, "playbackStart": 2, "playbackEnd": 2.4)", 1.0));
    EXPECT_EQ(11, at(R"("frameRate": 5, "playbackStart": 2, "playbackEnd": 2.4)", 2.2));
    EXPECT_EQ(12, at(R"("frameRate": 5, "playbackStart": 2, "playbackEnd": 2.4)", 9.0));
    EXPECT_EQ(13, at(R"("frameRate": 5, "playbackEnd": 9, "movieTime": 0.6)", 0.0));
    // Rates that are none show the file as it is, or at least some frame.
    EXPECT_EQ(10, at(R"("frameRate": 0, "playbackEnd": 9)", 0.6));
    for (const char* const rate : {R"("nan")", R"("inf")", "-5"})
    {
        for (const char* const mode : {"once", "loop", "pingpong"})
            at(fmt::format(R"("frameRate": {}, "playbackEnd": 9, "playbackMode": "{}")", rate, mode),
                0.6); // does not fail
    }
    // The same number twice is no sequence.
    EXPECT_EQ(10, Shown(file, R"(, "frameStart": 12, "frameEnd": 12, "frameRate": 5, "playbackEnd": 9)", 0.6));
}

TEST_F(ImageTest, AMovieGetsItsTime)
{
    const std::string file = folder.WriteMovie("clip.gif", 5, {0.1f, 0.3f, 0.5f, 0.7f});
    const auto at = [&](double seconds) {
        return Shown(file,
            R"(, "playbackMode": "loop", "playbackEnd": 100, "frameStart": 3, "frameEnd": 9, "layerSet": "1")",
            seconds);
    };
    const int first = at(0.0);
    EXPECT_NEAR(10, first, 2);
    EXPECT_NEAR(30, at(0.2), 2);
    EXPECT_NEAR(70, at(0.75), 2);
    EXPECT_EQ(first, at(0.85));
    const Json results = EvalJson(Document(file, R"(, "playbackEnd": 100)"));
    EXPECT_TRUE(AreEqual(Parse("5"), Parse(Output(results, "fps")), 1e-6));
    EXPECT_TRUE(AreEqual(Parse("0.8"), Parse(Output(results, "length")), 1e-6));
}

TEST_F(ImageTest, DetailsAndPlaces)
{
    const std::string file = folder.Write("a.png", PictureDepth::UInt8, {1.0f, 0.0f, 0.0f});
    const Json results = EvalJson(Document(file), R"([{}, {"uvwValid": false}])");
    EXPECT_EQ("4", Parse(Output(results, "width")).Write());
    EXPECT_EQ("4", Parse(Output(results, "height")).Write());
    EXPECT_EQ("0", Parse(Output(results, "length")).Write());
    EXPECT_TRUE(AreEqual(Parse("[1, 0, 0, 1]"), Parse(Output(results, "color", 0))));
    EXPECT_TRUE(AreEqual(Parse("[0, 0, 0, 0]"), Parse(Output(results, "color", 1))));
}

TEST_F(ImageTest, TheColourFlag)
{
    const std::string file = folder.Write("a.png", PictureDepth::UInt16, {0.5f, 0.5f, 0.5f});
    const std::string managed = fmt::format(R"({{"version": 1, "nodes": {{"image": {{
        "type": "net.velto.pattern.corenode.generator.image", "inputs": {{"url": "{}", "mode": "default"}}}}}},
        "outputs": {{"color": "image.result"}}}})",
        file);
    const Json results = EvalJson(managed, R"([{}, {"filterOff": true}])");
    EXPECT_NEAR(0.2140, Parse(Output(results, "color", 0)).Elements().at(0).AsNumber(), 1e-4);
    EXPECT_NEAR(0.5, Parse(Output(results, "color", 1)).Elements().at(0).AsNumber(), 1e-4);
    EXPECT_EQ(50, Shown(file));
}

// What cannot be read shows the default colour, says so once, and is not tried again.
TEST_F(ImageTest, FailuresKeepTheRenderGoing)
{
    const std::string file = folder.Path("later.png");
    const std::string good = folder.Write("good.png", PictureDepth::UInt8, {1.0f, 0.0f, 0.0f});
    const Json results = EvalJson(
        Document(file), fmt::format(R"([{{}}, {{"uvwValid": false}}, {{"set": {{"image.url": "{}"}}}}])", good));
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_TRUE(AreEqual(Parse("[0.25, 0.5, 0.75, 1]"), Parse(Output(results, "color", i)))) << i;
    const Json* const messages = Entry(results).Find("messages");
    ASSERT_TRUE(messages);
    ASSERT_EQ(1u, messages->Elements().size());
    EXPECT_EQ("nodes.image.inputs.url: " + file + ": no such file.", messages->Elements()[0].AsString());
    EXPECT_FALSE(Entry(results, 1).Find("messages"));

    const Json none = EvalJson(Document(""));
    EXPECT_FALSE(Entry(none).Find("messages"));
    EXPECT_TRUE(AreEqual(Parse("[0.25, 0.5, 0.75, 1]"), Parse(Output(none, "color"))));
    // A hole in a sequence is a file that is not there.
    const std::string first = Sequence(10, 11);
    EXPECT_EQ(25, Shown(first, R"(, "frameStart": 10, "frameEnd": 14, "frameRate": 5, "playbackEnd": 9)", 0.4));
}

TEST_F(ImageTest, SearchPathsServeSequencesToo)
{
    Sequence(10, 14);
    host::GraphOptions options;
    options.searchPaths = {"/nowhere", folder.Path("")};
    // The file that is named need not be there.
    const Json results =
        EvalJson(Document("frame_0001.png",
                     R"(, "frameStart": 10, "frameEnd": 14, "frameRate": 5, "playbackEnd": 9, "movieTime": 0.6)"),
            "[{}]", options);
    EXPECT_NEAR(0.13, Parse(Output(results, "color")).Elements().at(0).AsNumber(), 1e-4);
}

} // namespace velto::test
