// Parameters, presets and documents that are nodes make the same program as what is written out by hand.
#include "test/support/files.h"
#include "test/support/probe.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

namespace velto::test
{

namespace
{

using ::testing::HasSubstr;

class DocumentLibraryTest : public ::testing::Test
{
protected:
    DocumentLibraryTest()
    {
        TheModule();
        std::filesystem::create_directory(folder_.Path("library"));
        Write("board.json", R"({"version": 1,
            "parameters": {
                "repeat": {"type": "Float", "default": 3, "min": 1, "max": 20},
                "tint": {"type": "ColorA", "default": [1, 0, 0, 1]},
                "kind": {"type": "Id", "default": "perlin"}},
            "nodes": {
                "place": {"type": "placement2d", "inputs": {"localModeU": "repeat", "localModeV": "repeat",
                    "localRepetitions": [2, 3]}},
                "cloud": {"type": "noise", "inputs": {"noiseType": {"parameter": "kind"},
                    "octaves": {"parameter": "repeat"}}},
                "board": {"type": "checkerboard", "inputs": {"contextLocal": {"from": "place.result"},
                    "color1": {"parameter": "tint"}, "color2": {"from": "cloud.result"}}}},
            "outputs": {"color": "board.result", "number": "cloud.result"}})");
    }

    void Write(const std::string& name, const std::string& text) const { folder_.WriteBytes(name, text); }

    bool Load(const std::string& text, host::Graph& graph, std::string& faults, host::GraphOptions options = {}) const
    {
        options.file = folder_.Path("main.json");
        options.libraries = {folder_.Path("library")};
        host::Diagnostics diagnostics;
        const bool isGood = host::LoadGraph(text, TheModule(), options, diagnostics, graph);
        for (const host::Diagnostic& diagnostic : diagnostics.All())
            faults += fmt::format("{}: {}: {}{}\n", std::filesystem::path(diagnostic.file).filename().string(),
                diagnostic.place, diagnostic.text, diagnostic.isWarning ? " (warning)" : "");
        return isGood;
    }

    // What the outputs are at places all over the unit square, and how large the program is.
    std::string Values(const std::string& text, const host::GraphOptions& options = {}) const
    {
        host::Graph graph;
        std::string faults;
        if (!Load(text, graph, faults, options) || !faults.empty())
            return faults;
        host::Json samples = host::Json::Array();
        for (int i = 0; i < 200; ++i)
        {
            host::Json uvw = host::Json::Array();
            for (const Float c : {i * 0.37, i * 0.0531, 0.0})
                uvw.Append(c - std::floor(c));
            host::Json sample = host::Json::Object();
            sample.Add("uvw", std::move(uvw));
            samples.Append(std::move(sample));
        }
        host::Diagnostics diagnostics;
        host::Json results;
        bool anyFailed = false;
        EXPECT_TRUE(host::EvaluateSamples(graph, samples, false, diagnostics, results, anyFailed));
        EXPECT_FALSE(anyFailed);
        std::size_t calls = 0;
        for (const host::BodyPlan& body : graph.program->bodies)
            calls += body.calls.size();
        return fmt::format("{} calls {}", calls, results.Write());
    }

    const TemporaryFolder folder_;
};

// The board with its values written out. What a context is given to is another node than what is invoked.
std::string WrittenOut(const std::string& repeat, const std::string& tint, const std::string& nodes = "",
    const std::string& place = "", const std::string& cloud = "")
{
    const auto noise = [&](const std::string& inputs) {
        return R"({"type": "noise", "inputs": {"noiseType": "net.velto.render.rendernoiseclass.perlin", )" + inputs +
               R"("octaves": )" + repeat + "}}";
    };
    return R"({"version": 1, "nodes": {)" + nodes + (cloud.empty() ? "" : R"("invoked": )" + noise("") + ",") + R"(
        "place": {"type": "placement2d", "inputs": {"localModeU": "repeat", "localModeV": "repeat", )" +
           place + R"("localRepetitions": [2, 3]}}, "cloud": )" + noise(cloud) + R"(,
        "board": {"type": "checkerboard", "inputs": {"contextLocal": {"from": "place.result"}, "color1": )" +
           tint + R"(, "color2": {"from": ")" + (cloud.empty() ? "cloud" : "invoked") +
           R"(.result"}}}}, "outputs": {"color": "board.result", "number": "cloud.result"}})";
}

