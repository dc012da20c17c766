#include "test/support/probe.h"

#include <gmock/gmock.h>

namespace velto::test
{

namespace
{

using host::Json;

// An output over all samples.
std::vector<std::string> Outputs(const Json& results, std::string_view name)
{
    std::vector<std::string> values;
    for (std::size_t i = 0; i < results.Find("results")->Elements().size(); ++i)
        values.push_back(Output(results, name, i));
    return values;
}

std::vector<Int> Runs(const Json& results, std::string_view node)
{
    std::vector<Int> counts;
    for (std::size_t i = 0; i < results.Find("results")->Elements().size(); ++i)
        counts.push_back(Evaluations(results, node, i));
    return counts;
}

using ::testing::ElementsAre;

constexpr std::string_view kThreeSamples = R"([{"uvw": [1, 0, 0]}, {"uvw": [2, 0, 0]}, {"uvw": [3, 0, 0]}])";

TEST(Program, RunsFixedNodesOnceAndUnneededOnesNever)
{
    const Json results = EvalProbe(R"(
        "fixed": {"type": "keep.float", "inputs": {"x": 4}},
        "alsofixed": {"type": "batch", "inputs": {"x": {"from": "fixed.result"}, "by": 2}},
        "u": {"type": "coordinate"},
        "varying": {"type": "batch", "inputs": {"x": {"from": "u.result"}, "by": {"from": "alsofixed.result"}}},
        "unneeded": {"type": "fail", "inputs": {"fail": true, "x": {"from": "u.result"}}},
        "said": {"type": "print", "inputs": {"x": 1}})",
        R"("o": "varying.result", "said": "said.result")", kThreeSamples);
    EXPECT_THAT(Outputs(results, "o"), ElementsAre("8", "16", "24"));
    EXPECT_THAT(Runs(results, "fixed"), ElementsAre(1, 0, 0));
    EXPECT_THAT(Runs(results, "alsofixed"), ElementsAre(1, 0, 0));
    EXPECT_THAT(Runs(results, "varying"), ElementsAre(1, 1, 1));
    EXPECT_THAT(Runs(results, "unneeded"), ElementsAre(0, 0, 0));
    // What a node says is said for every sample.
    EXPECT_THAT(Runs(results, "said"), ElementsAre(1, 1, 1));
    EXPECT_EQ(R"(["printed"])", Entry(results, 2).Find("log")->Write());
}

struct ReplacementRow
{
    std::string nodes;
    std::string output;
    std::string value;
    Int runs = 0; // of node n, in the second sample

