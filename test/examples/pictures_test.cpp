// The example graphs against small pictures of them that were looked at once: a file of hexadecimal channels each,
// `pictures/NAME.txt` for `examples/nodes/NAME.json`. With VELTO_WRITE_PICTURES in the environment the files are
// written instead.
#include "host/bake/view.h"
#include "test/support/eval.h"
#include "test/support/files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <paths.h>

namespace velto::test
{

namespace
{

constexpr int kEdge = 24;
constexpr int kTolerance = 3; // of 255

const std::filesystem::path kPictures = VELTO_SOURCE_DIR "/test/examples/pictures";

// Six digits a sample, a row of samples a line.
std::string Picture(const std::string& document)
{
    host::Graph graph;
    std::unique_ptr<host::Instance> instance;
    EXPECT_TRUE(Load(document, graph) && graph.setup->Run().IsOk());
    EXPECT_TRUE(host::Instance::Create(*graph.setup, instance).IsOk());
    std::string picture;
    for (int i = 0; i < kEdge * kEdge; ++i)
    {
        host::FillContext({kEdge, kEdge, {}}, i % kEdge + 0.5, i / kEdge + 0.5, instance->Context());
        EXPECT_TRUE(instance->Evaluate().IsOk());
        const auto channel = [](Float value) { return static_cast<int>(std::clamp(value, 0.0, 1.0) * 255.0 + 0.5); };
        const auto& color = *static_cast<const ColorA*>(instance->Output(0));
        picture += fmt::format("{:02x}{:02x}{:02x}", channel(color.r), channel(color.g), channel(color.b));
        if ((i + 1) % kEdge == 0)
            picture += '\n';
    }
    return picture;
}

TEST(ExamplePicturesTest, LookAsTheyDid)
{
    const bool isWriting = std::getenv("VELTO_WRITE_PICTURES") != nullptr;
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kPictures))
    {
        const std::filesystem::path& file = entry.path();
        SCOPED_TRACE(file.stem().string());
        const std::string picture = Picture(
            ReadFile(std::filesystem::path(VELTO_SOURCE_DIR "/examples/nodes") / (file.stem().string() + ".json")));
        ++count;
        if (isWriting)
        {
            std::ofstream(file, std::ios::binary) << picture;
            continue;
        }
        const std::string expected = ReadFile(file);
        ASSERT_EQ(expected.size(), picture.size());
        int largest = 0;
        for (std::size_t i = 0; i + 1 < picture.size(); ++i)
        {
            if (picture[i] == '\n')
                continue;
            largest = std::max(largest,
                std::abs(std::stoi(picture.substr(i, 2), nullptr, 16) - std::stoi(expected.substr(i, 2), nullptr, 16)));
            ++i;
        }
        EXPECT_LE(largest, kTolerance) << "largest difference of a channel, of 255";
    }
    EXPECT_GT(count, 0);
}

} // namespace

} // namespace velto::test
