#include "test/support/eval.h"

#include <fmt/format.h>

namespace velto::test
{

using host::Json;

// Bump over a ramp of heights along u: three times u, or along v where the coordinate is turned.
static Json Bumped(std::string_view bump, std::string_view rotation = "0",
    std::string_view sample = R"({"uvw": [0.25, 0.5, 0], "shadingNormal": [0, 0, 1], "tangent": [1, 0, 0],
        "bitangent": [0, 1, 0]})")
{
    return EvalJson(fmt::format(R"({{"version": 1, "nodes": {{
            "turn": {{"type": "net.velto.render.corenode.gradientplacement", "inputs": {{"mode": "off", "rotation": {}}}}},
            "pre": {{"type": "net.velto.pattern.corenode.generator.gradientpre", "inputs": {{"position": [-1, 1]}}}},
            "ramp": {{"type": "net.velto.pattern.corenode.generator.gradient", "inputs": {{
                "contextLocal": {{"from": "turn.result"}}, "sortedKnots": {{"from": "pre.sortedKnots"}},
                "colorspace": "linear", "color": [[-1, -1, -1, 1], [1, 1, 1, 1]], "bias": [0.5, 0.5],
                "interpolation": ["linearknot", "linearknot"]}}}},
            "bump": {{"type": "net.velto.render.corenode.bump", "inputs": {{{}}}}}}},
            "outputs": {{"normal": "bump.result"}}}})",
                        rotation, bump),
        fmt::format("[{}]", sample));
}

#define RAMP R"("color": {"from": "ramp.result"}, )"

static void ExpectNormal(const Json& results, std::string_view expected)
{
    EXPECT_TRUE(AreEqual(Parse(expected), Parse(Output(results, "normal")), 1e-12));
}

// A step of a tenth is a rise of 0.3, which this strength makes a slope of 1.
TEST(Bump, SlopesTiltTheNormal)
{
    const std::string bump = RAMP R"("strength": 0.02, "epsilonuv": 1000)";
    ExpectNormal(Bumped(bump), "[-0.7071067811865475, 0, 0.7071067811865475]");
    ExpectNormal(Bumped(bump, "1.5707963267948966"), "[0, 0.7071067811865475, 0.7071067811865475]");
    ExpectNormal(Bumped(RAMP R"("strength": 0.04, "epsilonuv": 1000)"), "[-0.8944271909999159, 0, 0.4472135954999579]");
    ExpectNormal(Bumped(RAMP R"("strength": 0.04, "epsilonuv": 500)"), "[-0.7071067811865475, 0, 0.7071067811865475]");
    ExpectNormal(Bumped(RAMP R"("strength": 5, "epsilonuv": 0, "epsilon3d": 1)"), "[0, 0, 1]");
}

TEST(Bump, LooksThreeTimesOrNotAtAll)
{
    EXPECT_EQ(3, Evaluations(Bumped(RAMP R"("strength": 1, "epsilonuv": 1)"), "ramp"));

    const Json invalid = Bumped(RAMP R"("strength": 1)", "0", R"({"uvwValid": false, "shadingNormal": [0, 0, 1]})");
    EXPECT_EQ(0, Evaluations(invalid, "ramp"));
    ExpectNormal(invalid, "[0, 0, 0]");

    ExpectNormal(Bumped(R"("strength": 1, "epsilonuv": 1)"), "[0, 0, 0]");
    // The default of the height is shown to users, not looked at.
    ExpectNormal(
        EvalJson(R"({"version": 1, "nodes": {"bump": {"type": "bump"}}, "outputs": {"normal": "bump.result"}})",
            R"([{"shadingNormal": [0, 0, 1]}])"),
        "[0, 0, 0]");
}

// What cannot have a slope is the shading normal as it is, and nothing is looked at.
TEST(Bump, IsReplacedWhereThereIsNoSlope)
{
    const char* const slanted = R"({"shadingNormal": [0, 0, 2], "tangent": [1, 0, 0], "bitangent": [0, 1, 0]})";
    for (const char* const bump : {R"("color": [1, 2, 3], "strength": 1)", RAMP R"("strength": 0)"})
    {
        const Json results = Bumped(bump, "0", slanted);
        ExpectNormal(results, "[0, 0, 2]");
        EXPECT_LE(Evaluations(results, "ramp"), 0);
        ExpectNormal(Bumped(bump, "0", R"({"uvwValid": false, "shadingNormal": [0, 0, 2]})"), "[0, 0, 0]");
    }
    // A strength that may change is no reason.
    const Json results = Bumped(RAMP R"("strength": 1)", "0",
        R"({"set": {"bump.strength": 0}, "shadingNormal": [0, 0, 2], "tangent": [1, 0, 0], "bitangent": [0, 1, 0]})");
    ExpectNormal(results, "[0, 0, 1]");
    EXPECT_EQ(3, Evaluations(results, "ramp"));
}

TEST(Bump, NoLengthIsNoDivision)
{
    ExpectNormal(Bumped(RAMP R"("strength": 1, "epsilonuv": 0)", "0", R"({"shadingNormal": [0, 0, 0]})"), "[0, 0, 0]");
}

TEST(Bump, ErrorsOfTheHeightPassUp)
{
    const Json results = EvalJson(R"({"version": 1, "nodes": {
        "broken": {"type": "net.velto.pattern.corenode.generator.checkerboard", "inputs": {}},
        "bump": {"type": "net.velto.render.corenode.bump", "inputs": {"color": {"from": "broken.result"}, "strength": 1}}},
        "outputs": {"normal": "bump.result"}})");
    EXPECT_EQ("net.velto.error.nullptr", Output(results, "normal"));
    EXPECT_EQ(1, Evaluations(results, "broken"));
}

} // namespace velto::test
