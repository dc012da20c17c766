// Every request for memory fails in turn, the host's and those of its containers: what is asked for then fails as out
// of memory, or succeeds with the same result as ever, and works again afterwards.
#include "test/support/failing_new.h"
#include "test/support/probe.h"

#include "host/graph/document.h"
#include "host/registry/registry.h"
#include "host/system/allocator.h"

#include <filesystem>
#include <functional>

#include <paths.h>

namespace velto::test
{

namespace
{

// Every kind of port: links and values, functions of both kinds, state, once per setup, elements, text, conversions.
constexpr std::string_view kDocument = R"({"version": 1, "nodes": {
    "u": {"type": "net.velto.test.coordinate"},
    "whole": {"type": "net.velto.test.keep.int", "inputs": {"x": {"from": "u.result"}}},
    "simple": {"type": "net.velto.test.multiply", "inputs": {"x": {"from": "u.result"}, "factor": 2}},
    "size": {"type": "net.velto.test.keep.float", "inputs": {"x": 3}},
    "calls": {"type": "net.velto.test.count", "inputs": {"step": 1}},
    "inner": {"type": "net.velto.test.invoke", "inputs": {"times": 2, "f": {"from": "whole.result"}}},
    "all": {"type": "net.velto.test.everything", "inputs": {
        "size": {"from": "size.result"}, "color": {"from": "simple.result"}, "text": "a text that is longer than any small one",
        "place": "a/b/c.png", "name": "name of something", "choice": "choice", "values": {"a": 1, "b": "x", "c": ["d", "e"]},
        "paths": ["one", "two"], "f": {"from": "inner.result"}, "terms": [1, {"from": "calls.calls"}]}}},
    "outputs": {"result": "all.result", "copy": "all.copy", "spare": "all.spare"}})";

// Rasters that are baked ahead of the samples, and by a sample: all threads need frames.
constexpr std::string_view kRasters = R"({"version": 1, "nodes": {
    "u": {"type": "net.velto.test.coordinate"},
    "ahead": {"type": "cache", "inputs": {"color": {"from": "u.result"}, "width": 8, "height": 64}},
    "pre": {"type": "net.velto.pattern.corenode.2d.cachepre", "inputs": {"color": {"from": "u.result"},
        "width": {"from": "u.result"}, "height": 64}},
    "meanwhile": {"type": "net.velto.pattern.corenode.2d.cache", "inputs": {"imageData": {"from": "pre.imageData"},
        "interpolation": "nearest"}},
    "sum": {"type": "net.velto.test.sum", "inputs": {"first": {"from": "ahead.result"}, "terms": [{"from": "meanwhile.result"}]}}},
    "outputs": {"sum": "sum.result"}})";

// The two allocators that the host has.
enum class Memory
{
    Modules,
    Containers,
};