TEST_F(DocumentLibraryTest, ParametersAndPresetsAreValuesWrittenOut)
{
    const std::string document = R"({"version": 1, "comment": ["two", "lines"], "ui": {"x": 1}, "$schema": "s.json",
        "parameters": {"a": {"type": "Int", "default": 2}, "c": {"type": "Color", "default": [1, 0, 0]}},
        "presets": {"more": {"a": 5, "comment": "five"}, "green": {"c": [0, 1, 0]}},
        "nodes": {"comment": "nodes", "n": {"type": "noise", "ui": {}, "comment": "a noise", "inputs": {
            "octaves": {"parameter": "a"}, "noiseType": "fbm"}},
            "g": {"type": "gradient", "inputs": {"input": {"from": "n.result"}, "gradient": [
                {"position": 0, "color": {"parameter": "c"}}, {"position": 1, "color": [0, 0, 1, 1]}]}}},
        "outputs": {"o": {"from": "g.result"}}})";
    const auto written = [](const char* octaves, const char* color) {
        return fmt::format(R"({{"version": 1, "nodes": {{
            "n": {{"type": "noise", "inputs": {{"octaves": {},
                "noiseType": "net.velto.render.rendernoiseclass.fbm"}}}},
            "g": {{"type": "gradient", "inputs": {{"input": {{"from": "n.result"}}, "gradient": [
                {{"position": 0, "color": {}}}, {{"position": 1, "color": [0, 0, 1, 1]}}]}}}}}},
            "outputs": {{"o": "g.result"}}}})",
            octaves, color);
    };
    host::GraphOptions options;
    EXPECT_EQ(Values(written("2", "[1, 0, 0, 1]")), Values(document));
    options.presets = {"more", "green"};
    EXPECT_EQ(Values(written("5", "[0, 1, 0, 1]")), Values(document, options));
    options.settings.resize(1);
    ASSERT_TRUE(host::ParseSetting("a=7", options.settings[0]));
    EXPECT_EQ(Values(written("7", "[0, 1, 0, 1]")), Values(document, options));
}

TEST_F(DocumentLibraryTest, ADocumentIsWhatIsInIt)
{
    std::filesystem::rename(folder_.Path("board.json"), folder_.Path("library/board.json"));
    Write("outer.json", R"({"version": 1, "parameters": {"r": {"type": "Int", "default": 1}},
        "nodes": {"b": {"type": "board", "inputs": {"repeat": {"parameter": "r"}}}},
        "outputs": {"color": "b.color", "number": "b.number"}})");
    const std::string outputs = R"("outputs": {"color": "w.color", "number": "w.number"}})";
    const std::string grid = R"("g": {"type": "grid"}, )";
    // By values, by a value through two documents, by a link to what is a function inside.
    EXPECT_EQ(Values(WrittenOut("4", "[0, 1, 0, 1]")),
        Values(R"({"version": 1, "nodes": {"w": {"type": "board", "inputs": {"repeat": 4, "tint": [0, 1, 0, 1]}}}, )" +
               outputs));
    EXPECT_EQ(Values(WrittenOut("6", "[1, 0, 0, 1]")),
        Values(R"({"version": 1, "nodes": {"w": {"type": "outer.json", "inputs": {"r": 6}}}, )" + outputs));
    EXPECT_EQ(Values(WrittenOut("3", R"({"from": "g.result"})", grid)),
        Values(R"({"version": 1, "nodes": {)" + grid +
               R"("w": {"type": "board", "inputs": {"tint": {"from": "g.result"}}}}, )" + outputs));
    // A context reaches what the outputs look at, not what is invoked with another one.
    const std::string moved = R"("m": {"type": "placement2d", "inputs": {"localRepetitions": [0.3, 0.7]}}, )";
    EXPECT_EQ(Values(WrittenOut("3", "[1, 0, 0, 1]", moved, R"("context": {"from": "m.result"}, )",
                  R"("contextLocal": {"from": "m.result"}, )")),
        Values(R"({"version": 1, "nodes": {)" + moved +
               R"("w": {"type": "board", "inputs": {"contextLocal": {"from": "m.result"}}}}, )" + outputs));
}

