// What is compiled gives the bits that calls give.
#include "host/fuse/fuse.h"

#include "host/bake/bake.h"
#include "host/bake/rows.h"
#include "host/corenode/convert.h"
#include "host/registry/datatypes.h"
#include "host/system/output.h"
#include "test/support/examples.h"
#include "test/support/files.h"
#include "test/support/probe.h"

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <set>

namespace velto::test
{

namespace
{

using namespace host;

// All outputs that are numbers, of all samples of some rows.
struct Sampled
{
    Result result;
    std::size_t failed = 0;
    std::vector<double> values;
    EvaluationCounts counts;
};

// The text of a node with links to nodes of `all` given a prefix.
std::string Renamed(std::string text, const Json& all, const std::string& prefix)
{
    for (const auto& [name, node] : all.GetMembers())
    {
        const std::string link = fmt::format("\"from\": \"{}.", name);
        for (auto at = text.find(link); at != text.npos; at = text.find(link, at + link.size()))
            text.insert(at + link.size() - name.size() - 1, prefix);
    }
    return text;
}

// What an input takes: of a function, what it yields.
const DataType* ValueTypeOf(const NodePort& port)
{
    const DataType* const yields = FunctionResultType(port.type.Get());
    return yields ? yields : port.type.Get();
}

bool AreSameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof(a)) == 0 || (std::isnan(a) && std::isnan(b));
}

class FuseTest : public ::testing::Test
{
protected:
    FuseTest()
    {
        TheProbe();
        SetOutputHandler([](auto&&...) {}); // one of the examples prints
    }
    ~FuseTest() override { SetOutputHandler({}); }

    void SetUp() override
    {
        if (!CanFuse())
            GTEST_SKIP() << "this build compiles no graphs";
    }

    bool Start(std::string_view document, const BakeView& view = {64, 8, BakeShape::Plane, 1})
    {
        GraphOptions options = ExampleOptions();
        options.searchPaths.emplace_back(VELTO_SOURCE_DIR "/examples/materials");
        graph_ = {};
        view_ = view;
        if (!Load(document, graph_, options))
            return false;
        const Result run = graph_.setup->Run();
        EXPECT_TRUE(run.IsOk()) << run.Message();
        shared_ = {};
        shared_.searchPaths = graph_.searchPaths.get();
        shared_.renderMessages = graph_.messages.get();
        shared_.frameRate = 25.0;
        first_ = shared_;
        FillContext(view_, 0.5 * view_.width, 0.5 * view_.height, first_);
        return run.IsOk();
    }

    std::unique_ptr<ThreadSampler> MakeSampler()
    {
        std::unique_ptr<ThreadSampler> sampler;
        EXPECT_TRUE(ThreadSampler::Create(*graph_.setup, shared_, first_, sampler).IsOk());
        return sampler;
    }

    Sampled Sample(ThreadSampler& sampler)
    {
        Sampled all;
        SampleRow row(view_, shared_, 0, 0.5, view_.width);
        for (int y = 0; y < view_.height && all.result.IsOk(); ++y)
        {
            row.MoveTo(y + 0.5);
            const auto count = static_cast<std::size_t>(row.End() - row.Begin());
            std::vector<ValueArray> arrays;
            std::size_t size = 0;
            for (std::size_t i = 0; i < graph_.program->outputs.size(); ++i)
            {
                const int numbers = NumbersOf(graph_.program->outputs[i].type);
                if (numbers == 0)
                    continue;
                arrays.push_back(
                    {i, reinterpret_cast<void*>(size), numbers * static_cast<std::ptrdiff_t>(sizeof(double))});
                size += count * static_cast<std::size_t>(numbers);
            }
            const std::size_t begin = all.values.size();
            all.values.resize(begin + size);
            for (ValueArray& array : arrays)
                array.data = &all.values[begin] + reinterpret_cast<std::size_t>(array.data);
            sampler.SetShared(row.Shared());
            SampleFailure failure;
            all.result = sampler.Sample(count, row.Fields(), arrays, &failure);
            all.failed = failure.sample;
        }
        all.counts = sampler.Counts();
        return all;
    }

