// Pictures do not depend on how the work is split.
#include "test/support/examples.h"
#include "test/support/pixels.h"
#include "test/support/probe.h"

#include "host/bake/bake.h"
#include "host/registry/datatypes.h"
#include "host/system/output.h"
#include "velto/porttypes.h"

#include <unistd.h>

#include <filesystem>
#include <thread>

namespace velto::test
{

namespace
{

using host::Json;

// State in a function that the first tile of the board does not ask for.
constexpr std::string_view kLazy = R"({"version": 1, "nodes": {
    "place": {"type": "placement2d", "inputs": {"localOffset": [-0.2, -0.2]}},
    "turn": {"type": "net.velto.pattern.corenode.generator.random", "inputs": {"minimum": -3, "maximum": 3}},
    "items": {"type": "scatter", "arguments": {"count": 40}, "inputs": {"perItemRotation": {"from": "turn.resultFloat"},
        "perItemRandomRotation": 0, "perItemScale": [0.25, 0.1]}},
    "tint": {"type": "hash", "inputs": {"seed": {"from": "items.index"}}},
    "board": {"type": "checkerboard", "inputs": {"contextLocal": {"from": "place.result"}, "color1": [0, 0, 0, 1],
        "color2": {"from": "tint.resultColor"}}}},
    "outputs": {"color": "board.result"}})";

// Outputs that a node leaves as a sample before it left them.
constexpr std::string_view kLeft = R"({"version": 1, "nodes": {
    "board": {"type": "checkerboard", "inputs": {"color1": [0, 0, 0, 1], "color2": [9, 9, 9, 1]}},
    "place": {"type": "placement2d", "inputs": {"localRotation": 0.3}},
    "u": {"type": "net.velto.test.coordinate", "inputs": {"context": {"from": "place.result"}}},
    "vector": {"type": "composevector4", "inputs": {"x": {"from": "u.result"}}},
    "split": {"type": "splitvectorcomponents", "inputs": {"vector": {"from": "vector.result"}, "index": {"from": "board.result"}}}},
    "outputs": {"color": "split.indexedComponent"}})";

// The first output of a document behind a blur, which asks for it on all threads at once.
Json Blurred(const Json& document)
{
    const std::string color = document.Find("outputs")->GetMembers().front().second.AsString();
    Json nodes = *document.Find("nodes");
    nodes.Add("blurred",
        Parse(fmt::format(R"({{"type": "blur", "inputs": {{"resolution": 32, "color": {{"from": "{}"}}}}}})", color)));
    Json blurred = document;
    blurred.Set("nodes", std::move(nodes));
    blurred.Set("outputs", Parse(R"({"color": "blurred.result"})"));
    return blurred;
}

class BakeSweep : public ::testing::Test
{
protected:
    BakeSweep()
    {
        TheProbe();
        host::SetOutputHandler([](auto&&...) {}); // one of the examples prints
        options_.view.width = 50;
        options_.view.height = 40;
        options_.encoding.depth = host::PixelDepth::Float;
    }
    ~BakeSweep() override
    {
        host::SetOutputHandler({});
        std::filesystem::remove(file_);
    }

    // The first output of the document.
    PixelImage Bake(const Json& document, int threads, const host::BakeWindow& window = {})
    {
        options_.threads = threads;
        options_.window = window;
        host::Graph graph;
        EXPECT_TRUE(Load(document, graph));
        host::BakeStatistics statistics;
        const Result baked = host::Bake(graph, {{0, file_}}, options_, statistics);
        EXPECT_TRUE(baked.IsOk()) << baked.Message();
        return ReadPixels(file_);
    }

    // The same picture on threads of the test's own, which race detectors see through.
    static void SampleOnThreads(const Json& document)
    {
        host::Graph graph;
        ASSERT_TRUE(Load(document, graph) && graph.setup->Run().IsOk());
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
        {
            threads.emplace_back([&, t] {
                std::unique_ptr<host::Instance> instance;
                if (host::Instance::Create(*graph.setup, instance).IsError())
                    return;
                for (int i = t; i < 400; i += 4)
                {
                    host::FillContext({20, 20, {}}, i % 20, i / 20, instance->Context());
                    instance->Evaluate().Ignore();
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    }

    static bool IsSame(const std::vector<float>& a, const std::vector<float>& b)
    {
        return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
    }

    void Check(const Json& document)
    {
        const PixelImage whole = Bake(document, 1);
        EXPECT_TRUE(IsSame(whole.values, Bake(document, 4).values)) << "four threads";
        for (const host::BakeWindow& window : {host::BakeWindow{13, 17, 31, 20}, {49, 39, 1, 1}})
        {
            std::vector<float> part;
            for (int y = window.y; y < window.y + window.height; ++y)
            {
                const float* const row = &whole.values[(y * whole.width + window.x) * whole.channels];
                part.insert(part.end(), row, row + window.width * whole.channels);
            }
            EXPECT_TRUE(IsSame(part, Bake(document, 2, window).values)) << "a crop at " << window.x;
        }
        SampleOnThreads(document);
    }

    host::BakeOptions options_;
    const std::string file_ = fmt::format("{}velto_sweep_{}.tif", ::testing::TempDir(), ::getpid());
};

TEST_F(BakeSweep, ThreadsAndCropsGiveTheSamePicture)
{
    std::vector<std::pair<std::string, Json>> documents{{"lazy", Parse(kLazy)}, {"left", Parse(kLeft)}};
    for (const Example& example : Examples())
        documents.emplace_back(example.type->name, example.document);
    for (const auto& [name, document] : documents)
    {
        SCOPED_TRACE(name);
        host::Graph graph;
        ASSERT_TRUE(Load(document, graph));
        const DataType* const type = graph.program->outputs.front().type;
        if (!document.Find("outputs") || !host::IsPicture(type))
            continue;
        Check(document);
        if (type != host::TypeOf<Vector>() && type != host::TypeOf<Vector2d>() && type != host::TypeOf<Vector4d>())
            Check(Blurred(document));
    }
}

} // namespace

} // namespace velto::test
