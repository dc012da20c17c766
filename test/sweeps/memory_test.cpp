// Every request for memory fails in turn, the host's and those of its containers: what is asked for then fails as out
// of memory, or succeeds with the same result as ever, and works again afterwards.
#include "test/support/examples.h"
#include "test/support/failing_new.h"
#include "test/support/memory_sweep.h"
#include "test/support/probe.h"

#include "host/registry/datatypes.h"
#include "host/registry/registry.h"
#include "host/system/allocator.h"
#include "host/system/output.h"
#include "velto/porttypes.h"

namespace velto::test
{

namespace
{

using host::Json;

// Every kind of port: links and values, functions of both kinds, state, once per setup, elements, text, conversions.
constexpr std::string_view kEverything = R"({"version": 1, "nodes": {
    "u": {"type": "net.velto.test.coordinate"},
    "whole": {"type": "net.velto.test.keep.int", "inputs": {"x": {"from": "u.result"}}},
    "simple": {"type": "net.velto.test.multiply", "inputs": {"x": {"from": "u.result"}, "factor": 2}},
    "size": {"type": "net.velto.test.keep.float", "inputs": {"x": 3}},
    "inner": {"type": "net.velto.test.invoke", "inputs": {"times": 2, "f": {"from": "whole.result"}}},
    "all": {"type": "net.velto.test.everything", "inputs": {
        "size": {"from": "size.result"}, "color": {"from": "simple.result"}, "text": "a text that is longer than any small one",
        "place": "a/b/c.png", "name": "name of something", "choice": "choice", "values": {"a": 1, "b": "x", "c": ["d", "e"]},
        "paths": ["one", "two"], "f": {"from": "inner.result"}, "terms": [1, {"from": "whole.result"}]}}},
    "outputs": {"result": "all.result", "copy": "all.copy", "spare": "all.spare"}})";

// Rasters that are baked ahead of the samples, and by a sample: all threads need frames.
constexpr std::string_view kRasters = R"({"version": 1, "nodes": {
    "u": {"type": "net.velto.test.coordinate"},
    "ahead": {"type": "cache", "inputs": {"color": {"from": "u.result"}, "width": 8, "height": 64}},
    "pre": {"type": "net.velto.pattern.corenode.2d.cachepre", "inputs": {"color": {"from": "u.result"},
        "width": 8, "height": {"from": "size.result"}}},
    "size": {"type": "net.velto.test.sum", "inputs": {"first": {"from": "u.result"}, "terms": [8]}},
    "meanwhile": {"type": "net.velto.pattern.corenode.2d.cache", "inputs": {"imageData": {"from": "pre.imageData"},
        "interpolation": "nearest"}},
    "sum": {"type": "net.velto.test.sum", "inputs": {"first": {"from": "ahead.result"}, "terms": [{"from": "meanwhile.result"}]}}},
    "outputs": {"sum": "sum.result"}})";

// By name: the two, and all examples.
std::vector<std::pair<std::string, Json>> Documents()
{
    TheProbe();
    std::vector<std::pair<std::string, Json>> documents{
        {"everything", Parse(kEverything)}, {"rasters", Parse(kRasters)}};
    for (const Example& example : Examples())
        documents.emplace_back(example.type->name, example.document);
    return documents;
}

class MemoryTest : public ::testing::TestWithParam<Memory>
{
protected:
    void SetUp() override
    {
        host::SetOutputHandler([](auto&&...) {}); // one of the examples prints
    }
    void TearDown() override { host::SetOutputHandler({}); }
};

INSTANTIATE_TEST_SUITE_P(Of, MemoryTest, ::testing::Values(Memory::Modules, Memory::Containers),
    [](const auto& info) { return info.param == Memory::Modules ? "Modules" : "Containers"; });

