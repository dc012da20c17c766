#include "test/support/node_table.h"

namespace velto::test
{

// Colours that tell the share of each: red outside, green inside, half transparent outside.
#define VELTO_COLORS R"("exterior": [1, 0, 0, 0.5], "fill": [0, 1, 0, 1], )"
#define VELTO_AT(u, v) R"({"uvw": [)" #u ", " #v R"(, 9]})"
#define VELTO_INSIDE R"("result": [0, 1, 0, 1], "mask": 1)"
#define VELTO_OUTSIDE R"("result": [1, 0, 0, 0.5], "mask": 0)"

static constexpr double kRounding = 1e-13; // of sines and roots

NODE_TABLE(CircleTable, "net.velto.pattern.corenode.shape.circle",
    {
        {"soft on both sides", "{" VELTO_COLORS R"("scale": 0.8, "innersoftness": 0.4, "outersoftness": 0.3})",
            R"({"distance": 0.790569415042095, "mask": 0.818007671135925,
            "result": [0.18199232886407501, 0.818007671135925, 0, 0.9090038355679625]})",
            VELTO_AT(0.8, 0.6), kRounding},
        {"soft inwards alone", "{" VELTO_COLORS R"("scale": 0.8, "innersoftness": 0.5, "outersoftness": 0})",
            R"({"distance": 0.875, "mask": 0.15625})", VELTO_AT(0.85, 0.5), kRounding},
        {"a point on a hard edge is inside",
            "{" VELTO_COLORS R"("scale": 0.5, "innersoftness": 0, "outersoftness": 0})",
            R"({"distance": 1, )" VELTO_INSIDE "}", VELTO_AT(0.5, 0.75)},
        {"a point behind a hard edge is outside",
            "{" VELTO_COLORS R"("scale": 0.5, "innersoftness": 0, "outersoftness": 0})",
            R"({"distance": 1.0000000000000004, )" VELTO_OUTSIDE "}", R"({"uvw": [0.5, 0.7500000000000001, 0]})"},
        {"the end of the soft band is outside",
            "{" VELTO_COLORS R"("scale": 1, "innersoftness": 0, "outersoftness": 0.5})",
            R"({"distance": 1.5, )" VELTO_OUTSIDE "}", VELTO_AT(1.25, 0.5)},
        {"negative softness makes the edge hard",
            "{" VELTO_COLORS R"("scale": 1, "innersoftness": -0.25, "outersoftness": -0.5})",
            R"({"distance": 1.25, )" VELTO_INSIDE "}", VELTO_AT(1.125, 0.5)},
        {"no scale leaves the centre alone", "{" VELTO_COLORS R"("scale": 0, "innersoftness": 0, "outersoftness": 0})",
            R"({"distance": 0, )" VELTO_INSIDE "}", VELTO_AT(0.5, 0.5)},
        {"a negative scale is next to none", "{" VELTO_COLORS R"("scale": -3, "innersoftness": 0, "outersoftness": 0})",
            R"({"distance": 2, )" VELTO_OUTSIDE "}", R"({"uvw": [0.500001, 0.5, 0]})", 1e-9},
        {"no place", "{" VELTO_COLORS R"("scale": 1})", R"({"result": [0, 0, 0, 0], "mask": 0, "distance": 0})",
            R"({"uvwValid": false, "uvw": [0.7, 0.5, 0]})"},
    });

NODE_TABLE(NgonTable, "net.velto.pattern.corenode.shape.ngon",
    {
        {"soft pentagon", "{" VELTO_COLORS R"("scale": 0.8, "sides": 5, "innersoftness": 0.4, "outersoftness": 0.3})",
            R"({"distance": 0.6430931878130917, "mask": 0.9890970907064215})", VELTO_AT(0.8, 0.6), kRounding},
        {"triangle on its lower left",
            "{" VELTO_COLORS R"("scale": 0.9, "sides": 3, "innersoftness": 0.6, "outersoftness": 0.6})",
            R"({"distance": 0.6222222222222223, "mask": 0.9098206574201087})", VELTO_AT(0.31, 0.22), kRounding},
        {"hexagon on its lower right",
            "{" VELTO_COLORS R"("scale": 0.7, "sides": 6, "innersoftness": 0.3, "outersoftness": 0.9})",
            R"({"distance": 1.3137360603866617, "mask": 0.4828329241821975})", VELTO_AT(0.2, 0.9), kRounding},
        {"a square's side is vertical",
            "{" VELTO_COLORS R"("scale": 0.5, "sides": 4, "innersoftness": 0, "outersoftness": 0})",
            R"({"distance": 0.96, )" VELTO_INSIDE "}", VELTO_AT(0.74, 0.73), kRounding},
        {"the centre", "{" VELTO_COLORS R"("scale": 1, "sides": 5, "innersoftness": 1, "outersoftness": 0})",
            R"({"distance": 0, )" VELTO_INSIDE "}", VELTO_AT(0.5, 0.5)},
        {"no place", "{" VELTO_COLORS R"("scale": 1, "sides": 5})",
            R"({"result": [0, 0, 0, 0], "mask": 0, "distance": 0})", R"({"uvwValid": false, "uvw": [0.7, 0.5, 0]})"},
    });

