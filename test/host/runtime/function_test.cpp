// Function-valued inputs, and instances on threads.
#include "test/support/probe.h"

#include "host/registry/datatypes.h"
#include "velto/porttypes.h"

#include <thread>

namespace velto::test
{

namespace
{

using host::Json;

TEST(Function, IsEvaluatedUnderTheContextOfEachInvocation)
{
    const Json results = EvalProbe(R"(
        "u": {"type": "coordinate"},
        "twice": {"type": "batch", "inputs": {"x": {"from": "u.result"}, "by": 2}},
        "fixed": {"type": "keep.float", "inputs": {"x": 100}},
        "sum": {"type": "sum", "inputs": {"first": {"from": "twice.result"}, "terms": [{"from": "fixed.result"}]}},
        "n": {"type": "invoke", "inputs": {"times": 3, "f": {"from": "sum.result"}}},
        "constant": {"type": "invoke", "inputs": {"times": 2, "f": 5}})",
        R"("o": "n.result", "u": "u.result", "constant": "constant.result")",
        R"([{"uvw": [1, 0, 0]}, {"uvw": [2, 0, 0]}])");
    // (2u) * 10 + 100 at u, u + 10, u + 20.
    EXPECT_EQ("960", Output(results, "o", 0));
    EXPECT_EQ("1020", Output(results, "o", 1));
    EXPECT_EQ("2", Output(results, "u", 1));
    EXPECT_EQ("10", Output(results, "constant", 1));
    // `u` runs for the sample and for each invocation, what does not depend on the context once.
    EXPECT_EQ(4, Evaluations(results, "u", 1));
    EXPECT_EQ(3, Evaluations(results, "twice", 1));
    EXPECT_EQ(1, Evaluations(results, "fixed", 0));
    EXPECT_EQ(0, Evaluations(results, "fixed", 1));
}

TEST(Function, IsLazyAndItsErrorsArePassedUp)
{
    const Json results = EvalProbe(R"(
        "u": {"type": "coordinate"},
        "bad": {"type": "fail", "inputs": {"fail": {"from": "u.result"}, "x": 3}},
        "calls": {"type": "keep.int", "inputs": {"x": 0}},
        "n": {"type": "invoke", "inputs": {"times": {"from": "calls.result"}, "f": {"from": "bad.result"}}},
        "null": {"type": "invoke", "inputs": {"times": {"from": "calls.result"}}})",
        R"("o": "n.result", "null": "null.result")",
        R"([{"uvw": [1, 0, 0]}, {"uvw": [0, 0, 0], "set": {"calls.x": 2}}])");
    EXPECT_EQ("0", Output(results, "o", 0));
    EXPECT_EQ(0, Evaluations(results, "bad", 0));
    // At u + 10 the node fails; the function that is not there would fail, too, but comes later.
    EXPECT_EQ("net.velto.error.illegalstate", Output(results, "o", 1));
    EXPECT_EQ("bad", Entry(results, 1).Find("error")->Find("node")->AsString());
    EXPECT_EQ(2, Evaluations(results, "bad", 1));

    const Json null = EvalProbe(R"("null": {"type": "invoke", "inputs": {"times": 1}})", R"("o": "null.result")");
    EXPECT_EQ("net.velto.error.nullptr", Output(null, "o"));
}

// A raster that depends on the sample is baked by the sample; what failed there is not what fails behind it.
TEST(Function, AnErrorThatWasDroppedIsNotTheNextOne)
{
    TheProbe();
    const Json results = EvalJson(R"({"version": 1, "nodes": {
        "u": {"type": "net.velto.test.coordinate"},
        "bad": {"type": "net.velto.test.fail", "inputs": {"fail": true}},
        "pre": {"type": "net.velto.pattern.corenode.2d.cachepre", "inputs": {"color": {"from": "bad.result"},
            "width": {"from": "u.result"}, "height": 1}},
        "cache": {"type": "net.velto.pattern.corenode.2d.cache", "inputs": {"imageData": {"from": "pre.imageData"},
            "interpolation": "linear"}},
        "worse": {"type": "net.velto.test.fail", "inputs": {"fail": true, "x": {"from": "cache.result"}}}},
        "outputs": {"o": "worse.result"}})",
        R"([{"uvw": [4, 0, 0]}])");
    EXPECT_EQ("worse", Entry(results).Find("error")->Find("node")->AsString());
}

TEST(Function, NestsAndConverts)
{
    // The inner function yields an integer where the outer wants a number.
    const Json results = EvalProbe(R"(
        "u": {"type": "coordinate"},
        "whole": {"type": "keep.int", "inputs": {"x": {"from": "u.result"}}},
        "inner": {"type": "invoke", "inputs": {"times": 2, "f": {"from": "whole.result"}}},
        "outer": {"type": "invoke", "inputs": {"times": 2, "f": {"from": "inner.result"}}})",
        R"("o": "outer.result")", R"([{"uvw": [1.75, 0, 0]}])");
    // Under 1.75 and 11.75, each there and ten further.
    EXPECT_EQ("44", Output(results, "o"));
    EXPECT_EQ(4, Evaluations(results, "whole"));
    EXPECT_EQ(2, Evaluations(results, "inner"));
}

