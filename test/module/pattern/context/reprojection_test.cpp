#include "test/support/node_table.h"

#include <fmt/format.h>

#include <cmath>

namespace velto::test
{

static constexpr const char* kNode = "net.velto.render.corenode.gradientplacement";

// uvw (0.8, 0.9): a = 0.3, b = 0.4, at a distance of 0.5; the neighbours are given where they matter.
#define AT R"({"uvw": [0.8, 0.9, 7], "uvwValid": false, "tileModeU": 3})"
#define UVW(x, y) R"({"result": {"uvw": [)" #x ", " #y R"(, 0], "tileModeU": 0, "uvwValid": true}})"

NODE_TABLE(ReprojectionTable, kNode,
    {
        {"no shape passes the offsets on", R"({"mode": "none"})", UVW(0.3, 0.4), AT, 1e-15},
        {"angular runs along v", R"({"mode": "angular"})", UVW(0.8, 0.9), AT, 1e-15},
        {"radial is a turn and a distance", R"({"mode": "radial"})", UVW(0.10241638234956674, 0.5), AT, 1e-15},
        {"radial goes all the way round", R"({"mode": "radial"})", UVW(0.8975836176504333, 0.5),
            R"({"uvw": [0.2, 0.9, 0]})", 1e-15},
        {"circular", R"({"mode": "circular"})", UVW(1, 0), AT, 1e-15},
        {"box", R"({"mode": "box"})", UVW(0.8, 0), AT, 1e-15},
        {"star is reversed", R"({"mode": "star"})", UVW(0.5527864045000421, 0), AT, 1e-15},
        {"star reversed runs outwards", R"({"mode": "star", "reverse": true})", UVW(0.4472135954999579, 0), AT, 1e-15},
        {"no corners make a circle", R"({"mode": "n_angle", "corners": 0})", UVW(1, 0.10241638234956674), AT, 1e-15},
        {"rotation", R"({"mode": "none", "rotation": 1.5707963267948966})", UVW(0.4, -0.3), AT, 1e-15},
        {"tile", R"({"mode": "box", "tile": true, "repetitions": 3})", UVW(0.4, 0), AT, 1e-14},
        {"mirror folds back from two", R"({"mode": "box", "mirror": true})", UVW(0.4, 0), AT, 1e-14},
        {"reverse", R"({"mode": "box", "reverse": true})", UVW(0.2, 0), AT, 1e-15},
        {"tile, then mirror, then reverse",
            R"({"mode": "box", "tile": true, "repetitions": 3, "mirror": true, "reverse": true})", UVW(0.2, 0), AT,
            1e-14},
    });

#undef UVW

NODE_TABLE(ReprojectionNeighbours, kNode,
    {
        {"tile modes", R"({"mode": "box", "tile": true, "repetitions": 1})", R"({"result": {"tileModeV": 2}})"},
        {"mirror goes before tile", R"({"mode": "box", "tile": true, "mirror": true})",
            R"({"result": {"tileModeV": 3}})"},
        {"neither", R"({"mode": "box"})", R"({"result": {"tileModeV": 0}})", R"({"tileModeV": 2})"},
        {"a neighbour beyond a pass keeps its distance", R"({"mode": "box", "tile": true, "repetitions": 4})",
            R"({"result": {"uvw": [0.6, 0, 0], "uvwPlusDeltaU": [1.4, 0, 0], "uvwPlusDeltaV": [-0.2, 0, 0]}})",
            R"({"uvw": [0.7, 0.5, 0], "uvwPlusDeltaU": [0.8, 0.5, 0], "uvwPlusDeltaV": [0.6, 0.5, 0]})", 1e-14},
        {"the seam of a sweep", R"({"mode": "radial", "reverse": true})",
            R"({"result": {"uvw": [0.9841372412847232, 0.10049875621120892, 0],
            "uvwPlusDeltaU": [0.9841372412847232, 0.10049875621120892, 0],
            "uvwPlusDeltaV": [0.9920488743719118, 0.2002498439450079, 0]}})",
            R"({"uvw": [0.51, 0.6, 0], "uvwPlusDeltaU": [0.49, 0.6, 0], "uvwPlusDeltaV": [0.51, 0.7, 0]})", 1e-14},
        {"neighbours that the new coordinate equals stay", R"({"mode": "circular"})",
            R"({"result": {"uvw": [0.8, 0, 0], "uvwPlusDeltaU": [0.8, 0, 0], "uvwPlusDeltaV": [0.8, 0, 0]}})",
            R"({"uvw": [0.9, 0.5, 0], "uvwPlusDeltaU": [0.8, 0, 0], "uvwPlusDeltaV": [0.8, 0, 0]})"},
    });

// A polygon of N corners: s is 1 where the line from corner to corner of a unit circle lies.
TEST(Reprojection, PolygonsHaveStraightSides)
{
    for (const int corners : {3, 4, 5, 8})
    {
        for (int step = 0; step < 40; ++step)
        {
            const double turn = (step + 0.25) / 40.0;
            const double angle = turn * 6.283185307179586;
            const double half = 3.141592653589793 / corners;
            const double fromMiddle = std::remainder(angle - half, 2.0 * half);
            const double expected = 2.0 * 0.25 * std::cos(fromMiddle) / std::cos(half);
            CheckRow(kNode, {fmt::format("{} corners, step {}", corners, step),
                                fmt::format(R"({{"mode": "n_angle", "corners": {}}})", corners),
                                fmt::format(R"({{"result": {{"uvw": [{}, {}, 0]}}}})", expected, turn),
                                fmt::format(R"({{"uvw": [{}, {}, 0]}})", 0.5 + 0.25 * std::sin(angle),
                                    0.5 + 0.25 * std::cos(angle)),
                                1e-13});
        }
    }
}

} // namespace velto::test