    friend void PrintTo(const ReplacementRow& row, std::ostream* out) { *out << row.nodes; }
};

class Replacement : public ::testing::TestWithParam<ReplacementRow>
{
};

TEST_P(Replacement, IsHonoured)
{
    const Json results = EvalProbe(
        R"("u": {"type": "coordinate"}, "f": {"type": "keep.float", "inputs": {"x": 1}}, )" + GetParam().nodes,
        fmt::format(R"("o": "{}")", GetParam().output), R"([{}, {"uvw": [7, 0, 0]}])");
    EXPECT_EQ(GetParam().value, Output(results, "o", 1));
    EXPECT_EQ(GetParam().runs, Evaluations(results, "n", 1));
}

INSTANTIATE_TEST_SUITE_P(Table, Replacement,
    ::testing::ValuesIn(std::vector<ReplacementRow>{
        {R"("n": {"type": "multiply", "inputs": {"x": {"from": "u.result"}, "factor": 3}})", "n.result", "21", 1},
        // The group that replaces it has its ports elsewhere.
        {R"("n": {"type": "multiply", "inputs": {"x": {"from": "u.result"}, "factor": 2}})", "n.result", "1014", 1},
        {R"("n": {"type": "multiply", "inputs": {"x": {"from": "u.result"}, "factor": 2}},
            "m": {"type": "multiply", "inputs": {"x": {"from": "n.result"}, "factor": 3}})",
            "m.result", "3042", 1},
        // An input that stands for the node: a link, a value, what is behind another that gave way.
        {R"("n": {"type": "multiply", "inputs": {"x": {"from": "u.result"}, "factor": 1}})", "n.result", "7"},
        {R"("n": {"type": "multiply", "inputs": {"x": 5, "factor": 1}})", "n.result", "5"},
        {R"("n": {"type": "multiply", "inputs": {"factor": 1}})", "n.result", "0"},
        {R"("m": {"type": "multiply", "inputs": {"x": {"from": "u.result"}, "factor": 1}},
            "n": {"type": "multiply", "inputs": {"x": {"from": "m.result"}, "factor": 1}})",
            "n.result", "7"},
        // A factor that is computed, though fixed, is not known when the program is built.
        {R"("n": {"type": "multiply", "inputs": {"x": {"from": "u.result"}, "factor": {"from": "f.result"}}})",
            "n.result", "7", 1},
        {R"("n": {"type": "choose", "inputs": {"condition": true, "yes": {"from": "u.result"}, "no": 2}})", "n.result",
            "7"},
        {R"("n": {"type": "choose", "inputs": {"condition": false, "yes": {"from": "u.result"}, "no": 2}})", "n.result",
            "2"},
        {R"("n": {"type": "choose", "inputs": {"yes": {"from": "u.result"}, "no": 2}})", "n.result", "2.5", 1},
        {R"("n": {"type": "isconstant", "inputs": {"f": 2, "no": {"from": "u.result"}, "yes": 1}})", "n.result", "1"},
        {R"("n": {"type": "isconstant", "inputs": {"f": {"from": "f.result"}, "no": {"from": "u.result"}, "yes": 1}})",
            "n.result", "1"},
        {R"("n": {"type": "isconstant", "inputs": {"f": {"from": "u.result"}, "no": {"from": "u.result"}, "yes": 1}})",
            "n.result", "7", 1},
        {R"("n": {"type": "isconstant", "inputs": {"no": {"from": "u.result"}, "yes": 1}})", "n.result", "7", 1},
    }));

// What a later sample sets cannot be built in.
TEST(Program, DoesNotFoldInputsThatWillBeSet)
{
    const Json results = EvalProbe(R"(
        "u": {"type": "coordinate"},
        "n": {"type": "multiply", "inputs": {"x": {"from": "u.result"}, "factor": 2}},
        "b": {"type": "choose", "inputs": {"condition": true, "yes": {"from": "n.result"}, "no": 2}},
        "f": {"type": "isconstant", "inputs": {"f": 2, "no": {"from": "u.result"}, "yes": 1}})",
        R"("o": "b.result", "f": "f.result")",
        R"([{"uvw": [1, 0, 0]}, {"uvw": [1, 0, 0], "set": {"n.factor": 3}},
            {"uvw": [1, 0, 0], "set": {"b.condition": false, "f.f": 3}}])");
    EXPECT_THAT(Outputs(results, "o"), ElementsAre("2.5", "3.5", "2.5"));
    EXPECT_THAT(Outputs(results, "f"), ElementsAre("1", "1", "1"));
}

TEST(Program, ReportsAnOptimizerThatFails)
{
    TheProbe();
    EXPECT_THAT(Faults(R"({"version": 1, "nodes": {"n": {"type": "net.velto.test.multiply", "inputs": {"factor": -1}}},
        "outputs": {"o": "n.result"}})"),
        ::testing::HasSubstr("A factor below 0 cannot be simplified."));
}

TEST(State, SurvivesFromSampleToSampleAndNodeByNode)
{
    const Json results = EvalProbe(R"(
        "a": {"type": "count", "inputs": {"step": 1}},
        "b": {"type": "count", "inputs": {"step": {"from": "a.result"}}})",
        R"("a": "a.calls", "b": "b.calls")", R"([{}, {}, {"set": {"a.step": 10}}, {}])");
    EXPECT_THAT(Outputs(results, "a"), ElementsAre("1", "2", "12", "22"));
    EXPECT_THAT(Outputs(results, "b"), ElementsAre("1", "3", "15", "37"));
}

