// What is wrong with documents is said at its place, all of it in one run, and nothing that is read can do harm.
#include "host/graph/document.h"

#include "test/support/probe.h"

#include <gmock/gmock.h>

#include <chrono>
#include <functional>

namespace velto::test
{

namespace
{

using ::testing::HasSubstr;

// A document of one node and what is wrong with it, a line a fault, its place without `nodes.n.`.
struct FaultRow
{
    std::string node;
    std::string faults;
};

class NodeFault : public ::testing::TestWithParam<FaultRow>
{
};

TEST_P(NodeFault, IsSaidAtItsPlace)
{
    TheProbe();
    std::string faults = Faults(R"({"version": 1, "nodes": {"u": {"type": "net.velto.test.coordinate"},
        "text": {"type": "net.velto.test.keep.string"}, "n": )" +
                                GetParam().node + R"(}, "outputs": {"o": "u.result"}})");
    for (auto at = faults.find("nodes.n."); at != faults.npos; at = faults.find("nodes.n."))
        faults.erase(at, 8);
    EXPECT_EQ(GetParam().faults, faults);
}

INSTANTIATE_TEST_SUITE_P(Table, NodeFault,
    ::testing::ValuesIn(std::vector<FaultRow>{
        {R"({"type": "contrast"})", ""},
        {R"([])", "nodes.n: expected an object, got an array of 0\n"},
        {R"({})", "type: is missing\n"},
        {R"({"type": 3})", "type: expected a string, got the number 3\n"},
        {R"({"type": "contrst"})", "type: there is no node type \"contrst\"; did you mean \"contrast\"?\n"},
        {R"({"type": "zzzzzzzzzz"})", "type: there is no node type \"zzzzzzzzzz\"\n"},
        {R"({"type": "contrast", "input": {}})",
            "input: is not known here; did you mean \"inputs\"?; expected one of type, inputs, arguments, ui\n"},
        {R"({"type": "contrast", "inputs": []})", "inputs: expected an object, got an array of 0\n"},
        {R"({"type": "contrast", "arguments": {"count": 3}})", "arguments.count: is not known here\n"},
        {R"({"type": "layer", "arguments": {"layer": ["a"]}})",
            "arguments.layer: is not known here; did you mean \"layers\"?; expected one of layers\n"},
        {R"({"type": "net.velto.pattern.corenode.effect.layer", "arguments": {"layers": "a"}})",
            "arguments: The argument layers must be an array of names.\n"},
        {R"({"type": "layer", "arguments": {"layers": ["a", "a"]}})",
            "arguments: The node net.velto.pattern.corenode.effect.layer would have the port color#a twice.\n"},
        {R"({"type": "layer", "arguments": {"layers": ["a"]}, "inputs": {"color#a": [1, 0, 0, 1], "mode#b": ""}})",
            "inputs.mode#b: there is no such input; did you mean \"mode\"?\n"},
        {R"({"type": "layer", "inputs": {"color": [[1, 0, 0, 1]]}})",
            "inputs.color: its elements are named: color#NAME, by the argument layers\n"},
        {R"({"type": "scatter", "arguments": {"count": "4"}})",
            "arguments: The argument count must be a whole number.\n"},
        {R"({"type": "contrast", "inputs": {"colour": [1, 0, 0, 1]}})",
            "inputs.colour: there is no such input; did you mean \"color\"?\n"},
        {R"({"type": "placement2d", "inputs": {"repetitions": [1, 1]}})",
            "inputs.repetitions: there is no such input; did you mean \"localRepetitions\"?\n"},
        {R"({"type": "contrast", "inputs": {"color": [1, 0]}})", "inputs.color: expected 4 numbers, got 2\n"},
        {R"({"type": "contrast", "inputs": {"color": [1, "x", true, 1]}})",
            "inputs.color[1]: expected a number, got the string \"x\"\n"
            "inputs.color[2]: expected a number, got true\n"},
        {R"({"type": "contrast", "inputs": {"contrast": "high"}})",
            "inputs.contrast: expected a number, got the string \"high\"\n"},
        {R"({"type": "contrast", "inputs": {"maskred": 1}})",
            "inputs.maskred: expected true or false, got the number 1\n"},
        {R"({"type": "net.velto.test.keep.int32", "inputs": {"x": 2147483648}})",
            "inputs.x: 2147483648 is out of range: expected -2147483648 to 2147483647\n"},
        {R"({"type": "net.velto.test.keep.uint32", "inputs": {"x": -1}})",
            "inputs.x: -1 is out of range: expected 0 to 4294967295\n"},
        {R"({"type": "net.velto.test.keep.int", "inputs": {"x": 9223372036854775808}})",
            "inputs.x: 9223372036854775808 is out of range: expected -9223372036854775808 to 9223372036854775807\n"},
        {R"({"type": "net.velto.test.keep.int", "inputs": {"x": 1.5}})",
            "inputs.x: expected a whole number, got 1.5\n"},
        {R"({"type": "net.velto.test.keep.int", "inputs": {"x": 4.0}})", ""},
        {R"({"type": "net.velto.test.keep.string", "inputs": {"x": null}})", "inputs.x: expected a string, got null\n"},
        {R"({"type": "net.velto.test.sum", "inputs": {"terms": 3}})",
            "inputs.terms: expected an array, got the number 3\n"},
        {R"({"type": "net.velto.test.sum", "inputs": {"terms": [1, "x", {"from": "u.result"}]}})",
            "inputs.terms[1]: expected a number, got the string \"x\"\n"},
        {R"({"type": "contrast", "inputs": {"contrast": {"form": "u.result"}}})",
            "inputs.contrast.form: is not known here; did you mean \"from\"?; expected one of from\n"
            "inputs.contrast: expected a value or a link {\"from\": \"NODE.PORT\"}\n"},
        {R"({"type": "contrast", "inputs": {"contrast": {"from": "u"}}})",
            "inputs.contrast: expected NODE.PORT, got \"u\"\n"},
        {R"({"type": "contrast", "inputs": {"contrast": {"from": "v.result"}}})",
            "inputs.contrast: there is no node \"v\"; did you mean \"u\"?\n"},
        {R"({"type": "contrast", "inputs": {"contrast": {"from": "u.reslt"}}})",
            "inputs.contrast: u has no output \"reslt\"; did you mean \"result\"?\n"},
        {R"({"type": "contrast", "inputs": {"contrast": {"from": "u.context"}}})",
            "inputs.contrast: u has no output \"context\"\n"},
        {R"({"type": "contrast", "inputs": {"contrast": {"from": "text.result"}}})",
            "inputs.contrast: text.result is a String, which does not turn into a Float\n"},
        {R"({"type": "contrast", "inputs": {"color": {"from": "n.result"}}})",
            "nodes.n: the links form a cycle: n -> n\n"},
        {R"({"type": "net.velto.test.invoke", "inputs": {"f": {"from": "n.result"}}})",
            "nodes.n: the links form a cycle: n -> n\n"},
        {R"({"type": "net.velto.test.coordinate", "inputs": {"context": {"uvw": [0, 0, 0]}}})",
            "inputs.context.uvw: is not known here; expected one of from\n"
            "inputs.context: expected a value or a link {\"from\": \"NODE.PORT\"}\n"},
    }));

TEST(Document, AllItsFaultsAreSaidInOneRun)
{
    EXPECT_EQ("extra: is not known here; expected one of version, nodes, outputs, material, parameters, presets, ui, "
              "$schema\n"
              "version: expected 1, got the number 2\n"
              "nodes.1st: a name is letters, digits and _, not starting with a digit, and at most 256 long\n"
              "nodes.b.type: there is no node type \"exposur\"; did you mean \"exposure\"?\n"
              "nodes.a.inputs.contrast: expected a number, got true\n"
              "nodes.a.inputs.color: c has no output \"rgb\"\n"
              "outputs.x: there is no node \"d\"; did you mean \"a\"?\n"
              "outputs.y: expected \"NODE.PORT\", got an object\n"
              "nodes.a: the links form a cycle: a -> c -> a\n",
        Faults(R"({"version": 2, "extra": 1, "nodes": {
            "1st": {"type": "contrast"},
            "a": {"type": "contrast", "inputs": {"contrast": true, "maskblend": {"from": "c.result"}, "color": {"from": "c.rgb"}}},
            "b": {"type": "exposur"},
            "c": {"type": "contrast", "inputs": {"color": {"from": "a.result"}}}},
            "outputs": {"x": "d.result", "y": {}}})"));
    EXPECT_EQ("version: is missing; this host reads version 1\nnodes: is missing\n", Faults("{}"));
    EXPECT_EQ(": expected an object, got an array of 0\n", Faults("[]"));
    EXPECT_EQ("outputs: is empty; a graph has at least one output\n",
        Faults(R"({"version": 1, "nodes": {}, "outputs": {}})"));
}