TEST_P(MemoryTest, LoadsAModuleOrNothing)
{
    TheModule();
    const std::vector<std::string> before = host::EntryNames(registry::kCoreNodes.View());
    std::shared_ptr<host::Module> module;
    const std::filesystem::path file(VELTO_TEST_MODULES "/probe.module");
    const auto load = [&] { return host::Module::Load(file, module); };
    const auto check = [&](const Result& result) {
        EXPECT_EQ(result.IsOk(), module != nullptr);
        if (result.IsError())
            EXPECT_TRUE(before == host::EntryNames(registry::kCoreNodes.View()));
    };
    SweepMemory(
        GetParam(), [&] { module.reset(); }, load, check);
}

TEST_P(MemoryTest, BuildsAGraphOrSaysWhy)
{
    for (const auto& [name, document] : Documents())
    {
        SCOPED_TRACE(name);
        const std::string text = document.Write();
        const host::GraphOptions options = ExampleOptions();
        host::Graph graph;
        ASSERT_TRUE(Load(document, graph));
        const std::string expected = Look(graph).Write();
        host::Diagnostics diagnostics;
        const auto prepare = [&] {
            graph = {};
            diagnostics = {};
        };
        const auto build = [&]() -> Result {
            return host::LoadGraph(text, TheProbe(), options, diagnostics, graph) ? Result() : OutOfMemory();
        };
        const auto check = [&](const Result& result) {
            if (result.IsOk())
                EXPECT_EQ(expected, Look(graph).Write());
            else
                ASSERT_FALSE(diagnostics.All().empty());
            if (!diagnostics.All().empty())
                EXPECT_EQ("Out of memory.", diagnostics.All().front().text) << diagnostics.All().front().place;
        };
        SweepMemory(GetParam(), prepare, build, check, name == "everything" ? 1 : 61);
    }
}

TEST_P(MemoryTest, SetsUpAndEvaluatesOrFails)
{
    for (const auto& [name, document] : Documents())
    {
        SCOPED_TRACE(name);
        host::Graph graph;
        ASSERT_TRUE(Load(document, graph));
        std::unique_ptr<host::Instance> instance;
        ASSERT_TRUE(Start(graph, instance).IsOk() && instance->Evaluate().IsOk());
        const std::string expected = OutputsOf(graph, *instance).Write();
        const auto prepare = [&] {
            instance.reset();
            graph.setup.reset();
            ASSERT_TRUE(host::Setup::Create(graph.program, graph.setup).IsOk());
        };
        const auto evaluate = [&]() -> Result {
            VELTO_TRY(Start(graph, instance));
            return instance->Evaluate();
        };
        const bool isText = graph.program->outputs.front().type == host::TypeOf<String>();
        const auto check = [&](const Result& result) {
            if (result.IsError())
            {
                EXPECT_TRUE(evaluate().IsOk());
                prepare();
                EXPECT_TRUE(evaluate().IsOk());
            }
            else if (isText)
                return; // without the parts that there was no memory for
            EXPECT_EQ(expected, OutputsOf(graph, *instance).Write());
        };
        SweepMemory(GetParam(), prepare, evaluate, check);
    }
}

// From the second sample on nothing is asked for, but by nodes that make texts.
TEST(SamplingTest, TakesNoMemory)
{
    for (const Example& example : Examples())
    {
        SCOPED_TRACE(example.type->name);
        host::Graph graph;
        std::unique_ptr<host::Instance> instance;
        ASSERT_TRUE(Load(example.document, graph));
        ASSERT_TRUE(Start(graph, instance).IsOk() && instance->Evaluate().IsOk());
        if (graph.program->outputs.front().type == host::TypeOf<String>())
            continue;
        host::AllocationFault::FailAt(0, true);
        const FailingNew failing(0, true);
        for (int i = 0; i < 20; ++i)
        {
            instance->Context().uvw = {i * 0.37, i * 0.11, 0.0};
            EXPECT_TRUE(instance->Evaluate().IsOk());
        }
        host::AllocationFault::Disarm();
        EXPECT_EQ(0, host::AllocationFault::Requests() + failing.Requests());
    }
}

} // namespace

} // namespace velto::test
