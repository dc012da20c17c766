// The patterns that tile: what is where, that both edges agree, and what a sample sees that covers much.
#include "test/support/node_table.h"
#include "test/support/sampled_document.h"

#include "velto/porttypes.h"

#include <fmt/format.h>

#include <cmath>

namespace velto::test
{

#define VELTO_WALL(rest) R"({"brick": [1, 0, 0, 1], "joint": [0, 0, 1, 1], "columns": 2, "rows": 4, )" rest "}"
#define VELTO_AT(u, v) R"({"uvw": [)" #u ", " #v ", 0]}"

NODE_TABLE(ToolkitBricksTable, "net.velto.toolkit.corenode.generator.bricks",
    {
        {"the middle of a brick", VELTO_WALL(R"("mortar": 0.5, "bevel": 0.25, "offset": 0.5)"),
            R"({"result": [1, 0, 0, 1], "mask": 1, "height": 1, "index": 0, "local": [0.5, 0.5, 0]})",
            VELTO_AT(0.25, 0.125)},
        {"a brick begins where half its joint ends", VELTO_WALL(R"("mortar": 0.5, "offset": 0.5)"),
            R"({"mask": 1, "index": 0})", VELTO_AT(0.25, 0.0625)},
        {"in the joint", VELTO_WALL(R"("mortar": 0.5, "offset": 0.5)"), R"({"result": [0, 0, 1, 1], "mask": 0})",
            VELTO_AT(0.25, 0.0624)},
        {"joints are as wide on both sides", VELTO_WALL(R"("mortar": 0.5, "offset": 0.5)"), R"({"mask": 0})",
            VELTO_AT(0.0624, 0.125)},
        {"and end there", VELTO_WALL(R"("mortar": 0.5, "offset": 0.5)"), R"({"mask": 1})", VELTO_AT(0.0626, 0.125)},
        {"halfway up the bevel", VELTO_WALL(R"("mortar": 0, "bevel": 0.5)"), R"({"height": 0.5})",
            VELTO_AT(0.25, 0.0625)},
        {"every second row is moved", VELTO_WALL(R"("mortar": 0.5, "offset": 0.5)"), R"({"mask": 0, "index": 2})",
            VELTO_AT(0.25, 0.375)},
        {"numbers below zero wrap", VELTO_WALL(R"("mortar": 0.5, "offset": 0)"), R"({"mask": 1, "index": 7})",
            VELTO_AT(-0.25, -0.125)},
        {"a sample that covers half a joint", VELTO_WALL(R"("mortar": 0.5)"), "[0.5, 0, 0.5, 1]",
            R"({"uvw": [0.25, 0.0625, 0], "uvwPlusDeltaV": [0.25, 0.1, 0]})", 1e-12},
        {"a sample that covers the wall sees its mean", VELTO_WALL(R"("mortar": 0.5)"), R"({"mask": 0.375})",
            R"({"uvw": [0.1, 0.1, 0], "uvwPlusDeltaU": [2.1, 0.1, 0], "uvwPlusDeltaV": [0.1, 2.1, 0]})", 1e-12},
        {"no place", VELTO_WALL(R"("mortar": 0.5)"), R"({"result": [0, 0, 0, 0], "index": 0})",
            R"({"uvwValid": false})"},
    });

#define VELTO_COMB(rest) R"({"cell": [1, 0, 0, 1], "joint": [0, 0, 1, 1], "columns": 4, "rows": 4, )" rest "}"

NODE_TABLE(HexagonsTable, "net.velto.toolkit.corenode.generator.hexagons",
    {
        {"the middle of a cell", VELTO_COMB(R"("gap": 0.2, "bevel": 0.25)"),
            R"({"result": [1, 0, 0, 1], "mask": 1, "height": 1, "index": 1, "local": [0.5, 0.5, 0]})",
            VELTO_AT(0.25, 0)},
        {"every second row is moved by half a cell", VELTO_COMB(R"("gap": 0.2, "bevel": 0.25)"),
            R"({"mask": 1, "index": 5, "local": [0.5, 0.5, 0]})", VELTO_AT(0.375, 0.25)},
        {"between two cells", VELTO_COMB(R"("gap": 0.2)"), "[0, 0, 1, 1]", VELTO_AT(0.125, 0)},
        {"the gap ends a tenth of a cell from the border", VELTO_COMB(R"("gap": 0.2)"), R"({"mask": 1})",
            VELTO_AT(0.1501, 0)},
        {"but not before", VELTO_COMB(R"("gap": 0.2)"), R"({"mask": 0})", VELTO_AT(0.1499, 0)},
        {"where three cells meet", VELTO_COMB(R"("gap": 0.01)"), R"({"mask": 0})", VELTO_AT(0.125, 0.08333)},
        {"halfway up the bevel", VELTO_COMB(R"("gap": 0, "bevel": 0.25)"), R"({"height": 0.5})", VELTO_AT(0.15625, 0),
            1e-12},
        {"an odd number of rows is one more", R"({"columns": 4, "rows": 3})", R"({"index": 5})", VELTO_AT(0.375, 0.25)},
        {"the mean", VELTO_COMB(R"("gap": 0.2)"), R"({"mask": 0.64})",
            R"({"uvw": [0.25, 0, 0], "uvwPlusDeltaU": [1.25, 0, 0]})", 1e-12},
    });

#define VELTO_CLOTH(rest)                                                                                              \
    R"({"warpColor": [1, 0, 0, 1], "weftColor": [0, 1, 0, 1], "gapColor": [0, 0, 1, 1], )" rest "}"

// Threads are an eighth of the tile apart and half as wide.
NODE_TABLE(WeaveTable, "net.velto.toolkit.corenode.generator.weave",
    {
        {"the warp on top", VELTO_CLOTH(R"("warps": 8, "wefts": 8, "thickness": 0.5)"),
            R"({"result": [1, 0, 0, 1], "height": 1, "mask": 1, "warp": 1, "index": 0})", VELTO_AT(0.0625, 0.0625)},
        {"the weft on top", VELTO_CLOTH(R"("warps": 8, "wefts": 8, "thickness": 0.5)"),
            R"({"result": [0, 1, 0, 1], "height": 1, "warp": 0, "index": 8})", VELTO_AT(0.1875, 0.0625)},
        {"the gap", VELTO_CLOTH(R"("warps": 8, "wefts": 8, "thickness": 0.5)"),
            R"({"result": [0, 0, 1, 1], "height": 0, "mask": 0})", VELTO_AT(0.125, 0.125)},
        {"between the wefts the warp alone", VELTO_CLOTH(R"("warps": 8, "wefts": 8, "thickness": 0.5)"),
            R"({"result": [1, 0, 0, 1], "height": 0.75})", VELTO_AT(0.1875, 0.125), 1e-12},
        {"twill goes on in diagonals", VELTO_CLOTH(R"("warps": 8, "wefts": 8, "thickness": 0.5, "bond": "twill")"),
            R"({"warp": 1})", VELTO_AT(0.3125, 0.1875)},
        {"satin shows the warp", VELTO_CLOTH(R"("warps": 5, "wefts": 5, "thickness": 1, "bond": "satin")"),
            R"({"result": [0.8, 0.2, 0, 1], "height": 0.5})",
            R"({"uvw": [0.1, 0.1, 0], "uvwPlusDeltaU": [2.1, 0.1, 0], "uvwPlusDeltaV": [0.1, 2.1, 0]})", 1e-12},
        {"whole repeats of the bond", VELTO_CLOTH(R"("warps": 3, "wefts": 5, "thickness": 1, "bond": "basket")"),
            R"({"index": 3})", VELTO_AT(0.9, 0.9)},
    });

#define VELTO_TILES(rest) R"({"shape": [1, 0.5, 0, 1], "background": [0, 0, 0, 1], "columns": 4, "rows": 4, )" rest "}"

NODE_TABLE(TileSamplerTable, "net.velto.toolkit.corenode.generator.tilesampler",
    {
        {"within a copy", VELTO_TILES(R"("scale": [0.5, 0.5], "density": 1)"),
            R"({"result": [1, 0.5, 0, 1], "index": 5})", VELTO_AT(0.375, 0.375)},
        {"beside it", VELTO_TILES(R"("scale": [0.5, 0.5], "density": 1)"), R"({"result": [0, 0, 0, 1], "index": -1})",
            VELTO_AT(0.3, 0.375)},
        {"turned by an eighth its corner reaches there",
            VELTO_TILES(R"("scale": [0.5, 0.5], "density": 1, "rotation": 0.7853981633974483)"), R"({"index": 5})",
            VELTO_AT(0.29, 0.375)},
        {"a moved row", VELTO_TILES(R"("scale": [0.5, 0.5], "density": 1, "offset": 0.5)"), R"({"index": 4})",
            VELTO_AT(0.25, 0.375)},
        {"copies add up", VELTO_TILES(R"("scale": [2, 1], "density": 1, "combine": "add")"), "[2, 1, 0, 1]",
            VELTO_AT(0.3, 0.375)},
        {"none is dense enough", VELTO_TILES(R"("scale": [2, 2], "density": 0)"), R"({"index": -1})",
            VELTO_AT(0.3, 0.375)},
    });

ColorA ColorAt(SampledDocument& pattern, double u, double v, double footprint = 0)
{
    const auto* const color = pattern.At<ColorA>({u, v}, footprint);
    return color ? *color : ColorA{-1, -1, -1, -1};
}

struct TilingPattern
{
    const char* name;
    const char* document;
    bool isFiltered = true; // else that is up to what is repeated
};

class TilingPatternTest : public ::testing::TestWithParam<TilingPattern>
{
};

TEST_P(TilingPatternTest, AgreesAtBothEdges)
{
    SampledDocument pattern(GetParam().document);
    int differences = 0;
    for (int i = 0; i < 2000; ++i)
    {
        // Multiples of 2^-20, to which 1 is added exactly.
        const double u = (i * 7919 % 1048576) * 0x1p-20;
        const double v = (i * 104729 % 1048576) * 0x1p-20;
        const ColorA here = ColorAt(pattern, u, v);
        const ColorA there = ColorAt(pattern, u + 1, v - 2);
        differences += std::abs(here.r - there.r) + std::abs(here.g - there.g) + std::abs(here.b - there.b) > 1e-9;
    }
    EXPECT_EQ(0, differences);
}

// A wide sample sees about the mean of many narrow ones.
TEST_P(TilingPatternTest, IsFilteredToItsMean)
{
    if (!GetParam().isFiltered)
        return;
    SampledDocument pattern(GetParam().document);
    constexpr int kSide = 200;
    double mean = 0;
    for (int i = 0; i < kSide * kSide; ++i)
        mean += ColorAt(pattern, (i % kSide + 0.5) / kSide, (i / kSide + 0.5) / kSide).g / (kSide * kSide);
    const double wide = ColorAt(pattern, 0.31, 0.67, 1).g;
    EXPECT_NEAR(mean, wide, 0.03);
}

INSTANTIATE_TEST_SUITE_P(Patterns, TilingPatternTest,
    ::testing::Values(
        TilingPattern{"bricks", R"({"version": 1, "nodes": {"n": {"type": "bricks", "inputs": {"columns": 3, "rows": 8,
            "rowVariation": 0.7, "brick": [0, 1, 0, 1], "joint": [1, 0, 0, 1]}}}, "outputs": {"n": "n.result"}})"},
        TilingPattern{"hexagons", R"({"version": 1, "nodes": {"n": {"type": "hexagons", "inputs": {
            "cell": [0, 1, 0, 1], "joint": [1, 0, 0, 1]}}}, "outputs": {"n": "n.result"}})"},
        TilingPattern{"weave", R"({"version": 1, "nodes": {"n": {"type": "weave", "inputs": {"bond": "twill",
            "weftColor": [0, 1, 0, 1]}}}, "outputs": {"n": "n.result"}})"},
        TilingPattern{"tilesampler", R"({"version": 1, "nodes": {"s": {"type": "circle"}, "n": {"type": "tilesampler",
            "inputs": {"shape": {"from": "s.result"}, "columns": 3, "rows": 4, "scale": [1.5, 1.2], "jitter": 1,
            "randomRotation": 3, "shade": 0.5, "randomScale": 0.5}}}, "outputs": {"n": "n.result"}})",
            false},
        TilingPattern{"warp", R"({"version": 1, "nodes": {"b": {"type": "bricks"}, "o": {"type": "seamlessnoise"},
            "n": {"type": "warp", "inputs": {"color": {"from": "b.result"}, "offset": {"from": "o.result"},
            "steps": 3}}}, "outputs": {"n": "n.result"}})"}),
    [](const ::testing::TestParamInfo<TilingPattern>& pattern) { return std::string(pattern.param.name); });

