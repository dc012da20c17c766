#include "test/support/eval.h"

#include "module/source/pattern/generator/crc32c.h"

#include <fmt/format.h>

#include <random>

namespace velto::test
{

using host::Json;

// Red at 0.2, green at 0.4 and blue at 0.8, in another order, with one mode and one bias.
static Json Look(double x, std::string_view mode, double bias = 0.5, std::string_view space = "linear",
    std::string_view positions = "[0.8, 0.2, 0.4]")
{
    return EvalJson(fmt::format(R"({{"version": 1, "nodes": {{
            "pre": {{"type": "net.velto.pattern.corenode.generator.gradientpre", "inputs": {{"position": {1}}}}},
            "g": {{"type": "net.velto.pattern.corenode.generator.gradient", "inputs": {{
                "sortedKnots": {{"from": "pre.sortedKnots"}}, "colorspace": "{4}",
                "color": [[0, 0, 1, 1], [1, 0, 0, 0.5], [0, 0.5, 0, 1]], "bias": [{3}, {3}, {3}],
                "interpolation": ["{2}", "{2}", "{2}"]}}}}}},
            "outputs": {{"color": "g.result"}}}})",
                        x, positions, mode, bias, space),
        fmt::format(R"([{{"uvw": [{}, 0, 0]}}])", x));
}

static void ExpectColor(const Json& results, std::string_view expected, double tolerance = 1e-12)
{
    EXPECT_TRUE(AreEqual(Parse(expected), Parse(Output(results, "color")), tolerance));
}