struct ConversionRow
{
    std::string from;
    std::string value;
    std::string to;
    std::string result;

    friend void PrintTo(const ConversionRow& row, std::ostream* out) { *out << row.from << " to " << row.to; }
};

class Conversion : public ::testing::TestWithParam<ConversionRow>
{
};

TEST_P(Conversion, IsThatOfTheTable)
{
    const auto& [from, value, to, result] = GetParam();
    const Json results = EvalProbe(
        fmt::format(
            R"("a": {{"type": "keep.{}", "inputs": {{"x": {}}}}}, "b": {{"type": "keep.{}", "inputs": {{"x": {{"from": "a.result"}}}}}})",
            from, value, to),
        R"("o": "b.result")");
    EXPECT_EQ(result, Output(results, "o")) << from << " " << value << " to " << to;
}

INSTANTIATE_TEST_SUITE_P(Table, Conversion,
    ::testing::ValuesIn(std::vector<ConversionRow>{
        {"float", "0.25", "colora", "[0.25, 0.25, 0.25, 1]"},
        {"float", "0.25", "color", "[0.25, 0.25, 0.25]"},
        {"colora", "[0.1, 0.2, 0.3, 0.4]", "color", "[0.1, 0.2, 0.3]"},
        {"color", "[0.1, 0.2, 0.3]", "colora", "[0.1, 0.2, 0.3, 1]"},
        {"colora", "[1, 0, 0, 0]", "float", "0.2125"},
        {"colora", "[0, 1, 0, 0]", "float", "0.7154"},
        {"color", "[0, 0, 1]", "float", "0.0721"},
        {"color", "[0, 0, 10]", "int", "0"},
        {"color", "[0, 0, 0]", "bool", "false"},
        {"vector", "[1, 2, 3]", "color", "[1, 2, 3]"},
        {"color", "[1, 2, 3]", "vector", "[1, 2, 3]"},
        {"float", "-2.9", "int", "-2"},
        {"float", "1e300", "int", "9223372036854775807"},
        {"float", "\"-inf\"", "int", "-9223372036854775808"},
        {"float", "\"nan\"", "int", "0"},
        {"float", "-1", "uint32", "0"},
        {"float", "5e9", "uint32", "4294967295"},
        {"float", "5e9", "int32", "2147483647"},
        {"float", "0.001", "bool", "true"},
        {"float", "-0", "bool", "false"},
        {"int", "4294967297", "int32", "1"},
        {"int", "-1", "uint32", "4294967295"},
        {"int", "4294967296", "bool", "true"},
        {"int", "9007199254740993", "float", "9007199254740992"},
        {"int32", "-7", "int", "-7"},
        {"uint32", "4294967295", "int", "4294967295"},
        {"bool", "true", "float", "1"},
        {"bool", "true", "colora", "[1, 1, 1, 1]"},
    }));

TEST(Conversion, OfOtherPairsIsAFault)
{
    TheProbe();
    for (const auto& [from, to] :
        {std::pair("vector2d", "vector"), std::pair("vector", "float"), std::pair("vector", "colora"),
            std::pair("string", "float"), std::pair("float", "string"), std::pair("vector", "vector2d")})
    {
        const std::string faults = Faults(fmt::format(
            R"({{"version": 1, "nodes": {{"a": {{"type": "net.velto.test.keep.{}"}}, "b": {{"type": "net.velto.test.keep.{}",
                "inputs": {{"x": {{"from": "a.result"}}}}}}}}, "outputs": {{"o": "b.result"}}}})",
            from, to));
        EXPECT_TRUE(faults.starts_with("nodes.b.inputs.x: a.result is a ")) << faults;
    }
}

// --- Threads. ---

constexpr std::string_view kThreadedDocument = R"({"version": 1, "nodes": {
    "u": {"type": "net.velto.test.coordinate"},
    "calls": {"type": "net.velto.test.count", "inputs": {"step": 1}},
    "twice": {"type": "net.velto.test.batch", "inputs": {"x": {"from": "u.result"}, "by": 2}},
    "inner": {"type": "net.velto.test.invoke", "inputs": {"times": 2, "f": {"from": "twice.result"}}},
    "all": {"type": "net.velto.test.invokeinparallel", "inputs": {"count": 2000, "f": {"from": "inner.result"}}},
    "sum": {"type": "net.velto.test.sum", "inputs": {"first": {"from": "inner.result"}, "terms": [{"from": "all.sum"}]}}},
    "outputs": {"sum": "sum.result", "failures": "all.failures", "calls": "calls.calls"}})";