// The coordinate itself is the pattern.
TEST(WarpTest, PushesInSteps)
{
    const auto at = [](const char* inputs) {
        SampledDocument pattern(fmt::format(R"({{"version": 1, "nodes": {{"h": {{"type": "coordinate"}},
            "u": {{"type": "composecolora", "inputs": {{"red": {{"from": "h.u"}}, "green": {{"from": "h.v"}}}}}},
            "n": {{"type": "warp", "inputs": {{"color": {{"from": "u.result"}}, {}}}}}}},
            "outputs": {{"n": "n.result"}}}})",
            inputs));
        const ColorA color = ColorAt(pattern, 0.5, 0.25);
        return std::pair(color.r, color.g);
    };
    EXPECT_EQ(std::pair(0.5, 0.25), at(R"("amount": [0.5, 0.5])"));
    EXPECT_EQ(std::pair(0.75, 0.125), at(R"("offset": [1, 0, 0], "center": 0.5, "amount": [0.5, 0.25])"));
    // By the coordinate itself: 0.5 + 0.5 * 0.5, or that in two halves.
    EXPECT_EQ(std::pair(0.75, 0.3125), at(R"("offset": {"from": "u.result"}, "center": 0, "amount": [0.5, 0.25])"));
    EXPECT_EQ(std::pair(0.78125, 0.31640625),
        at(R"("offset": {"from": "u.result"}, "center": 0, "amount": [0.5, 0.25], "steps": 2)"));
}

