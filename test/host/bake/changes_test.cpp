// Inputs of a graph that is set up, changed: what comes out is what the document gives that has these values.
#include "host/bake/changes.h"

#include "host/bake/bake.h"
#include "host/graph/values.h"
#include "host/system/output.h"
#include "test/support/eval.h"
#include "test/support/files.h"

#include <fmt/format.h>

#include <cstring>
#include <filesystem>

#include <paths.h>

namespace velto::test
{

namespace
{

using host::Json;
namespace fs = std::filesystem;

constexpr int kSide = 6;

// All outputs that are pictures, or the error.
std::string Pixels(host::Graph& graph)
{
    host::BakeOptions options;
    options.view = {kSide, kSide, host::BakeShape::Sphere, 1};
    options.threads = 1;
    std::vector<host::BakeTarget> targets;
    std::vector<std::vector<float>> pictures;
    for (std::size_t i = 0; i < graph.program->outputs.size(); ++i)
    {
        const int channels = host::ChannelsOf(graph.program->outputs[i].type);
        if (channels == 0)
            continue;
        pictures.emplace_back(static_cast<std::size_t>(kSide * kSide * channels), -1.0f);
        host::BakeTarget target;
        target.output = i;
        target.pixels = pictures.back().data();
        targets.push_back(std::move(target));
    }
    host::BakeStatistics statistics;
    const Result baked = host::Bake(graph, targets, options, statistics);
    std::string bytes(baked.IsError() ? baked.Message() : "");
    for (const std::vector<float>& picture : pictures)
        bytes.append(reinterpret_cast<const char*>(picture.data()), picture.size() * sizeof(float));
    return bytes;
}

// Another value of the same shape.
Json Other(const Json& value, const std::vector<std::string>* known)
{
    if (known && known->size() > 1)
        return {value.AsString() == known->back() ? known->front() : known->back()};
    if (value.IsBool())
        return {!value.AsBool()};
    if (value.IsInteger())
        return {value.AsInteger() + 1};
    if (value.IsNumber())
        return {0.75 * value.AsNumber() + 0.2};
    Json list = Json::Array();
    for (const Json& element : value.Elements())
        list.Append(Other(element, nullptr));
    return value.IsArray() ? list : value;
}

struct Change
{
    std::string origin;
    Json value;
};

// A few of the inputs that the document gives by value, with other ones.
std::vector<Change> SomeChanges(const host::CoreGraph& graph, std::size_t most)
{
    std::map<std::string, Json> all;
    for (const host::CoreNode& node : graph.nodes)
    {
        for (const auto& [port, input] : node.inputs)
        {
            if (input.origin.empty() || input.value.IsEmpty() || input.origin.find('[') != std::string::npos)
                continue;
            const Json value = host::WriteValue(input.value.Type(), input.value.Value());
            if (const Json other = Other(value, input.values); other.Write() != value.Write())
                all[input.origin] = other;
        }
    }
    std::vector<Change> some;
    const std::size_t step = all.size() / most + 1;
    std::size_t i = 0;
    for (const auto& [origin, value] : all)
    {
        if (i++ % step == 0)
            some.push_back({origin, value});
    }
    return some;
}

class ChangedInputs : public ::testing::TestWithParam<std::string>
{
};

TEST_P(ChangedInputs, GiveWhatTheirDocumentGives)
{
    TheModule();
    host::SetOutputHandler([](host::OutputChannel, LogTarget, std::string_view) {}); // of pictures that are not there
    for (const auto& entry : fs::directory_iterator(fs::path(VELTO_SOURCE_DIR "/examples") / GetParam()))
    {
        if (entry.path().extension() != ".json")
            continue;
        const std::string text = ReadFile(entry.path());
        host::GraphOptions options;
        options.file = entry.path().string();
        options.searchPaths = {entry.path().parent_path().string()};
        host::Graph graph;
        host::Diagnostics diagnostics;
        if (!host::LoadGraph(text, TheModule(), options, diagnostics, graph))
            continue; // no document of its own
        Pixels(graph);
        const host::ChangeableInputs changeable(graph.document.graph);
        const std::size_t most = GetParam() == "materials" ? 1 : 8; // which have large rasters
        for (const Change& change : SomeChanges(graph.document.graph, most))
        {
            std::vector<host::InputChange> changes;
            changeable.Read(change.origin, change.value, "", diagnostics, changes);
            ASSERT_EQ(1u, changes.size()) << change.origin;
            ASSERT_TRUE(host::ChangeInputs(graph, changes).IsOk());

            host::Setting setting;
            ASSERT_TRUE(host::ParseSetting(fmt::format("{}={}", change.origin, change.value.Write()), setting));
            options.settings.push_back(std::move(setting));
            host::Graph anew;
            ASSERT_TRUE(host::LoadGraph(text, TheModule(), options, diagnostics, anew)) << change.origin;
            EXPECT_TRUE(Pixels(anew) == Pixels(graph)) << options.file << ": " << change.origin;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Examples, ChangedInputs, ::testing::Values("", "nodes", "materials"));

UInt CountOf(const host::Graph& graph, const host::EvaluationCounts& counts, std::string_view node)
{
    UInt sum = 0;
    for (std::size_t i = 0; i < counts.size(); ++i)
    {
        const std::string_view name = graph.program->nodeNames[i];
        sum += name.substr(0, name.find('/')) == node ? counts[i] : 0;
    }
    return sum;
}

// Two rasters, of which one reads what only it reads.
TEST(SetupUpdate, RunsWhatDependsOnAChangeAndNothingElse)
{
    host::Graph graph;
    ASSERT_TRUE(Load(R"({"version": 1, "nodes": {
        "a": {"type": "noise", "inputs": {"seed": 1}},
        "b": {"type": "noise", "inputs": {"seed": 2}},
        "left": {"type": "cache", "inputs": {"color": {"from": "a.result"}, "width": 8, "height": 8}},
        "right": {"type": "cache", "inputs": {"color": {"from": "b.result"}, "width": 8, "height": 8}},
        "both": {"type": "blend",
            "inputs": {"background": {"from": "left.result"}, "foreground": {"from": "right.result"}}}},
        "outputs": {"color": "both.result"}})",
        graph));
    host::EvaluationCounts counts(graph.program->nodeNames.size(), 0);
    graph.setup->CountInto(&counts);
    ASSERT_TRUE(graph.setup->Update().IsOk());
    const UInt whole = CountOf(graph, counts, "a");
    ASSERT_GE(whole, 64u);
    EXPECT_EQ(whole, CountOf(graph, counts, "b"));