NODE_TABLE(SpiralTable, "net.velto.pattern.corenode.shape.spiral",
    {
        {"inside an arm", "{" VELTO_COLORS R"("scale": 0.7, "arms": 3, "innersoftness": 0.5, "outersoftness": 0.9})",
            R"({"distance": -0.7775403933347569, )" VELTO_INSIDE "}", VELTO_AT(0.8, 0.6), kRounding},
        {"without scale a fan",
            "{" VELTO_COLORS R"("scale": 0, "arms": 4, "innersoftness": 0.8, "outersoftness": 0.9})",
            R"({"distance": 0.5376000000000006, "mask": 0.11695735126236484})", VELTO_AT(0.2, 0.9), 1e-12},
        {"the centre lies on the edge",
            "{" VELTO_COLORS R"("scale": 3, "arms": 4, "innersoftness": 0, "outersoftness": 0})",
            R"({"distance": 0, )" VELTO_INSIDE "}", VELTO_AT(0.5, 0.5)},
        {"no place", "{" VELTO_COLORS R"("scale": 1, "arms": 5})",
            R"({"result": [0, 0, 0, 0], "mask": 0, "distance": 0})", R"({"uvwValid": false, "uvw": [0.7, 0.5, 0]})"},
    });

NODE_TABLE(StarTable, "net.velto.pattern.corenode.shape.star",
    {
        {"near a spike's axis",
            "{" VELTO_COLORS R"("scale": 0.3, "spikes": 5, "innersoftness": 0.9, "outersoftness": 0.9, "cutout": 0.3})",
            R"({"distance": 1.238980901469166, "mask": 0.3055298545644405})", VELTO_AT(0.55, 0.62), 1e-12},
        {"without cut-out",
            "{" VELTO_COLORS R"("scale": 0.4, "spikes": 7, "innersoftness": 0.6, "outersoftness": 0.9, "cutout": 0})",
            R"({"distance": 1.5783266522342871, "mask": 0.11824069676036242})", VELTO_AT(0.4, 0.3), 1e-12},
        {"a cut-out above one",
            "{" VELTO_COLORS R"("scale": 0.2, "spikes": 4, "innersoftness": 0.7, "outersoftness": 0.7, "cutout": 1.5})",
            R"({"distance": 0.19678101101761647, "mask": 1.0})", VELTO_AT(0.62, 0.45), 1e-12},
        {"no place", "{" VELTO_COLORS R"("scale": 1, "spikes": 5})",
            R"({"result": [0, 0, 0, 0], "mask": 0, "distance": 0})", R"({"uvwValid": false, "uvw": [0.7, 0.5, 0]})"},
    });

NODE_TABLE(LineTable, "net.velto.pattern.corenode.shape.line",
    {
        {"beside the segment",
            "{" VELTO_COLORS R"("source": [0.2, 0.5], "destination": [0.8, 0.5], "softness": 0.3, "width": 0.1})",
            R"({"distance": 0.104, "mask": 0.704512})", VELTO_AT(0.5, 0.52), 1e-12},
        {"behind its end",
            "{" VELTO_COLORS R"("source": [0.2, 0.4], "destination": [0.8, 0.5], "softness": 0.9, "width": 0.4})",
            R"({"distance": 0.19070179731445688, )" VELTO_INSIDE "}", VELTO_AT(0.9, 0.55), 1e-12},
        {"before its start",
            "{" VELTO_COLORS R"("source": [0.2, 0.4], "destination": [0.8, 0.5], "softness": 0.5, "width": 0.25})",
            R"({"distance": 0.5979613280324878, )" VELTO_OUTSIDE "}", VELTO_AT(0.1, 0.3), 1e-12},
        {"no width, off the line",
            "{" VELTO_COLORS R"("source": [0, 0.5], "destination": [1, 0.5], "softness": 4, "width": 0})",
            R"({"distance": 1, "mask": 0.5})", VELTO_AT(0.5, 0.75)},
        {"no width, on the line",
            "{" VELTO_COLORS R"("source": [0, 0.5], "destination": [1, 0.5], "softness": 4, "width": 0})",
            R"({"distance": 0, )" VELTO_INSIDE "}", VELTO_AT(0.25, 0.5)},
        {"no place", "{" VELTO_COLORS R"("source": [0, 0], "destination": [1, 1], "width": 1})",
            R"({"result": [0, 0, 0, 0], "mask": 0, "distance": 0})", R"({"uvwValid": false, "uvw": [0.7, 0.5, 0]})"},
    });

// Polygon and star with too few corners leave what the port held.
TEST(ShapesTest, TooFewCornersWriteNothing)
{
    for (const auto& [type, corners] : {std::pair("ngon", "sides"), std::pair("star", "spikes")})
    {
        const std::string node = type;
        const host::Json results =
            EvalJson(R"({"version": 1, "nodes": {"shape": {"type": "net.velto.pattern.corenode.shape.)" + node +
                         R"(", "inputs": {")" + corners + R"(": 3, "scale": 1, "fill": [0.1, 0.2, 0.3, 0.4],
                "innersoftness": 0, "outersoftness": 0}}},
                "outputs": {"result": "shape.result", "mask": "shape.mask", "distance": "shape.distance"}})",
                R"([{"uvw": [0.5, 0.5, 0], "set": {"shape.)" + std::string(corners) +
                    R"(": 2}}, {"uvw": [0.5, 0.5, 0], "set": {"shape.)" + corners + R"(": 3}}])");
        EXPECT_EQ("[0, 0, 0, 1]", Output(results, "result", 0)) << node;
        EXPECT_EQ("0", Output(results, "mask", 0)) << node;
        EXPECT_EQ("[0.1, 0.2, 0.3, 0.4]", Output(results, "result", 1)) << node;
        EXPECT_EQ("1", Output(results, "mask", 1)) << node;
    }
}

} // namespace velto::test
