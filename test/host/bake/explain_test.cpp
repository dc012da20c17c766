// What a bake is said to cost, beside what it does and takes.
#include "test/support/eval.h"

#include "host/bake/explain.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>

namespace velto::test
{

namespace
{

using host::NodeCost;
using ::testing::HasSubstr;

constexpr const char* kGraph = R"({"version": 1, "nodes": {
    "unused": {"type": "noise"},
    "dull": {"type": "contrast", "inputs": {"color": [0.2, 0.4, 0.6, 1]}},
    "plain": {"type": "blend", "inputs": {"background": {"from": "heavy.result"},
        "foreground": {"from": "dull.result"}, "blendMode": "multiply"}},
    "heavy": {"type": "noise", "inputs": {"octaves": 16, "noiseType": "fbm"}},
    "seen": {"type": "checkerboard"},
    "blurred": {"type": "blur", "inputs": {"color": {"from": "seen.result"}, "mode": "stochastic", "samples": 3}},
    "shrunk": {"type": "noise", "inputs": {"octaves": 2}},
    "kept": {"type": "cache", "inputs": {"color": {"from": "shrunk.result"}, "width": 4096, "height": 2048}},
    "all": {"type": "layer", "arguments": {"layers": ["a", "b", "c"]}, "inputs": {"color#a": {"from": "blurred.result"},
        "color#b": {"from": "kept.result"}, "color#c": {"from": "plain.result"}, "strength#a": 0.5, "strength#b": 0.5, "strength#c": 0.5}}},
    "outputs": {"o": "all.result"}})";

host::Explanation Explain(const char* document, const host::BakeOptions& options)
{
    host::Graph graph;
    EXPECT_TRUE(Load(document, graph));
    host::BakeTarget target;
    float pixel = 0.0f;
    target.pixels = &pixel; // into memory: nothing is written
    host::Explanation explanation;
    const Result explained = host::Explain(std::move(graph), {target}, options, explanation);
    EXPECT_TRUE(explained.IsOk()) << explained.Message();
    return explanation;
}

const NodeCost& Node(const host::Explanation& explanation, std::string_view name)
{
    return *std::find_if(
        explanation.nodes.begin(), explanation.nodes.end(), [&](const NodeCost& node) { return node.name == name; });
}

TEST(Explain, NodesRunAsTheProgramHasThem)
{
    const host::Explanation explanation = Explain(kGraph, {});
    const struct
    {
        const char* node;
        NodeCost::Runs runs;
        double evaluations;
    } table[] = {{"unused", NodeCost::Runs::Never, 0}, {"dull", NodeCost::Runs::Setup, 0},
        {"heavy", NodeCost::Runs::Sample, 1}, {"seen", NodeCost::Runs::Area, 4}, {"shrunk", NodeCost::Runs::Setup, 0}};
    for (const auto& row : table)
    {
        EXPECT_EQ(Node(explanation, row.node).runs, row.runs) << row.node;
        EXPECT_NEAR(Node(explanation, row.node).evaluationsPerSample, row.evaluations, 0.1) << row.node;
    }
    EXPECT_EQ(Node(explanation, "blurred").type, "blur");
    double sum = 0.0;
    for (const NodeCost& node : explanation.nodes)
        sum += node.nanoseconds;
    EXPECT_NEAR(sum, explanation.nanosecondsPerSample, 0.1 * sum);
    ASSERT_EQ(explanation.Costliest().size(), 3u);
    EXPECT_TRUE(explanation.Costliest()[0]->name == "heavy" || explanation.Costliest()[1]->name == "heavy");

    ASSERT_EQ(explanation.rasters.size(), 1u);
    const host::SetupRaster& raster = explanation.rasters[0];
    EXPECT_TRUE(raster.node == "kept" && raster.width == 4096 && raster.height == 2048);
    EXPECT_EQ(raster.bytes, UInt{4096} * 2048 * 32);
    EXPECT_GE(explanation.memory, raster.bytes);
}

double ProcessorSeconds()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// By the time of the processor, as others use this machine; twice as much or half of it is still no accident.
TEST(Explain, TakesAsLongAsItSays)
{
    constexpr const char* kDocument = R"({"version": 1, "nodes": {
        "slow": {"type": "noise", "inputs": {"octaves": 8}},
        "kept": {"type": "cache", "inputs": {"color": {"from": "slow.result"}, "width": 700, "height": 700}},
        "n": {"type": "noise", "inputs": {"octaves": 8}},
        "sum": {"type": "blend", "inputs": {"background": {"from": "kept.result"},
            "foreground": {"from": "n.result"}, "blendMode": "multiply"}}},
        "outputs": {"o": "sum.result"}})";
    host::BakeOptions options;
    options.view = {400, 300, host::BakeShape::Plane, 2};
    options.threads = 1;
    options.fusing = host::Fusing::Never;
    const host::Explanation explanation = Explain(kDocument, options);
    host::Graph graph;
    ASSERT_TRUE(Load(kDocument, graph));
    std::vector<float> pixels(400 * 300 * 4);
    host::BakeTarget target;
    target.pixels = pixels.data();
    host::BakeStatistics statistics;
    const double start = ProcessorSeconds();
    ASSERT_TRUE(host::Bake(graph, {target}, options, statistics).IsOk());
    const double seconds = ProcessorSeconds() - start;
    EXPECT_GT(explanation.Seconds(), 0.5 * seconds);
    EXPECT_LT(explanation.Seconds(), 2.0 * seconds);
}

TEST(Explain, FailsAsTheBakeDoes)
{
    host::Graph graph;
    ASSERT_TRUE(Load(R"({"version": 1, "nodes": {"n": {"type": "net.velto.pattern.corenode.generator.checkerboard"}},
        "outputs": {"o": "n.result"}})",
        graph));
    host::BakeTarget target;
    float pixel = 0.0f;
    target.pixels = &pixel;
    host::Explanation explanation;
    const Result explained = host::Explain(std::move(graph), {target}, {}, explanation);
    ASSERT_TRUE(explained.IsError());
    EXPECT_THAT(std::string(explained.Message()), HasSubstr("nodes.n: "));
}

} // namespace

} // namespace velto::test