TEST(Document, WarnsOfEnumerationValuesThatAreNotKnown)
{
    TheModule();
    host::Diagnostics diagnostics;
    host::Graph graph;
    host::GraphOptions options;
    options.warnsOutsideLimits = true; // as a check does
    EXPECT_FALSE(host::LoadGraph(R"({"version": 1, "nodes": {"n": {"type": "placement2d",
        "inputs": {"localModeU": "reapeat"}}, "m": {"type": "blend", "inputs": {"blendMode": "multipli"}},
        "short": {"type": "blend", "inputs": {"blendMode": "multiply"}}, "none": {"type": "noise", "inputs": {"noiseType": ""}}},
        "outputs": {"o": "n.result"}})",
        TheModule(), options, diagnostics, graph));
    ASSERT_EQ(2u, diagnostics.All().size());
    EXPECT_TRUE(diagnostics.All()[0].isWarning);
    EXPECT_EQ("nodes.n.inputs.localModeU", diagnostics.All()[0].place);
    EXPECT_EQ("\"reapeat\" is not known; did you mean \"repeat\"?; the node's own fallback applies",
        diagnostics.All()[0].text);
    EXPECT_EQ("nodes.m.inputs.blendMode", diagnostics.All()[1].place);
    EXPECT_FALSE(diagnostics.All()[1].isWarning); // the node has no fallback
    EXPECT_THAT(diagnostics.All()[1].text, HasSubstr("did you mean \"net.velto.render.blendmode.multiply\"?"));
}