TEST(Gradient, Segments)
{
    struct Row
    {
        double x;
        const char* mode;
        double bias;
        const char* expected;
    };
    const Row rows[] = {
        {0.3, "none", 0.5, "[1, 0, 0, 0.5]"},
        {0.4, "none", 0.5, "[1, 0, 0, 0.5]"}, // the right end of its segment
        {0.5, "none", 0.5, "[0, 0.5, 0, 1]"},
        {0.3, "linearknot", 0.5, "[0.5, 0.25, 0, 0.75]"},
        {0.25, "linearknot", 0.25, "[0.5, 0.25, 0, 0.75]"},
        {0.3, "linearknot", 0.25, "[0.33333333333333337, 0.3333333333333333, 0, 0.8333333333333333]"},
        {0.3, "linearknot", 0, "[0.25, 0.375, 0, 0.875]"},
        {0.3, "linearknot", 1, "[0.75, 0.125, 0, 0.625]"},
        {0.25, "smoothknot", 0.5, "[0.84375, 0.078125, 0, 0.578125]"},
        {0.25, "blend", 0.5, "[1, 0, 0, 0.5]"},
        {0.35, "blend", 0.5, "[0.5, 0.25, 0, 0.75]"},
        {0.399, "blend", 1, "[1, 0, 0, 0.5]"},
        {0.3, "cubicbias", 0.5, "[0.5, 0.25, 0, 0.75]"},
        {0.3, "cubicbias", 0, "[0.21875, 0.390625, 0, 0.890625]"},
        {0.6, "cubicknot", 0.5, "[0, 0.28125, 0.5, 1]"},
        {0.3, "cubicknot", 0.5, "[0.5, 0.28125, 0, 0.75]"},
        // Beside the knots.
        {0.0, "linearknot", 0.5, "[1, 0, 0, 0.5]"},
        {0.0, "smoothknot", 0.5, "[1, 0, 0, 0.5]"},
        {0.1, "cubicbias", 0.5, "[1.6875, -0.34375, 0, 0.15625]"},
        {0.8, "linearknot", 0.5, "[0, 0, 1, 1]"},
        {9.0, "cubicbias", 0.5, "[0, 0, 1, 1]"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(fmt::format("{} at {}, bias {}", row.mode, row.x, row.bias));
        ExpectColor(Look(row.x, row.mode, row.bias), row.expected);
    }
}

TEST(Gradient, SrgbMixesEncodedColours)
{
    // Half way in sRGB between 1 and 0; alpha is never encoded.
    ExpectColor(Look(0.3, "linearknot", 0.5, "srgb"), "[0.21404114048223255, 0.11133160089467067, 0, 0.75]", 1e-9);
    ExpectColor(Look(0.5, "none", 0.5, "srgb"), "[0, 0.5, 0, 1]", 1e-12);
}

TEST(Gradient, KnotsOnOnePlaceAndOutOfOrder)
{
    ExpectColor(Look(0.4, "linearknot", 0.5, "linear", "[0.4, 0.4, 0.4]"), "[0, 0, 1, 1]");
    ExpectColor(Look(0.5, "linearknot", 0.5, "linear", "[0.4, 0.4, 0.4]"), "[0, 0.5, 0, 1]");
    // The number breaks the tie: behind the step the second one counts.
    ExpectColor(Look(0.6, "linearknot", 0.5, "linear", "[0.5, 0.5, 0.7]"), "[0.5, 0.25, 0, 0.75]");
    // Knot 0 exactly at x is a left end.
    ExpectColor(Look(0.5, "none", 0.5, "linear", "[0.5, 0.2, 0.9]"), "[0, 0, 1, 1]");
    ExpectColor(Look(0.1, "none", 0.5, "linear", R"(["nan", 0, 0.5])"), "[1, 0, 0, 0.5]");
}

TEST(Gradient, WithoutKnotsOrPlace)
{
    ExpectColor(EvalJson(R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.generator.gradientpre", "inputs": {"position": []}},
        "g": {"type": "net.velto.pattern.corenode.generator.gradient", "inputs": {
            "sortedKnots": {"from": "pre.sortedKnots"}, "color": [], "bias": [], "interpolation": []}}},
        "outputs": {"color": "g.result", "crc": "pre.crc"}})"),
        "[0, 0, 0, 0]");
    const Json results = EvalJson(R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.generator.gradientpre", "inputs": {"position": [0.5]}},
        "g": {"type": "net.velto.pattern.corenode.generator.gradient", "inputs": {"colorspace": "linear",
            "sortedKnots": {"from": "pre.sortedKnots"}, "color": [[1, 2, 3, 4]], "input": 0.7}}},
        "outputs": {"color": "g.result", "crc": "pre.crc"}})",
        R"([{"uvwValid": false}, {}])");
    EXPECT_EQ("[0, 0, 0, 0]", Parse(Output(results, "color", 0)).Write());
    // One knot needs neither mode nor bias.
    EXPECT_TRUE(AreEqual(Parse("[1, 2, 3, 4]"), Parse(Output(results, "color", 1))));
}

TEST(Gradient, Failures)
{
    EXPECT_EQ("net.velto.error.illegalstate", Output(Look(0.3, "wavy"), "color"));
    const Json unknown = Look(0.3, "linearknot", 0.5, "cmyk");
    ExpectColor(unknown, "[0.5, 0.25, 0, 0.75]");
    const Json* const stops = Entry(unknown).Find("stops");
    ASSERT_TRUE(stops);
    EXPECT_EQ(3u, stops->Elements().size()); // each colour, and the result
    EXPECT_NE(std::string::npos, stops->Write().find("Stop: Unsupported color space in gradient: cmyk"));
}

