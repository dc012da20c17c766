// The example graphs against small pictures of them that were looked at once: a file of hexadecimal channels each,
// `pictures/NAME.txt` for `examples/nodes/NAME.json`. With VELTO_WRITE_PICTURES in the environment the files are
// written instead.
#include "test/support/eval.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <paths.h>

namespace velto::test
{

namespace
{

constexpr int kEdge = 24;
constexpr int kTolerance = 3; // of 255

const std::filesystem::path kPictures = VELTO_SOURCE_DIR "/test/examples/pictures";

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Samples in the order of `velto bake`, with the same footprints.
std::string Samples()
{
    std::string samples;
    for (int y = 0; y < kEdge; ++y)
    {
        for (int x = 0; x < kEdge; ++x)
        {
            const double u = (x + 0.5) / kEdge;
            const double v = (y + 0.5) / kEdge;
            samples += fmt::format(
                R"({}{{"uvw": [{}, {}, 0], "uvwPlusDeltaU": [{}, {}, 0], "uvwPlusDeltaV": [{}, {}, 0],
                    "shadingNormal": [0, 0, 1], "geometricNormal": [0, 0, 1], "tangent": [1, 0, 0],
                    "bitangent": [0, 1, 0], "rayDirection": [0, 0, -1], "rayOrigin": [{}, {}, 1],
                    "samplePosition": [{}, {}, 0], "pixel": [{}, {}], "subpixel": [0.5, 0.5]}})",
                samples.empty() ? "[" : ",", u, v, u + 1.0 / kEdge, v, u, v + 1.0 / kEdge, u, v, u, v, x, y);
        }
    }
    return samples + "]";
}

// Six digits a sample, a row of samples a line.
std::string Picture(const std::string& document)
{
    static const std::string samples = Samples();
    const host::Json results = EvalJson(document, samples);
    std::string picture;
    for (std::size_t i = 0; i < std::size_t(kEdge) * kEdge; ++i)
    {
        const host::Json color = Parse(Output(results, "color", i));
        const auto channel = [&](std::size_t k) {
            const double value = color.IsArray() ? color.Elements()[k].AsNumber() : color.AsNumber();
            return static_cast<int>(std::clamp(value, 0.0, 1.0) * 255.0 + 0.5);
        };
        picture += fmt::format("{:02x}{:02x}{:02x}", channel(0), channel(1), channel(2));
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
