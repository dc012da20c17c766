#include "test/support/eval.h"

#include <fmt/format.h>

namespace velto::test
{

using host::Json;

// Straight lines where nothing else is said, so that heights tell what became of the knots.
static double Height(double x, std::string_view positions, std::string_view more = "")
{
    const Json results = EvalJson(fmt::format(R"({{"version": 1, "nodes": {{"s": {{
            "type": "net.velto.pattern.corenode.generator.spline", "inputs": {{"input": {}, "max": [1, 1], {} {}}}}}}},
            "outputs": {{"y": "s.result"}}}})",
        x, positions, more));
    return Parse(Output(results, "y")).AsNumber();
}

#define LINES                                                                                                          \
    R"("positionx": [0, 0.5, 1], "positiony": [0.2, 0.8, 0.4], "interpolation": ["linear", "linear", "linear"])"

TEST(Spline, KnotsMakeTheCurve)
{
    EXPECT_DOUBLE_EQ(0.5, Height(0.25, LINES));
    EXPECT_DOUBLE_EQ(0.8, Height(0.5, LINES));
    EXPECT_DOUBLE_EQ(0.6, Height(0.75, LINES));
    EXPECT_DOUBLE_EQ(0.2, Height(-5, LINES));
    EXPECT_DOUBLE_EQ(0.4, Height(5, LINES));
    // In any order.
    EXPECT_DOUBLE_EQ(0.6, Height(0.75, R"("positionx": [1, 0.5, 0], "positiony": [0.4, 0.8, 0.2],
        "interpolation": ["linear", "linear", "linear"])"));
    // Held to the range.
    EXPECT_DOUBLE_EQ(
        0.5, Height(0.5, R"("positionx": [-7, 9], "positiony": [-2, 5], "interpolation": ["linear", "linear"])"));
    EXPECT_DOUBLE_EQ(0.3, Height(0.3, R"("positionx": [])"));
    EXPECT_DOUBLE_EQ(0.7, Height(0.3, R"("positionx": [0.9], "positiony": [0.7], "linkendpositions": true)"));
}

#define BEZIER R"("positionx": [0, 1], "positiony": [0.5, 0.5], "tangentleft": [[-0.3, -0.3], [-0.3, 0.3]], )"

// Half way a curve lies 3/8 of its two tangents' heights above its ends.
TEST(Spline, Tangents)
{
    const double up = 0.3;
    EXPECT_NEAR(0.5 + 0.375 * (up + up), Height(0.5, BEZIER R"("interpolation": ["bezier", "bezier"])"), 1e-12);
    // Independent only where they are broken.
    const std::string right = BEZIER R"("tangentright": [[0.3, -0.3], [0, 0]])";
    EXPECT_NEAR(0.5 + 0.375 * (up + up), Height(0.5, right), 1e-12);
    EXPECT_NEAR(0.5, Height(0.5, right + R"(, "breaktangent": [true, true])"), 1e-12);
    // The last knot's left tangent follows the first knot's right one, turned round.
    EXPECT_NEAR(0.5, Height(0.5, BEZIER R"("linkendtangents": true)"), 1e-12);
    for (const char* const lock : {"lockangle", "locklength"})
    {
        EXPECT_NEAR(0.725,
            Height(0.5, BEZIER R"("linkendtangents": true, ")" + std::string(lock) + R"(": [false, true])"), 1e-12);
        EXPECT_NEAR(0.5,
            Height(0.5, BEZIER R"("linkendtangents": true, ")" + std::string(lock) + R"(": [true, false])"), 1e-12);
    }
}

TEST(Spline, LinkedEndPositions)
{
    EXPECT_DOUBLE_EQ(0.2, Height(1, LINES R"(, "linkendpositions": true)"));
    EXPECT_DOUBLE_EQ(0.4, Height(1, LINES R"(, "linkendpositions": true, "locky": [false, false, true])"));
    // The lock is that of the last port, the knot is the last one in order.
    EXPECT_DOUBLE_EQ(0.8, Height(0.5, R"("positionx": [1, 0.5, 0], "positiony": [0.4, 0.8, 0.2],
        "interpolation": ["linear", "linear", "linear"], "linkendpositions": true)"));
    EXPECT_DOUBLE_EQ(0.2, Height(1, R"("positionx": [1, 0.5, 0], "positiony": [0.4, 0.8, 0.2],
        "interpolation": ["linear", "linear", "linear"], "linkendpositions": true, "locky": [true, true, false])"));
}

} // namespace velto::test