// A sample asks for the colours that it needs and for no other.
TEST(Gradient, EvaluatesWhatItNeeds)
{
    const auto look = [](double x, std::string_view mode) {
        std::string nodes;
        std::string colors;
        for (const char name : {'a', 'b', 'c', 'd'})
        {
            nodes += fmt::format(R"("{}": {{"type": "net.velto.pattern.corenode.generator.checkerboard",
                "inputs": {{"color1": [1, 1, 1, 1], "color2": [1, 1, 1, 1]}}}}, )",
                name);
            colors += fmt::format(R"({}{{"from": "{}.result"}})", colors.empty() ? "" : ", ", name);
        }
        const Json results = EvalJson(fmt::format(R"({{"version": 1, "nodes": {{ {0}
            "pre": {{"type": "net.velto.pattern.corenode.generator.gradientpre", "inputs": {{"position": [0, 0.25, 0.5, 1]}}}},
            "g": {{"type": "net.velto.pattern.corenode.generator.gradient", "inputs": {{"colorspace": "linear",
                "sortedKnots": {{"from": "pre.sortedKnots"}}, "color": [{1}], "bias": [0.5, 0.5, 0.5, 0.5],
                "interpolation": ["{2}", "{2}", "{2}", "{2}"]}}}}}},
            "outputs": {{"color": "g.result"}}}})",
                                          nodes, colors, mode),
            fmt::format(R"([{{"uvw": [{}, 0, 0]}}])", x));
        std::string counts;
        for (const char* const name : {"a", "b", "c", "d"})
            counts += std::to_string(Evaluations(results, name));
        return counts;
    };
    EXPECT_EQ("0100", look(0.3, "none"));
    EXPECT_EQ("0100", look(0.3, "blend"));
    EXPECT_EQ("0110", look(0.45, "blend"));
    EXPECT_EQ("0110", look(0.3, "smoothknot"));
    EXPECT_EQ("1111", look(0.3, "cubicknot"));
    EXPECT_EQ("1110", look(0.1, "cubicknot"));
    EXPECT_EQ("0111", look(1.0, "cubicknot"));
    EXPECT_EQ("0001", look(1.5, "cubicknot"));
}

TEST(Gradient, AChangeOfPositionAloneSortsAnew)
{
    const Json results = EvalJson(R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.generator.gradientpre", "inputs": {"position": [0, 1]}},
        "g": {"type": "net.velto.pattern.corenode.generator.gradient", "inputs": {"colorspace": "linear",
            "sortedKnots": {"from": "pre.sortedKnots"}, "color": [[1, 0, 0, 1], [0, 1, 0, 1]], "bias": [0.5, 0.5],
            "interpolation": ["none", "none"]}}},
        "outputs": {"color": "g.result", "crc": "pre.crc"}})",
        R"([{"uvw": [0.5, 0, 0]}, {"uvw": [0.5, 0, 0], "set": {"pre.position[0]": 0.7, "pre.position[1]": 0.3}}])");
    EXPECT_TRUE(AreEqual(Parse("[1, 0, 0, 1]"), Parse(Output(results, "color", 0))));
    EXPECT_TRUE(AreEqual(Parse("[0, 1, 0, 1]"), Parse(Output(results, "color", 1))));
    EXPECT_NE(Output(results, "crc", 0), Output(results, "crc", 1));
    pattern::Crc32c crc;
    crc.Add(0.0);
    crc.Add(1.0);
    EXPECT_EQ(std::to_string(crc.Value()), Output(results, "crc", 0));
}

TEST(Crc32c, InstructionAndTableAgree)
{
    EXPECT_EQ(0u, pattern::Crc32c().Value());
    // Thirty-two zero bytes: RFC 3720, appendix B.4.
    std::mt19937_64 random(1);
    for (const bool useInstruction : {false, pattern::detail::HasCrc32cInstruction()})
    {
        pattern::Crc32c zeros(useInstruction);
        for (int i = 0; i < 4; ++i)
            zeros.Add(0.0);
        EXPECT_EQ(0x8a9136aau, zeros.Value());
    }
    pattern::Crc32c table(false);
    pattern::Crc32c instruction(pattern::detail::HasCrc32cInstruction());
    for (int i = 0; i < 1000; ++i)
    {
        const double value = std::bit_cast<double>(random());
        table.Add(value);
        instruction.Add(value);
        ASSERT_EQ(table.Value(), instruction.Value());
    }
}

} // namespace velto::test