    const auto countsAfter = [&](const char* origin, const Json& value) {
        std::vector<host::InputChange> changes;
        host::Diagnostics diagnostics;
        host::ChangeableInputs(graph.document.graph).Read(origin, value, "", diagnostics, changes);
        EXPECT_TRUE(host::ChangeInputs(graph, changes).IsOk());
        std::fill(counts.begin(), counts.end(), 0);
        EXPECT_TRUE(graph.setup->Update().IsOk());
        return std::pair(CountOf(graph, counts, "a"), CountOf(graph, counts, "b"));
    };
    EXPECT_EQ(std::pair(UInt{0}, whole), countsAfter("b.seed", Json(3)));
    EXPECT_EQ(std::pair(whole / 2, UInt{0}), countsAfter("left.height", Json(4)));
    EXPECT_EQ(std::pair(UInt{0}, UInt{0}), countsAfter("no.such", Json(4)));
}

TEST(BakeIntoMemory, StopsInTheMiddleOfARasterAndGoesOnLater)
{
    host::Graph graph;
    ASSERT_TRUE(Load(R"({"version": 1, "nodes": {"cloud": {"type": "noise"},
        "raster": {"type": "cache", "inputs": {"color": {"from": "cloud.result"}, "width": 256, "height": 256}}},
        "outputs": {"color": "raster.result"}})",
        graph));
    std::atomic<bool> stop = false;
    std::vector<double> shares;
    host::BakeOptions options;
    options.view = {100, 70, host::BakeShape::Plane, 1};
    options.stop = &stop;
    options.progress = [&](const host::BakeProgress& progress) {
        stop = progress.raster != nullptr;
        if (!progress.raster)
            shares.push_back(progress.share);
    };
    std::vector<float> pixels(4 * 100 * 70, -1.0f);
    host::BakeTarget target;
    target.pixels = pixels.data();
    host::BakeStatistics statistics;
    EXPECT_EQ("interrupted", host::Bake(graph, {target}, options, statistics).Message());
    EXPECT_EQ(-1.0f, pixels[0]);

    options.stop = nullptr;
    ASSERT_TRUE(host::Bake(graph, {target}, options, statistics).IsOk());
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_GE(shares.size(), 3u);
    EXPECT_EQ(1.0, shares.back());

    // A window of it is the same as the whole has there.
    std::vector<float> part(4 * 30 * 20);
    target.pixels = part.data();
    options.window = {60, 45, 30, 20};
    ASSERT_TRUE(host::Bake(graph, {target}, options, statistics).IsOk());
    for (int y = 0; y < 20; ++y)
        EXPECT_EQ(0, std::memcmp(&part[4 * 30 * y], &pixels[4 * (100 * (y + 45) + 60)], 4 * 30 * sizeof(float))) << y;
}

} // namespace

} // namespace velto::test