    std::shared_ptr<const SampleKernel> Compile(ThreadSampler& sampler, const FuseOptions& options = {})
    {
        SampleRow row(view_, shared_, 0, 0.5, view_.width);
        std::vector<ValueArray> arrays;
        for (std::size_t i = 0; i < graph_.program->outputs.size(); ++i)
        {
            if (const int numbers = NumbersOf(graph_.program->outputs[i].type); numbers > 0)
                arrays.push_back({i, nullptr, numbers * static_cast<std::ptrdiff_t>(sizeof(double))});
        }
        sampler.Sample(0, row.Fields(), arrays).Ignore();
        return Fuse(*graph_.setup, first_, sampler.LastShape(), options, report_);
    }

    // Compares all values of a document; tells how many calls were compiled.
    void Compare(std::string_view document, const BakeView& view, const FuseOptions& options = {})
    {
        ASSERT_TRUE(Start(document, view));
        const auto calls = MakeSampler();
        const auto fused = MakeSampler();
        const auto kernel = Compile(*fused, options);
        if (!kernel)
        {
            const std::set<std::string> known{
                "a node does more than give values", "no node is sampled", "an output shows what a node keeps"};
            EXPECT_TRUE(known.contains(report_.reason)) << report_.reason;
            return;
        }
        fused->UseKernel(kernel);
        const Sampled expected = Sample(*calls);
        const Sampled actual = Sample(*fused);
        EXPECT_EQ(expected.result.Message(), actual.result.Message());
        EXPECT_EQ(expected.failed, actual.failed);
        EXPECT_EQ(expected.counts, actual.counts);
        ASSERT_EQ(expected.values.size(), actual.values.size());
        for (std::size_t i = 0; i < expected.values.size(); ++i)
            ASSERT_TRUE(AreSameBits(expected.values[i], actual.values[i]))
                << "number " << i << ": " << expected.values[i] << " by calls, " << actual.values[i] << " compiled";
    }

    BakeView view_;
    Graph graph_;
    ShadingContext shared_;
    ShadingContext first_;
    FuseReport report_;
};

// Two or three examples in one document, of which later ones take outputs of earlier ones where types allow it.
Json RandomDocument(std::mt19937& random)
{
    const auto pick = [&](std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
    };
    struct Source
    {
        std::string from;
        const DataType* type;
    };
    std::vector<Source> sources;
    Json nodes = Json::Object();
    Json outputs = Json::Object();
    const std::size_t parts = 2 + pick(2);
    for (std::size_t part = 0; part < parts; ++part)
    {
        const Example& example = Examples()[pick(Examples().size())];
        const std::string prefix = fmt::format("p{}_", part);
        for (const auto& [name, node] : example.document.Find("nodes")->GetMembers())
        {
            Json renamed = Parse(Renamed(node.Write(), *example.document.Find("nodes"), prefix));
            if (name == example.node && !sources.empty())
            {
                Json inputs = renamed.Find("inputs") ? *renamed.Find("inputs") : Json::Object();
                for (int i = 0; i < 3; ++i)
                {
                    const NodePort& port = example.type->ports[pick(example.type->ports.size())];
                    const Source& source = sources[pick(sources.size())];
                    if (port.input && !port.isVariadic && !port.IsBundle() && ValueTypeOf(port) &&
                        IsConvertible(source.type, ValueTypeOf(port)) && ValueTypeOf(port) != TypeOf<Int32>())
                        inputs.Set(port.name, Parse(fmt::format(R"({{"from": "{}"}})", source.from)));
                }
                renamed.Set("inputs", std::move(inputs));
            }
            nodes.Set(prefix + name, std::move(renamed));
        }
        for (const NodePort& port : example.type->ports)
        {
            if (port.input || !port.type ||
                (NumbersOf(port.type.Get()) == 0 && port.type.Get() != TypeOf<ShadingContext>()))
                continue;
            const std::string from = prefix + example.node + "." + port.name;
            sources.push_back({from, port.type.Get()});
            if (part + 1 == parts && NumbersOf(port.type.Get()) > 0)
                outputs.Set(port.name, Json(from));
        }
    }
    Json document = Parse(R"({"version": 1})");
    document.Add("nodes", std::move(nodes));
    document.Add("outputs", std::move(outputs));
    return document;
}

constexpr BakeView kPlane{64, 8, BakeShape::Plane, 1};
constexpr BakeView kSphere{40, 40, BakeShape::Sphere, 1};

TEST_F(FuseTest, GivesTheBitsOfCallsForAllExamples)
{
    for (const Example& example : Examples())
    {
        SCOPED_TRACE(example.node);
        Compare(example.document.Write(), kSphere);
    }
}