TEST(State, OfASetupIsMadeOnceAndAgainAfterASet)
{
    const Json results = EvalProbe(R"(
        "pre": {"type": "pre", "inputs": {"size": 3}},
        "other": {"type": "keep.float", "inputs": {"x": 1}},
        "u": {"type": "coordinate"},
        "sum": {"type": "sum", "inputs": {"first": {"from": "u.result"}, "terms": [{"from": "pre.table"}, 2]}})",
        R"("o": "sum.result", "runs": "pre.runs", "other": "other.result")",
        R"([{}, {}, {"set": {"pre.size": 4}}, {"set": {"sum.terms[1]": 5}}, {}])");
    EXPECT_THAT(Outputs(results, "o"), ElementsAre("3002", "3002", "4002", "4005", "4005"));
    EXPECT_THAT(Runs(results, "pre"), ElementsAre(1, 0, 1, 1, 0));
    // The instance that keeps its state is the one that ran before.
    EXPECT_THAT(Outputs(results, "runs"), ElementsAre("1", "1", "2", "3", "3"));
}

TEST(Outputs, KeepWhatACallLeavesAlone)
{
    const Json results = EvalProbe(
        R"("u": {"type": "coordinate"}, "n": {"type": "writesometimes", "inputs": {"x": {"from": "u.result"}}})",
        R"("o": "n.result")", R"([{"uvw": [4, 0, 0]}, {"uvw": [-1, 0, 0]}, {"uvw": [5, 0, 0]}])");
    EXPECT_THAT(Outputs(results, "o"), ElementsAre("4", "4", "5"));
}

// Connected 1, connected function 2, output in use 4.
TEST(Slots, TellWhatIsConnectedAndInUse)
{
    const Json results = EvalProbe(R"(
        "u": {"type": "coordinate"},
        "none": {"type": "flags"},
        "value": {"type": "flags", "inputs": {"x": 0, "f": 0}},
        "link": {"type": "flags", "inputs": {"x": {"from": "u.result"}, "f": {"from": "u.result"}}},
        "used": {"type": "flags"},
        "reader": {"type": "keep.float", "inputs": {"x": {"from": "used.spare"}}})",
        R"("none": "none.result", "value": "value.result", "link": "link.result", "used": "used.result",
           "alsoused": "reader.result")");
    EXPECT_EQ("0", Output(results, "none"));
    EXPECT_EQ("3", Output(results, "value"));
    EXPECT_EQ("3", Output(results, "link"));
    EXPECT_EQ("4", Output(results, "used"));
}

TEST(Failures, NameTheNodeAndPassTheErrorUp)
{
    const Json results = EvalProbe(R"(
        "u": {"type": "coordinate"},
        "bad": {"type": "fail", "inputs": {"fail": {"from": "u.result"}, "x": 3}},
        "after": {"type": "batch", "inputs": {"x": {"from": "bad.result"}, "by": 2}})",
        R"("o": "after.result")", R"([{}, {"uvw": [1, 0, 0]}, {}])");
    EXPECT_THAT(Outputs(results, "o"), ElementsAre("6", "net.velto.error.illegalstate", "6"));
    const Json& error = *Entry(results, 1).Find("error");
    EXPECT_EQ("bad", error.Find("node")->AsString());
    EXPECT_THAT(
        error.Find("message")->AsString(), ::testing::StartsWith("Illegal state: Condition !fail not fulfilled. "));
    EXPECT_THAT(Runs(results, "after"), ElementsAre(1, 0, 1));
}

// A setup that fails fails the samples that need it, and is tried again.
TEST(Failures, OfTheSetupReachTheSamplesThatNeedThem)
{
    const Json results = EvalProbe(R"(
        "bad": {"type": "fail", "inputs": {"fail": true, "x": 3}},
        "after": {"type": "batch", "inputs": {"x": {"from": "bad.result"}, "by": 2}},
        "other": {"type": "keep.float", "inputs": {"x": 1}},
        "u": {"type": "coordinate"},
        "lazy": {"type": "invoke", "inputs": {"f": {"from": "after.result"}, "times": {"from": "u.result"}}})",
        R"("o": "lazy.result", "other": "other.result")",
        R"([{}, {"uvw": [1, 0, 0]}, {"uvw": [1, 0, 0], "set": {"bad.fail": false}}])");
    EXPECT_THAT(Outputs(results, "o"), ElementsAre("0", "net.velto.error.illegalstate", "6"));
    EXPECT_EQ("bad", Entry(results, 1).Find("error")->Find("node")->AsString());
    EXPECT_EQ(0, Evaluations(results, "after", 1));
}

} // namespace

} // namespace velto::test