// Runs `work` with its n-th request failing, for every n until none is left to fail.
void Sweep(Memory memory, const std::function<void()>& prepare, const std::function<Result()>& work,
    const std::function<void(const Result&)>& check)
{
    for (Int n = 0; n < 100'000; ++n)
    {
        SCOPED_TRACE(fmt::format("request {}", n));
        prepare();
        Int requests = 0;
        Result result;
        if (memory == Memory::Modules)
        {
            host::AllocationFault::FailAt(n);
            result = work();
            host::AllocationFault::Disarm();
            requests = host::AllocationFault::Requests();
        }
        else
        {
            const FailingNew failing(n);
            result = work();
            requests = failing.Requests();
        }
        if (result.IsError())
            EXPECT_EQ("net.velto.error.outofmemory", result.Kind()) << result.Message();
        check(result);
        if (::testing::Test::HasFailure())
            return;
        if (requests <= n)
        {
            EXPECT_TRUE(result.IsOk()); // nothing failed
            EXPECT_GT(n, 0);
            return;
        }
    }
    ADD_FAILURE() << "requests without end";
}

class AllocationSweep : public ::testing::TestWithParam<Memory>
{
protected:
    static std::string Evaluate(host::Graph& graph)
    {
        std::unique_ptr<host::Instance> instance;
        EXPECT_TRUE(graph.setup->Run().IsOk());
        EXPECT_TRUE(host::Instance::Create(*graph.setup, instance).IsOk());
        if (!instance)
            return "no instance";
        return Sample(*instance);
    }

    static std::string Sample(host::Instance& instance)
    {
        instance.Context().uvw.x = 1.5;
        const Result ran = instance.Evaluate();
        return ran.IsOk() ? fmt::format("{}", *static_cast<const Float*>(instance.Output(0))) : std::string(ran.Kind());
    }

    // Everything that comes of a graph that is built. `isCounting`: no sample gives what the one before gave.
    static void SweepSamples(host::Graph& graph, bool isCounting)
    {
        const std::string expected = Evaluate(graph);
        std::unique_ptr<host::Instance> instance;
        Sweep(
            GetParam(),
            [&] {
                instance.reset();
                graph.setup.reset();
                ASSERT_TRUE(host::Setup::Create(graph.program, graph.setup).IsOk());
            },
            [&]() -> Result {
                VELTO_TRY(graph.setup->Run());
                VELTO_TRY(host::Instance::Create(*graph.setup, instance));
                instance->Context().uvw.x = 1.5;
                return instance->Evaluate();
            },
            [&](const Result& result) {
                if (result.IsOk())
                {
                    EXPECT_EQ(expected, fmt::format("{}", *static_cast<const Float*>(instance->Output(0))));
                    return;
                }
                // What failed once is made up for.
                EXPECT_TRUE(graph.setup->RunAgainIfFailed().IsOk());
                if (!instance)
                    ASSERT_TRUE(host::Instance::Create(*graph.setup, instance).IsOk());
                const std::string again = Sample(*instance);
                if (!isCounting)
                    EXPECT_EQ(expected, again);
                EXPECT_TRUE(instance->Evaluate().IsOk());
            });
    }
};

INSTANTIATE_TEST_SUITE_P(Of, AllocationSweep, ::testing::Values(Memory::Modules, Memory::Containers),
    [](const auto& info) { return info.param == Memory::Modules ? "Modules" : "Containers"; });

TEST_P(AllocationSweep, Load)
{
    TheModule();
    const std::vector<std::string> before = host::EntryNames(registry::kCoreNodes.View());
    std::shared_ptr<host::Module> module;
    const std::filesystem::path file(VELTO_TEST_MODULES "/probe.module");
    Sweep(
        GetParam(), [&] { module.reset(); }, [&] { return host::Module::Load(file, module); },
        [&](const Result& result) {
            EXPECT_EQ(result.IsOk(), module != nullptr);
            if (result.IsError())
                EXPECT_TRUE(before == host::EntryNames(registry::kCoreNodes.View()));
        });
}

TEST_P(AllocationSweep, Build)
{
    TheProbe();
    host::Graph whole;
    ASSERT_TRUE(Load(kDocument, whole));
    const std::string expected = Evaluate(whole);
    host::Graph graph;
    host::Diagnostics diagnostics;
    Sweep(
        GetParam(),
        [&] {
            graph = {};
            diagnostics = {};
        },
        [&]() -> Result {
            if (host::LoadGraph(kDocument, TheProbe(), {}, diagnostics, graph))
                return {};
            return OutOfMemory();
        },
        [&](const Result& result) {
            if (result.IsOk())
            {
                EXPECT_TRUE(diagnostics.All().empty());
                EXPECT_EQ(expected, Evaluate(graph));
                return;
            }
            ASSERT_FALSE(diagnostics.All().empty());
            EXPECT_EQ("Out of memory.", diagnostics.All().front().text) << diagnostics.All().front().place;
        });
}

TEST_P(AllocationSweep, Compile)
{
    TheProbe();
    host::Graph graph;
    ASSERT_TRUE(Load(kDocument, graph));
    const std::string expected = Evaluate(graph);
    host::CompileOptions options;
    options.keepAlive = TheProbe();
    std::unique_ptr<host::Setup> setup;
    Sweep(
        GetParam(), [&] { setup.reset(); },
        [&]() -> Result {
            std::shared_ptr<const host::Program> program;
            VELTO_TRY(host::Program::Compile(graph.document.graph, options, program));
            return host::Setup::Create(std::move(program), setup);
        },
        [&](const Result& result) {
            if (result.IsError())
                return;
            graph.setup = std::move(setup);
            EXPECT_EQ(expected, Evaluate(graph));
        });
}

TEST_P(AllocationSweep, SetUpAndEvaluate)
{
    TheProbe();
    for (const std::string_view document : {kDocument, kRasters})
    {
        host::Graph graph;
        ASSERT_TRUE(Load(document, graph));
        SweepSamples(graph, document == kDocument);
    }
}

TEST(Memory, ComesInLargeBlocksUpToALimit)
{
    const SystemInterface& system = host::SystemService();
    for (UInt size = UInt(1) << 20; size < UInt(64) << 20; size = size * 3 + 1)
    {
        auto* const block = static_cast<std::uint8_t*>(system.Alloc(size, nullptr));
        ASSERT_TRUE(block);
        block[0] = 1;
        block[size - 1] = 2;
        auto* const longer = static_cast<std::uint8_t*>(system.Realloc(block, size * 2, nullptr));
        ASSERT_TRUE(longer);
        EXPECT_TRUE(longer[0] == 1 && longer[size - 1] == 2);
        EXPECT_FALSE(system.Realloc(longer, host::kMostBytes + 1, nullptr));
        system.Free(longer);
    }
    EXPECT_FALSE(system.Alloc(host::kMostBytes + 1, nullptr));
}

// Sampling takes no memory: the second sample on makes no request, but for what nodes keep.
TEST(Sampling, MakesNoRequests)
{
    TheProbe();
    host::Graph graph;
    ASSERT_TRUE(Load(R"({"version": 1, "nodes": {
        "u": {"type": "net.velto.test.coordinate"},
        "whole": {"type": "net.velto.test.keep.int", "inputs": {"x": {"from": "u.result"}}},
        "inner": {"type": "net.velto.test.invoke", "inputs": {"times": 2, "f": {"from": "whole.result"}}},
        "place": {"type": "placement2d", "inputs": {"localRotation": 1}},
        "board": {"type": "checkerboard", "inputs": {"contextLocal": {"from": "place.result"}, "color1": {"from": "inner.result"}}}},
        "outputs": {"o": "board.result"}})",
        graph));
    ASSERT_TRUE(graph.setup->Run().IsOk());
    std::unique_ptr<host::Instance> instance;
    ASSERT_TRUE(host::Instance::Create(*graph.setup, instance).IsOk());
    instance->Context().uvwValid = true;
    ASSERT_TRUE(instance->Evaluate().IsOk());
    host::AllocationFault::FailAt(0, true);
    {
        const FailingNew failing(0, true);
        for (int i = 0; i < 100; ++i)
        {
            instance->Context().uvw = {i * 0.37, i * 0.11, 0.0};
            EXPECT_TRUE(instance->Evaluate().IsOk());
        }
        EXPECT_EQ(0, failing.Requests());
    }
    host::AllocationFault::Disarm();
    EXPECT_EQ(0, host::AllocationFault::Requests());
}

} // namespace

} // namespace velto::test