TEST_F(FuseTest, GivesTheBitsOfCallsForAllMaterials)
{
    for (const auto& entry : std::filesystem::directory_iterator(VELTO_SOURCE_DIR "/examples/materials"))
    {
        if (entry.path().extension() != ".json")
            continue;
        SCOPED_TRACE(entry.path());
        Compare(ReadFile(entry.path()), kPlane);
    }
}

// State of a function, an input that varies where a node keeps what it made of it, one that fails in places.
constexpr std::string_view kTroubles[] = {
    R"({"version": 1, "nodes": {
        "place": {"type": "placement2d", "inputs": {"localRotation": {"from": "cloud.result"}}},
        "cloud": {"type": "noise"},
        "board": {"type": "checkerboard", "inputs": {"contextLocal": {"from": "place.result"}, "color1": {"from": "mix.result"}}},
        "mix": {"type": "blend", "inputs": {"foreground": {"from": "cloud.result"}, "background": [0.1, 0.2, 0.3, 1]}}},
        "outputs": {"color": "board.result"}})",
    R"({"version": 1, "nodes": {
        "board": {"type": "checkerboard", "inputs": {"color1": {"from": "mix.result"}, "color2": [0.1, 0.2, 0.3, 1]}},
        "mix": {"type": "blend", "inputs": {"blendMode": "net.velto.none", "foreground": {"from": "tint.result"}}},
        "tint": {"type": "noise"}},
        "outputs": {"color": "board.result"}})",
};

TEST_F(FuseTest, GivesTheBitsAndErrorsOfCallsInTrouble)
{
    for (const std::string_view document : kTroubles)
        Compare(document, kPlane);
}

TEST_F(FuseTest, GivesTheSameBitsOnAllProcessors)
{
    const std::pair<const char*, bool> processors[] = {{"x86-64", true},
        {"x86-64-v3", __builtin_cpu_supports("avx2") != 0}, {"x86-64-v4", __builtin_cpu_supports("avx512vl") != 0}};
    const std::string marble = ReadFile(VELTO_SOURCE_DIR "/examples/materials/marble.json");
    for (const auto& [name, isThere] : processors)
    {
        SCOPED_TRACE(name);
        FuseOptions options;
        options.processor = name;
        if (isThere)
            Compare(marble, {64, 2, BakeShape::Plane, 1}, options);
    }
}

TEST_F(FuseTest, BakesTheSamePixels)
{
    const std::string file = fmt::format("{}fuse_test_{}.exr", ::testing::TempDir(), getpid());
    for (const int supersample : {1, 2})
    {
        std::string hashes[2];
        for (const bool isFused : {false, true})
        {
            ASSERT_TRUE(Start(kTroubles[0]));
            BakeOptions options;
            options.view = {150, 70, BakeShape::Sphere, supersample};
            options.window = {10, 0, 140, 70};
            options.fusing = isFused ? Fusing::First : Fusing::Never;
            options.hashesPixels = true;
            BakeStatistics statistics;
            const Result baked = Bake(graph_, {{0, file}}, options, statistics);
            ASSERT_TRUE(baked.IsOk()) << baked.Message();
            EXPECT_EQ(isFused ? statistics.tiles : 0, statistics.fusedTiles) << statistics.notFused;
            hashes[isFused ? 1 : 0] = statistics.files.at(0).pixels;
        }
        EXPECT_EQ(hashes[0], hashes[1]);
    }
    std::filesystem::remove(file);
}

TEST_F(FuseTest, GivesTheBitsOfCallsForRandomGraphs)
{
    const char* const count = std::getenv("VELTO_FUSE_GRAPHS"); // for longer runs
    const char* const seed = std::getenv("VELTO_FUSE_SEED");
    std::mt19937 random(seed ? static_cast<unsigned>(std::atoi(seed)) : 1);
    const int graphs = count ? std::atoi(count) : 40;
    int compared = 0;
    for (int i = 0; i < graphs; ++i)
    {
        const Json document = RandomDocument(random);
        SCOPED_TRACE(document.Write());
        Diagnostics ignored;
        Graph graph;
        if (!LoadDocument(document, TheModule(), ExampleOptions(), ignored, graph) || graph.setup->Run().IsError())
            continue;
        Compare(document.Write(), {24, 3, i % 2 == 0 ? BakeShape::Plane : BakeShape::Sphere, 1});
        ++compared;
    }
    EXPECT_GT(compared, graphs / 2);
}

} // namespace

} // namespace velto::test