TEST(NormalFromHeightTest, StandsOnTheSlope)
{
    const auto at = [](const char* inputs, double footprint) {
        SampledDocument pattern(fmt::format(R"({{"version": 1, "nodes": {{"h": {{"type": "coordinate"}},
            "up": {{"type": "math", "inputs": {{"operation": "multiplyadd", "a": {{"from": "h.v"}}, "b": -2,
                "c": {{"from": "h.u"}}}}}},
            "n": {{"type": "normalfromheight", "inputs": {{"height": {{"from": "up.result"}}, {}}}}}}},
            "outputs": {{"n": "n.result"}}}})",
            inputs));
        const auto* const normal = pattern.At<Vector>({0.5, 0.25}, footprint);
        return normal ? *normal : Vector();
    };
    // A plane that rises by 1 to the right and by 2 up the picture faces left and down.
    const double length = std::sqrt(6.0);
    for (const double footprint : {0.0, 0.01})
    {
        const Vector up = at(R"("strength": 1)", footprint);
        EXPECT_NEAR(-1 / length, up.x, 1e-6);
        EXPECT_NEAR(-2 / length, up.y, 1e-6);
        EXPECT_NEAR(1 / length, up.z, 1e-6);
    }
    const Vector down = at(R"("strength": 1, "green": "down", "step": 0.05)", 0.01);
    EXPECT_NEAR(2 / length, down.y, 1e-12);
    const Vector deep = at(R"("strength": -2)", 0.01);
    EXPECT_NEAR(2 / std::sqrt(21.0), deep.x, 1e-12);
    EXPECT_NEAR(1 / std::sqrt(21.0), deep.z, 1e-12);
}

} // namespace velto::test