TEST(Document, ImagesLookAtTheirLocalContextAsOtherPatternsDo)
{
    for (const std::string inputs : {R"("contextLocal": {"from": "near.result"}, "context": {"from": "far.result"})",
             R"("context": {"from": "far.result"}, "contextLocal": {"from": "near.result"})",
             R"("context": {"from": "near.result"})"})
    {
        const host::Json results = test::EvalJson(R"({"version": 1, "nodes": {
            "near": {"type": "setshadingcontext"}, "far": {"type": "setshadingcontext"},
            "picture": {"type": "image", "inputs": {)" +
                                                  inputs + R"(}}}, "outputs": {"color": "picture.result"}})");
        EXPECT_EQ(1, test::Evaluations(results, "near")) << inputs;
        EXPECT_EQ(0, test::Evaluations(results, "far")) << inputs;
    }
}

TEST(Document, TakesSettingsInThePlaceOfItsValues)
{
    TheProbe();
    const auto faults = [](std::initializer_list<std::string_view> settings, std::string* value = nullptr) {
        host::GraphOptions options;
        for (const std::string_view text : settings)
        {
            host::Setting setting;
            EXPECT_TRUE(host::ParseSetting(text, setting)) << text;
            options.settings.push_back(std::move(setting));
        }
        host::Diagnostics diagnostics;
        host::Graph graph;
        std::string text;
        if (host::LoadGraph(R"({"version": 1, "nodes": {"n": {"type": "net.velto.test.sum",
            "inputs": {"first": 1, "terms": [2]}}}, "outputs": {"o": "n.result"}})",
                TheProbe(), options, diagnostics, graph) &&
            value && graph.setup->Run().IsOk())
        {
            std::unique_ptr<host::Instance> instance;
            if (host::Instance::Create(*graph.setup, instance).IsOk() && instance->Evaluate().IsOk())
                *value = fmt::format("{}", *static_cast<const Float*>(instance->Output(0)));
        }
        for (const host::Diagnostic& diagnostic : diagnostics.All())
            text += diagnostic.place + ": " + diagnostic.text + "\n";
        return text;
    };
    std::string value;
    EXPECT_EQ("", faults({"n.first=5", "n.terms=[1, 2]"}, &value));
    EXPECT_EQ("512", value);
    EXPECT_EQ("--set m.first: there is no such node; did you mean \"n\"?\n", faults({"m.first=5"}));
    EXPECT_THAT(faults({"n.frst=5"}), HasSubstr("--set n.frst: there is no such input; did you mean \"first\"?"));
    EXPECT_EQ("nodes.n.inputs.first: expected a number, got the string \"five\"\n", faults({"n.first=five"}));

    host::Setting setting;
    ASSERT_TRUE(host::ParseSetting("n.a.b=x = 1", setting));
    EXPECT_EQ("n", setting.node);
    EXPECT_EQ("a.b", setting.port);
    EXPECT_EQ("x = 1", setting.value.AsString());
    for (const std::string_view wrong : {"", "n", "n.x", ".x=1", "n.=1", "=1.5"})
        EXPECT_FALSE(host::ParseSetting(wrong, setting)) << wrong;
}

// --- Hostile documents: a diagnostic within seconds, whatever they hold. ---

struct Hostile
{
    std::string name;
    std::function<std::string()> document;
    std::string fault; // part of the first one
};