TEST_F(DocumentLibraryTest, FaultsAreSaidInTheFileWhereTheyStand)
{
    Write("broken.json", R"({"version": 1, "nodes": {"n": {"type": "contrst"}}, "outputs": {"o": "n.result"}})");
    Write("later.json", R"({"version": 2, "nodes": {}, "outputs": {}})");
    Write("a.json", R"({"version": 1, "nodes": {"n": {"type": "b.json"}}, "outputs": {"o": "n.o"}})");
    Write("b.json", R"({"version": 1, "nodes": {"n": {"type": "a.json"}}, "outputs": {"o": "n.o"}})");
    for (int i = 0; i < 70; ++i)
        Write(fmt::format("deep{}.json", i), fmt::format(R"({{"version": 1, "nodes": {{"n": {{"type": "{}"}}}},
            "outputs": {{"o": "n.o"}}}})",
                                                 i < 69 ? fmt::format("deep{}.json", i + 1) : "contrast"));
    std::string wide = R"({"version": 1, "nodes": {"m": {"type": "contrast"})";
    for (int i = 0; i < 400; ++i)
        wide += fmt::format(R"(, "n{}": {{"type": "TYPE"}})", i);
    wide += R"(}, "outputs": {"o": "m.result"}})";
    for (const auto& [name, type] : {std::pair("w1.json", "board.json"), std::pair("w2.json", "w1.json")})
    {
        std::string text = wide;
        for (auto at = text.find("TYPE"); at != text.npos; at = text.find("TYPE"))
            text.replace(at, 4, type);
        Write(name, text);
    }
    struct Row
    {
        std::string nodes;
        std::string fault;
    };
    const std::vector<Row> rows{
        {R"("n": {"type": "nosuch.json"})", ": nodes.n.type: there is no node type \"nosuch.json\""},
        {R"("n": {"type": "broken.json"})", "broken.json: nodes.n.type: there is no node type \"contrst\""},
        {R"("n": {"type": "later.json"})", "later.json: version: expected 1"},
        {R"("n": {"type": "a.json"})",
            "b.json: nodes.n.type: the documents use each other: a.json -> b.json -> a.json"},
        {R"("n": {"type": "main.json"})", ": nodes.n.type: there is no node type"},
        {R"("n": {"type": "deep0.json"})", "documents in documents, more than 64 deep"},
        {R"("n": {"type": "w2.json"})", "w2.json: nodes.n"},
        {R"("n": {"type": "board.json", "arguments": {"x": 1}})", ": nodes.n.arguments.x: is not known here"},
        {R"("n": {"type": "board.json", "inputs": {"repeat": "x"}})", ": nodes.n.inputs.repeat: expected a number"},
        {R"("n": {"type": "board.json", "inputs": {"kind": "perlins"}})", ": nodes.n.inputs.kind: \"perlins\" is not"},
        {R"("n": {"type": "noise", "inputs": {"octaves": {"parameter": "q"}}})", "there is no parameter \"q\""},
        {R"("n": {"type": "noise", "inputs": {"octaves": {"parameter": "t"}}})",
            "t is a String, which does not turn into a Float"},
    };
    for (const Row& row : rows)
    {
        host::Graph graph;
        std::string faults;
        host::GraphOptions options;
        options.warnsOutsideLimits = true; // as a check does
        EXPECT_FALSE(Load(R"({"version": 1, "parameters": {"t": {"type": "String", "default": ""}}, "nodes": {)" +
                              row.nodes + R"(}, "outputs": {"o": "n.number"}})",
            graph, faults, options))
            << row.nodes;
        EXPECT_THAT(faults, HasSubstr(row.fault)) << row.nodes;
    }
}