// 2u + 2(u + 10) for every u below 2000.
constexpr Float kParallelSum = 4.0 * 1999.0 * 1000.0 + 20.0 * 2000.0;

class FunctionThreads : public ::testing::Test
{
protected:
    static void Make(
        host::Graph& graph, std::string_view document = kThreadedDocument, const std::set<std::string>& variable = {})
    {
        TheProbe();
        host::GraphOptions options;
        options.variable = variable;
        ASSERT_TRUE(Load(document, graph, options));
    }

    // An instance of a new run, with one sample behind it.
    static std::unique_ptr<host::Instance> Evaluated(host::Graph& graph)
    {
        std::unique_ptr<host::Instance> instance;
        EXPECT_TRUE(graph.setup->Run().IsOk() && host::Instance::Create(*graph.setup, instance).IsOk());
        EXPECT_TRUE(instance->Evaluate().IsOk());
        return instance;
    }

    template <class T>
    static void Set(host::Graph& graph, std::string_view origin, const T& value)
    {
        Data data;
        ASSERT_TRUE(data.Set(value).IsOk());
        ASSERT_TRUE(graph.setup->Set(origin, data).IsOk());
    }
};

// A node of the setup calls its function from all workers at once; each works in a frame of its own.
TEST_F(FunctionThreads, InvokeFromASetupNode)
{
    host::Graph graph;
    Make(graph);
    for (int run = 0; run < 3; ++run)
    {
        const auto instance = Evaluated(graph);
        EXPECT_EQ(20.0 * 10.0 + kParallelSum, *static_cast<const Float*>(instance->Output(0)));
        EXPECT_EQ(0, *static_cast<const Int*>(instance->Output(1)));
    }
}

TEST_F(FunctionThreads, EachHaveAnInstance)
{
    host::Graph graph;
    Make(graph);
    ASSERT_TRUE(graph.setup->Run().IsOk());
    constexpr int kThreads = 4;
    constexpr int kSamples = 2000;
    std::vector<std::string> wrong(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back([&, t] {
            std::unique_ptr<host::Instance> instance;
            if (host::Instance::Create(*graph.setup, instance).IsError())
                wrong[t] = "no instance";
            for (int i = 0; i < kSamples && wrong[t].empty(); ++i)
            {
                const Float u = i * kThreads + t;
                instance->Context().uvw.x = u;
                const Result ran = instance->Evaluate();
                const Float sum = *static_cast<const Float*>(instance->Output(0));
                const Int calls = *static_cast<const Int*>(instance->Output(2));
                if (ran.IsError() || sum != (4.0 * u + 20.0) * 10.0 + kParallelSum || calls != i + 1)
                    wrong[t] = fmt::format("sample {}: {} {}", i, sum, calls);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const std::string& what : wrong)
        EXPECT_EQ("", what);
}

// State inside of a function is each frame's own and starts from the same sample, whichever thread comes first.
TEST_F(FunctionThreads, StartStateFromTheSameSample)
{
    host::Graph graph;
    Make(graph, R"({"version": 1, "nodes": {
        "calls": {"type": "net.velto.test.count", "inputs": {"step": 1}},
        "once": {"type": "net.velto.test.fail", "inputs": {"x": {"from": "calls.calls"}}},
        "all": {"type": "net.velto.test.invokeinparallel", "inputs": {"count": 200, "f": {"from": "once.result"}}}},
        "outputs": {"sum": "all.sum", "failures": "all.failures"}})");
    const auto instance = Evaluated(graph);
    EXPECT_EQ(0, *static_cast<const Int*>(instance->Output(1)));
    // Every frame counts 2, 3, ... after the sample that primes it: at least 200 calls of one frame's least.
    EXPECT_GE(*static_cast<const Float*>(instance->Output(0)), 2.0 * 200.0);
}

// What a frame kept from an older run is nothing to a newer one, whether its thread had one before or not.
TEST_F(FunctionThreads, ForgetWhatWasBeforeTheRun)
{
    host::Graph graph;
    Make(graph, R"({"version": 1, "nodes": {
        "mean": {"type": "net.velto.pattern.corenode.2d.areaaverage",
            "inputs": {"color": [1, 1, 1, 0], "mask": 1, "width": 2, "height": 2}},
        "all": {"type": "net.velto.test.invokeinparallel", "inputs": {"count": 1, "f": {"from": "mean.result"}}}},
        "outputs": {"sum": "all.sum"}})",
        {"mean.color", "all.count"});
    for (const Float value : {1.0, 2.0, 5.0})
    {
        const Int count = value == 1.0 ? 1 : 2000;
        Set(graph, "mean.color", ColorA{value, value, value, 0.0});
        Set(graph, "all.count", count);
        const auto instance = Evaluated(graph);
        EXPECT_NEAR(value * static_cast<Float>(count), *static_cast<const Float*>(instance->Output(0)), 1e-6);
    }
}

} // namespace

} // namespace velto::test
