// Frames of pictures that move, as the command bakes them.
#include "test/support/picture_files.h"
#include "test/support/pixels.h"

#include <fmt/format.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include <paths.h>

namespace velto::test
{

namespace
{

class BakeAnimationTest : public ::testing::Test
{
protected:
    // What the command says about an image node with these inputs, baked as frames 0 to 3 of five a second.
    std::string Bake(const std::string& inputs) const
    {
        return Run(inputs, "bake image.json -o out.#.tif --size 4 --frames 0-3 --fps 5 --depth float "
                           "--colorspace linear");
    }

    std::string Run(const std::string& inputs, const std::string& arguments, int status = 0) const
    {
        folder.WriteBytes(
            "image.json", fmt::format(R"({{"version": 1, "nodes": {{"image": {{"type": "image", "inputs": {{
            {}, "playbackMode": "loop", "interpolation": "none", "mode": "raw"}}}}}}, "outputs": {{"o": "image.result"}}}})",
                              inputs));
        const std::string command =
            fmt::format("cd {} && {}/velto {} 2>err.txt", folder.Path(""), VELTO_BUILD_DIR, arguments);
        EXPECT_EQ(status, WEXITSTATUS(std::system(command.c_str()))) << command;
        return folder.Read("err.txt");
    }

    // The first channel of a baked frame, in hundredths.
    int Shown(int frame) const
    {
        const PixelImage image = ReadPixels(folder.Path(fmt::format("out.{}.tif", frame)));
        return static_cast<int>(image.values.at(0) * 100.0f + 0.5f);
    }

    PictureFolder folder;
};

} // namespace

TEST_F(BakeAnimationTest, SequencesAndMoviesRun)
{
    for (const int number : {8, 9, 10})
        folder.Write(fmt::format("picture{:02}.tif", number), PictureDepth::Float, {number / 100.0f, 0.0f, 0.0f});
    EXPECT_EQ("", Bake(R"("url": "picture08.tif", "frameStart": 8, "frameEnd": 10, "frameRate": 5)"));
    EXPECT_EQ((std::array{8, 9, 10, 8}), (std::array{Shown(0), Shown(1), Shown(2), Shown(3)}));

    folder.WriteMovie("clip.gif", 5, {0.2f, 0.4f, 0.6f});
    folder.WriteVideo("clip.avi", 5, {0.2f, 0.4f, 0.6f});
    for (const char* const name : {"clip.gif", "clip.avi"})
    {
        EXPECT_EQ("", Bake(fmt::format(R"("url": "{}")", name)));
        for (const auto& [frame, expected] : {std::pair{0, 20}, {1, 40}, {2, 60}, {3, 20}})
            EXPECT_NEAR(expected, Shown(frame), 2) << name << " " << frame;
    }

    // What is wrong with all frames is said once.
    const std::string said = Bake(R"("url": "none.png")");
    EXPECT_EQ(said.find("none.png: no such file"), said.rfind("none.png"));
    EXPECT_NE(std::string::npos, said.find("none.png: no such file"));
}

// What is too large is refused before it is made, with what is largest.
TEST_F(BakeAnimationTest, MemoryIsShared)
{
    folder.WriteChecker("large.png", 1024);
    const std::string url = R"("url": "large.png")";
    const std::string refusal =
        "image.json: asks for 7 MB of memory, and 4 MB are granted (--memory); most of it is for "
        "nodes.image.inputs.url (picture of 1024 x 1024), 7 MB";
    EXPECT_EQ("", Run(url, "check image.json --memory 8"));
    EXPECT_EQ("velto: error: " + refusal + "\n", Run(url, "check image.json --memory 4", 1));
    EXPECT_EQ("", Run(url, "bake image.json -o out.tif --size 4 --memory 8"));
    EXPECT_EQ("velto: error: " + refusal + "\n", Run(url, "eval image.json --memory 4 >out.txt", 1));
    EXPECT_NE(std::string::npos, Run(url, "bake image.json -o out.tif --size 4 --memory 4", 1).find(refusal));
    folder.WriteBytes("blur.json", R"({"version": 1, "nodes": {"place": {"type": "placement2d"},
        "blur": {"type": "blur", "inputs": {"resolution": 1000, "color": [1, 1, 1, 1]}}}, "outputs": {"o": "blur.result"}})");
    EXPECT_EQ("velto: error: blur.json: asks for 31 MB of memory, and 30 MB are granted (--memory); most of it is for "
              "nodes.blur (raster of 1000 x 1000), 31 MB\n",
        Run(url, "bake blur.json -o out.tif --size 4 --memory 30", 1));
    EXPECT_EQ("", Run(url, "eval blur.json --memory 70 >out.txt"));
    EXPECT_NE("", Run(url, "eval blur.json --memory 30 >out.txt", 1));
}

// Both name the input and the file that is looked for.
TEST_F(BakeAnimationTest, CheckLooksForPictures)
{
    for (const int number : {8, 9, 11})
        folder.Write(fmt::format("picture{:02}.tif", number), PictureDepth::Float, {0.5f, 0.5f, 0.5f});
    folder.WriteBytes("picture09.tif", "no picture");
    const std::string where =
        "no such file in the working directory and " + std::filesystem::path(folder.Path("x")).parent_path().string();
    struct Row
    {
        std::string inputs;
        std::vector<std::string> warnings;
    };
    const Row rows[] = {{R"("url": "picture08.tif")", {}}, {R"("url": "none.png")", {"none.png: " + where + "."}},
        {R"("url": "picture09.tif")", {"picture09.tif: is of no format"}},
        {R"("url": "picture01.tif", "frameStart": 6, "frameEnd": 12, "frameRate": 5)",
            {"picture09.tif: is of no format", "picture06.tif: " + where + ". 4 frames are missing: 6-7, 10, 12."}}};
    for (const Row& row : rows)
    {
        const std::string said = Run(row.inputs, "check image.json");
        EXPECT_EQ(row.warnings.size(), static_cast<std::size_t>(std::count(said.begin(), said.end(), '\n'))) << said;
        for (const std::string& warning : row.warnings)
            EXPECT_NE(std::string::npos, said.find("image.json: nodes.image.inputs.url: " + warning)) << said;
    }
    EXPECT_NE(std::string::npos, Bake(rows[3].inputs).find("nodes.image.inputs.url: picture06.tif: " + where));
}

} // namespace velto::test
