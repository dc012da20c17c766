// The texture sets: every map of each, in each of its presets, goes on beyond its edges as it begins at the opposite
// ones.
#include "test/support/files.h"
#include "test/support/sampled_document.h"

#include "host/graph/values.h"
#include "velto/porttypes.h"

#include <filesystem>

#include <paths.h>

namespace velto::test
{

namespace
{

using host::Json;

std::vector<std::filesystem::path> Sets()
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(VELTO_SOURCE_DIR "/examples/sets"))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

class SetsTest : public ::testing::TestWithParam<std::filesystem::path>
{
protected:
    static void CheckEdges(const std::string& document, const std::vector<std::string>& presets)
    {
        host::GraphOptions options;
        options.presets = presets;
        SampledDocument set(document, options);
        const auto look = [&](double u, double v) {
            Json values = Json::Array();
            EXPECT_TRUE(set.At({u, v}, 0x1p-9));
            for (std::size_t i = 0; i < set.Graph().program->outputs.size(); ++i)
                values.Append(host::WriteValue(set.Graph().program->outputs[i].type, set.Instance().Output(i)));
            return values;
        };
        Json first = look(0, 0);
        int changes = 0;
        for (int i = 0; i < 64; ++i)
        {
            // Multiples of 2^-9 along both edges and off them, to which 1 is added exactly.
            const double along = i * 0x1p-6 + 0x1p-9;
            for (const auto& [u, v] : {std::pair(0.0, along), std::pair(along, 0.0), std::pair(along, 0.375)})
            {
                const Json here = look(u, v);
                ASSERT_TRUE(AreEqual(here, look(u + 1, v), 1e-5)) << u << ' ' << v;
                ASSERT_TRUE(AreEqual(here, look(u, v - 1), 1e-5)) << u << ' ' << v;
                changes += here.Write() != first.Write();
                first = here;
            }
        }
        EXPECT_GT(changes, 100);
    }
};

TEST_P(SetsTest, TileWithoutASeam)
{
    const std::string text = ReadFile(GetParam());
    const Json document = Parse(text);
    EXPECT_EQ(5u, document.Find("outputs")->GetMembers().size());
    CheckEdges(text, {});
    for (const auto& [preset, values] : document.Find("presets")->GetMembers())
    {
        SCOPED_TRACE(preset);
        CheckEdges(text, {preset});
    }
}

INSTANTIATE_TEST_SUITE_P(Examples, SetsTest, ::testing::ValuesIn(Sets()),
    [](const ::testing::TestParamInfo<std::filesystem::path>& set) { return set.param.stem().string(); });

} // namespace

} // namespace velto::test