std::string Nodes(int count, const std::function<std::string(int)>& node)
{
    std::string text = R"({"version": 1, "nodes": {)";
    for (int i = 0; i < count; ++i)
        text += fmt::format(R"({}"n{}": {})", i > 0 ? "," : "", i, node(i));
    return text + R"(}, "outputs": {"o": "n0.result"}})";
}

std::string Repeat(std::string_view text, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

// One node of the type with these inputs.
std::string OneNode(const std::string& type, const std::string& rest)
{
    return Nodes(1, [&](int) { return fmt::format(R"({{"type": "{}", {}}})", type, rest); });
}

// `count` times what `element` makes of a number, with commas between.
std::string List(int count, const std::function<std::string(int)>& element)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += (i > 0 ? "," : "") + element(i);
    return text;
}

// A node of so many named layers, each with a colour, and something wrong behind them.
std::string LayersOf(int count)
{
    return OneNode("layer", fmt::format(R"("arguments": {{"layers": [{}]}}, "inputs": {{{}, "colour": 1}})",
                                List(count, [](int i) { return fmt::format(R"("l{}")", i); }),
                                List(count, [](int i) { return fmt::format(R"("color#l{}": [1, 0, 0, 1])", i); })));
}

std::string SumOf(int terms)
{
    return fmt::format(R"({{"type": "net.velto.test.sum", "arguments": {{"terms": {}}}}})", terms);
}

std::string FunctionInFunction(int i)
{
    if (i + 1 == 20'000)
        return R"({"type": "net.velto.test.coordinate"})";
    return fmt::format(R"({{"type": "net.velto.test.invoke", "inputs": {{"f": {{"from": "n{}.result"}}}}}})", i + 1);
}

// A chain, and a function-valued input behind each of its links, all of them needed.
std::string ChainOfFunctions(int i)
{
    constexpr int kHalf = 10'000;
    if (i < kHalf)
        return fmt::format(
            R"({{"type": "net.velto.test.invoke", "inputs": {{"times": {}, "f": {{"from": "n{}.result"}}}}}})",
            i + 1 < kHalf ? fmt::format(R"({{"from": "n{}.result"}})", i + 1) : std::string("1"), kHalf + i);
    if (i + 1 < 2 * kHalf)
        return fmt::format(
            R"({{"type": "net.velto.test.keep.float", "inputs": {{"x": {{"from": "n{}.result"}}}}}})", i + 1);
    return R"({"type": "net.velto.test.coordinate"})";
}

class HostileDocument : public ::testing::TestWithParam<Hostile>
{
};

TEST_P(HostileDocument, IsRefusedWithinSeconds)
{
    TheProbe();
    const std::string document = GetParam().document();
    const auto start = std::chrono::steady_clock::now();
    const std::string faults = Faults(document);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    EXPECT_THAT(faults.substr(0, faults.find('\n')), HasSubstr(GetParam().fault));
    EXPECT_LT(faults.size(), 200'000u);
    // A second or two where a slip would take minutes; room for sanitizers and busy machines.
    EXPECT_LT(seconds.count(), 60.0);
}

INSTANTIATE_TEST_SUITE_P(Table, HostileDocument,
    ::testing::ValuesIn(std::vector<Hostile>{
        {"Nothing", [] { return std::string(); }, "not JSON"},
        {"Truncated", [] { return std::string(R"({"version": 1, "nodes": {"a": {"type)"); }, "not JSON"},
        {"MoreBehindIt", [] { return std::string(R"({"version": 1} {})"); }, "not JSON"},
        {"InvalidUtf8", [] { return std::string("{\"version\": \"\xC3\x28\"}"); }, "not JSON"},
        {"OverlongUtf8", [] { return std::string("{\"version\": \"\xC0\xAF\"}"); }, "not JSON"},
        {"LoneSurrogate", [] { return std::string(R"({"version": "\ud800"})"); }, "not JSON"},
        {"RawNul", [] { return std::string("{\"version\": \"a\0b\"}", 19); }, "not JSON"},
        {"BareNaN", [] { return std::string(R"({"version": NaN})"); }, "not JSON"},
        {"NumberTooLarge", [] { return OneNode("contrast", R"("inputs": {"contrast": 1e999})"); }, "not JSON"},
        {"DuplicateKey", [] { return std::string(R"({"version": 1, "version": 1})"); },
            "version: the key stands here twice"},
        {"Brackets", [] { return std::string(100'000, '['); }, "nested more than 256 deep"},
        {"Braces", [] { return Repeat(R"({"a":)", 100'000); }, "nested more than 256 deep"},
        {"MegabyteName", [] { return fmt::format(R"({{"{}": 1}})", std::string(2 << 20, 'x')); },
            "a string of 2097152 bytes"},
        {"LongName",
            [] { return fmt::format(R"({{"version": 1, "nodes": {{"{}": {{}}}}}})", std::string(1 << 20, 'x')); },
            "a name is"},
        {"LongType", [] { return OneNode(std::string(1'000'000, 'x'), R"("inputs": {})"); }, "there is no node type"},
        {"MillionNodes", [] { return Nodes(1'000'000, [](int) { return "{}"; }); }, "1000000 nodes; at most 100000"},
        {"TooManyValues", [] { return fmt::format("[{}0]", Repeat("0,", 6'000'000)); }, "more than 6000000 values"},
        {"TooManyBytes", [] { return std::string((64 << 20) + 1, ' '); }, "at most 67108864 are read"},
        {"AllTypesUnknown",
            [] {
                return Nodes(100'000, [](int i) {
                    return fmt::format(R"({{"type": "net.velto.pattern.corenode.effect.contrst{}"}})", i);
                });
            },
            "there is no node type"},
        {"AllLinksUnknown",
            [] {
                return Nodes(100'000, [](int i) {
                    return fmt::format(
                        R"({{"type": "contrast", "inputs": {{"color": {{"from": "nosuchnode{}.result"}}}}}})", i);
                });
            },
            "there is no node \"nosuchnode0\""},
        {"LongCycle",
            [] {
                return Nodes(100'000, [](int i) {
                    return fmt::format(R"({{"type": "contrast", "inputs": {{"color": {{"from": "n{}.result"}}}}}})",
                        (i + 1) % 100'000);
                });
            },
            "the links form a cycle: n0 -> n99999 -> "},
        {"ManyElements",
            [] {
                return OneNode(
                    "net.velto.test.sum", fmt::format(R"("inputs": {{"terms": [{}0]}})", Repeat("0,", 1'000'000)));
            },
            "nodes.n0.inputs.terms: 1000001 elements; at most 10000 are taken"},
        {"ManyElementsInAll", [] { return Nodes(1000, [](int i) { return SumOf(9000 + i); }); },
            "the nodes' arguments ask for more than 1000000 ports in all"},
        {"ManyPortsInAll", [] { return Nodes(1000, [](int) { return SumOf(9000); }); },
            "the program has more than 8000000 ports"},
        {"CountOfElements", [] { return Nodes(1, [](int) { return SumOf(1'000'000'000); }); },
            "nodes.n0.arguments: The node net.velto.test.sum would have more than 20000 ports."},
        {"ManyNamedElements", [] { return LayersOf(4'900); },
            "nodes.n0.inputs.colour: there is no such input; did you mean \"color\"?"},
        {"TooManyNamedElements", [] { return LayersOf(6'000); }, "would have more than 20000 ports."},
        {"NamedElementsInAll",
            [] {
                return Nodes(100, [](int i) {
                    return fmt::format(R"({{"type": "layer", "arguments": {{"layers": [{}]}}}})",
                        List(4'000, [i](int k) { return fmt::format(R"("l{}_{}")", i, k); }));
                });
            },
            "the nodes' arguments ask for more than 1000000 ports in all"},
        {"ManyOutputs",
            [] {
                return fmt::format(R"({{"version": 1, "nodes": {{}}, "outputs": {{{}}}}})",
                    List(80'000, [](int i) { return fmt::format(R"("o{}": "n.o")", i); }));
            },
            "outputs: 80000 outputs; at most 10000 are taken"},
        {"ManyLayers",
            [] {
                return fmt::format(R"({{"version": 1, "nodes": {{}}, "material": {{"bsdflayers": [{}]}}}})",
                    List(30'000, [](int) { return std::string("{}"); }));
            },
            "material.bsdflayers: 30000 elements; at most 10000 are taken"},
        {"NegativeCount",
            [] {
                return OneNode(
                    "net.velto.test.sum", R"("arguments": {"terms": -1000000000}, "inputs": {"terms[0]": 1})");
            },
            "nodes.n0.arguments: The argument terms must be a number of elements, 0 or more."},
        {"ManyFunctions", [] { return Nodes(20'000, &ChainOfFunctions); }, "the program has more than 8000000 ports"},
        {"DeepFunctions", [] { return Nodes(20'000, &FunctionInFunction); },
            "function-valued inputs are nested more than 256 deep"},
    }),
    [](const auto& info) { return info.param.name; });

} // namespace

} // namespace velto::test