TEST_F(DocumentLibraryTest, ParametersAreChecked)
{
    std::string faults;
    const auto load = [&](const std::string& text) {
        host::Graph graph;
        faults.clear();
        return Load(text, graph, faults);
    };
    EXPECT_FALSE(load(R"({"version": 1, "parameters": {
        "a.b": {"type": "Float", "default": 1}, "none": {"type": "Flaot", "default": 1}, "bare": {"type": "Float"},
        "odd": {"type": "Float", "default": [1]}, "limits": {"type": "Float", "default": 1, "min": "x"},
        "good": {"type": "Float", "default": 1}},
        "presets": {"p": {"goad": 1, "good": "x"}},
        "nodes": {"n": {"type": "contrast"}},
        "outputs": {"../../x": "n.result", "a-b.c": "n.result", "o": {"from": "n.result", "encoding": "srgb"}}})"));
    for (const char* const fault : {"parameters.a.b: a name is",
             "parameters.none.type: there is no type of values "
             "\"Flaot\"; did you mean \"Float\"?",
             "parameters.bare.default: is missing", "parameters.odd.default: expected a number",
             "parameters.limits.min: expected a number", "presets.p.goad: there is no such parameter; did you mean",
             "presets.p.good: expected a number", "outputs.../../x: a name is letters",
             "outputs.o.encoding: expected one of color, data, normal"})
        EXPECT_THAT(faults, HasSubstr(fault));
    EXPECT_THAT(faults, ::testing::Not(HasSubstr("a-b.c")));
    EXPECT_FALSE(load(R"({"version": 1, "nodes": {"n": {"type": "contrast"}, "number": {"type": "noise"}}, "outputs": {
        "flat": {"from": "number.result", "encoding": "normal"}, "curved": {"from": "n.result", "encoding": "data",
        "colorspace": "srgb"}, "deep": {"from": "n.result", "depth": 16}, "good": {"from": "n.result", "depth": "half"}}})"));
    for (const char* const fault :
        {"outputs.flat.encoding: a Float is no normal", "outputs.curved.colorspace: srgb is for",
            "outputs.deep.depth: expected one of uint8, uint16, half, float, got"})
        EXPECT_THAT(faults, HasSubstr(fault));
    EXPECT_FALSE(load(R"({"version": 1, "nodes": {"p": {"type": "placement2d"}},
        "outputs": {"o": {"from": "p.result", "depth": "half"}, "plain": "p.result"}})"));
    EXPECT_EQ(": outputs.o: a ShadingContext is no picture and has no encoding\n", faults);
    EXPECT_TRUE(load(R"({"version": 1, "parameters": {"idle": {"type": "Float", "default": 1}},
        "nodes": {"n": {"type": "contrast"}}, "outputs": {"o": "n.result"}})"));
    EXPECT_EQ(": parameters.idle: no input takes it (warning)\n", faults);
}

TEST_F(DocumentLibraryTest, LimitsOfParametersAreThoseOfPorts)
{
    host::GraphOptions options;
    options.warnsOutsideLimits = true; // as a check does
    options.settings.resize(1);
    ASSERT_TRUE(host::ParseSetting("least=-1", options.settings[0]));
    host::Graph graph;
    std::string faults;
    EXPECT_TRUE(Load(R"({"version": 1, "parameters": {
        "least": {"type": "Float", "default": 1, "min": 0}, "most": {"type": "Vector2d", "default": [1, 5], "max": [2, 4]}},
        "presets": {"wide": {"most": [3, 1]}},
        "nodes": {"n": {"type": "board.json", "inputs": {"repeat": 21}},
            "c": {"type": "contrast", "inputs": {"contrast": {"parameter": "least"}}},
            "p": {"type": "placement2d", "inputs": {"localRepetitions": {"parameter": "most"}}}},
        "outputs": {"o": "n.color", "c": "c.result", "p": "p.result"}})",
        graph, faults, options));
    EXPECT_EQ(": parameters.most.default[1]: 5 is above the most, 4 (warning)\n"
              ": presets.wide.most[0]: 3 is above the most, 2 (warning)\n"
              ": --set least: -1 is below the least, 0 (warning)\n"
              ": nodes.n.inputs.repeat: 21 is above the most, 20 (warning)\n",
        faults);
}

// Read once, and as large as it is when it is written out; as often as the limit of nodes allows.
TEST_F(DocumentLibraryTest, ADocumentMayStandThousandsOfTimes)
{
    const auto load = [&](int instances, host::Graph& graph, std::string& faults) {
        std::string nodes;
        for (int i = 0; i < instances; ++i)
            nodes += fmt::format(
                R"({}"n{}": {{"type": "board.json", "inputs": {{"repeat": {}}}}})", i > 0 ? ", " : "", i, i % 5 + 1);
        return Load(
            fmt::format(R"({{"version": 1, "nodes": {{{}}}, "outputs": {{"o": "n{}.color"}}}})", nodes, instances - 1),
            graph, faults);
    };
    host::Graph graph;
    std::string faults;
    ASSERT_TRUE(load(10'000, graph, faults)) << faults;
    EXPECT_EQ(1u, graph.document.files.size());
    EXPECT_EQ(40'000u, graph.document.graph.nodes.size()); // a noise is two
    EXPECT_FALSE(load(34'000, graph, faults));
    EXPECT_THAT(faults, HasSubstr("more than 100000 nodes"));
}

} // namespace

} // namespace velto::test
