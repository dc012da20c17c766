#include "test/support/node_table.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

namespace velto::test
{

using host::Json;

static constexpr const char* kNode = "net.velto.render.corenode.placement3d";

#define PLACEMENT(more) R"({"enableSpaceTransformation": true, "spaceScale": [1, 1, 1])" more "}"
static constexpr const char kRotated[] =
    R"({{"enableSpaceTransformation": true, "spaceScale": [1, 1, 1], "spaceRotation": [0.4, -1.1, 2.3],
        "spaceRotationOrder": "{}", "pivot": [0, 0, 0]}})";
#define AT_123                                                                                                         \
    R"({"uvw": [1, 2, 3], "uvwPlusDeltaU": [1.5, 2, 3], "uvwPlusDeltaV": [1, 2.5, 4], "uvwValid": false, "tileModeU": 2})"

NODE_TABLE(Placement3dTable, kNode,
    {
        {"neutral", PLACEMENT(""), R"({"result": {"uvw": [1, 2, 3], "uvwPlusDeltaU": [1.5, 2, 3],
        "uvwPlusDeltaV": [1, 2.5, 4], "uvwValid": false, "tileModeU": 2}})",
            AT_123},
        {"off", R"({"enableSpaceTransformation": false, "spacePosition": [5, 5, 5]})",
            R"({"result": {"uvw": [1, 2, 3]}})", AT_123},
        {"a pattern at t is looked up at minus t", PLACEMENT(R"(, "spacePosition": [1, 0, -2])"),
            R"({"result": {"uvw": [0, 2, 5], "uvwPlusDeltaU": [0.5, 2, 5], "uvwPlusDeltaV": [0, 2.5, 6]}})", AT_123},
        {"scale about the pivot",
            R"({"enableSpaceTransformation": true, "spaceScale": [2, 4, 0.5], "pivot": [1, 1, 1]})",
            R"({"result": {"uvw": [1, 1.25, 5], "uvwPlusDeltaU": [1.25, 1.25, 5], "uvwPlusDeltaV": [1, 1.375, 7]}})",
            AT_123},
        {"the pivot stays", PLACEMENT(R"(, "spaceRotation": [0.3, 1.2, -2], "pivot": [1, 2, 3])"),
            R"({"result": {"uvw": [1, 2, 3]}})", AT_123, 1e-15},
        {"no extent along an axis places nothing",
            R"({"enableSpaceTransformation": true, "spaceScale": [1, 0, 1], "spacePosition": [9, 9, 9]})",
            R"({"result": {"uvw": [1, 2, 3]}})", AT_123},
    });

using Matrix = std::array<std::array<double, 3>, 3>; // rows

static Matrix Product(const Matrix& a, const Matrix& b)
{
    Matrix product{};
    for (int i = 0; i < 3; ++i)
    {
        for (int j = 0; j < 3; ++j)
        {
            for (int k = 0; k < 3; ++k)
                product[i][j] += a[i][k] * b[k][j];
        }
    }
    return product;
}

// The left-handed rotation about an axis, as rows.
static Matrix About(char axis, double angle)
{
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    switch (axis)
    {
    case 'x':
        return {{{1, 0, 0}, {0, c, s}, {0, -s, c}}};
    case 'y':
        return {{{c, 0, -s}, {0, 1, 0}, {s, 0, c}}};
    default:
        return {{{c, s, 0}, {-s, c, 0}, {0, 0, 1}}};
    }
}

TEST(Placement3d, RotationOrders)
{
    const double angles[] = {0.4, -1.1, 2.3};
    const std::array<double, 3> point{0.7, -0.2, 1.9};
    for (const std::string order : {"yxz", "xyz", "zxy", "xzy", "yzx", "zyx"})
    {
        for (const bool isLocal : {true, false})
        {
            std::string axes = order;
            if (!isLocal)
                std::swap(axes[0], axes[2]);
            Matrix rotation{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
            for (const char axis : axes)
                rotation = Product(rotation, About(axis, angles[axis - 'x']));
            // A rotation is undone by its transpose.
            std::array<double, 3> expected{};
            for (int i = 0; i < 3; ++i)
            {
                for (int k = 0; k < 3; ++k)
                    expected[i] += rotation[k][i] * point[k];
            }
            CheckRow(kNode,
                {order, fmt::format(kRotated, order + (isLocal ? "local" : "global")),
                    fmt::format(R"({{"result": {{"uvw": [{}, {}, {}]}}}})", expected[0], expected[1], expected[2]),
                    R"({"uvw": [0.7, -0.2, 1.9]})", 1e-14});
        }
    }
}

TEST(Placement3d, UnknownOrderIsYxzLocal)
{
    const auto at = [](const char* order) {
        return Output(EvalJson(fmt::format(R"({{"version": 1, "nodes": {{"node": {{"type": "{}", "inputs": {}}}}},
                          "outputs": {{"result": "node.result"}}}})",
                                   kNode, fmt::format(kRotated, order)),
                          R"([{"uvw": [0.7, -0.2, 1.9]}])"),
            "result");
    };
    EXPECT_EQ(at("yxzlocal"), at("sideways"));
    EXPECT_NE(at("yxzlocal"), at("xyzlocal"));
}

// Each input that changes makes the record anew, and none that does not.
TEST(Placement3d, RebuildsWhenAnInputChanges)
{
    const Json results = EvalJson(R"({"version": 1, "nodes": {"node": {"type": "net.velto.render.corenode.placement3d",
        "inputs": {"enableSpaceTransformation": true, "spacePosition": [0, 0, 0], "spaceScale": [1, 1, 1],
            "spaceRotation": [0, 0, 0], "spaceRotationOrder": "yxzlocal", "pivot": [0, 0, 0]}}},
        "outputs": {"uvw": "node.result"}})",
        R"([{"uvw": [1, 1, 1]},
            {"uvw": [1, 1, 1], "set": {"node.spacePosition": [1, 0, 0]}},
            {"uvw": [1, 1, 1], "set": {"node.spaceScale": [1, 2, 1]}},
            {"uvw": [1, 1, 1], "set": {"node.pivot": [0, 1, 0]}},
            {"uvw": [1, 1, 1], "set": {"node.spaceRotation": [1.5707963267948966, 0, 1.5707963267948966]}},
            {"uvw": [1, 1, 1], "set": {"node.spaceRotationOrder": "zxylocal"}}])");
    const char* const expected[] = {"[1, 1, 1]", "[0, 1, 1]", "[0, 0.5, 1]", "[0, 1, 1]"};
    for (std::size_t i = 0; i < std::size(expected); ++i)
    {
        const Json uvw = Parse(Output(results, "uvw", i));
        EXPECT_TRUE(AreEqual(Parse(expected[i]), *uvw.Find("uvw"), 1e-15)) << i;
    }
    EXPECT_NE(Output(results, "uvw", 3), Output(results, "uvw", 4));
    EXPECT_NE(Output(results, "uvw", 4), Output(results, "uvw", 5));
}

} // namespace velto::test
