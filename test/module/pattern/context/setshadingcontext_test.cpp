#include "test/support/node_table.h"

namespace velto::test
{

static constexpr const char* kFull =
    R"({"uvw": [1, 2, 3], "uvwPlusDeltaU": [4, 5, 6], "uvwPlusDeltaV": [7, 8, 9], "uvwValid": false, "time": 5,
        "rayOrigin": [1, 1, 1], "rayDirection": [0, 0, 1], "shadingNormal": [0, 1, 0]})";

NODE_TABLE(SetShadingContextTable, "net.velto.render.corenode.setshadingcontext",
    {
        {"nothing connected", "{}",
            R"({"result": {"uvw": [1, 2, 3], "uvwPlusDeltaU": [4, 5, 6], "uvwPlusDeltaV": [7, 8, 9],
        "uvwValid": false, "time": 5, "rayOrigin": [1, 1, 1], "rayDirection": [0, 0, 1], "shadingNormal": [0, 1, 0]}})",
            kFull},
        {"uvw has no footprint and leaves validity", R"({"uvw": [9, 9, 9]})",
            R"({"result": {"uvw": [9, 9, 9], "uvwPlusDeltaU": [9, 9, 9], "uvwPlusDeltaV": [9, 9, 9], "uvwValid": false}})",
            kFull},
        {"a delta works on what comes", R"({"uvwdelta": [10, 20, 30]})",
            R"({"result": {"uvw": [1, 2, 3], "uvwPlusDeltaU": [11, 2, 3], "uvwPlusDeltaV": [1, 22, 33], "uvwValid": true}})",
            kFull},
        {"a delta works on the new coordinate", R"({"uvwdelta": [10, 20, 30], "uvw": [0, 0, 1]})",
            R"({"result": {"uvw": [0, 0, 1], "uvwPlusDeltaU": [10, 0, 1], "uvwPlusDeltaV": [0, 20, 31], "uvwValid": true}})",
            kFull},
        {"rays", R"({"rayorigin": [1, 2, 3], "raydirection": [4, 5, 6]})",
            R"({"result": {"rayOrigin": [1, 2, 3], "rayOriginPlusDeltaU": [1, 2, 3], "rayOriginPlusDeltaV": [1, 2, 3],
            "rayDirection": [4, 5, 6], "rayDirectionPlusDeltaU": [4, 5, 6], "rayDirectionPlusDeltaV": [4, 5, 6]}})",
            kFull},
        {"time and normal", R"({"time": 1.5, "shadingnormal": [0, 3, 4]})",
            R"({"result": {"time": 1.5, "shadingNormal": [0, 0.6, 0.8]}})", kFull, 1e-15},
        {"a normal without length", R"({"shadingnormal": [0, 0, 0]})", R"({"result": {"shadingNormal": [0, 0, 0]}})",
            kFull},
    });

static constexpr const char* kPoints =
    R"({"uvw": [0, 0, 0], "uvwPlusDeltaU": [1, 0, 0], "uvwPlusDeltaV": [0, 1, 0], "uvwValid": false,
        "samplePosition": [5, 5, 5], "samplePositionPlusDeltaU": [6, 5, 5], "samplePositionPlusDeltaV": [5, 6, 5]})";

NODE_TABLE(DistortTable, "net.velto.pattern.corenode.effect.distorter",
    {
        {"each channel pushes along its axis", R"({"strength": 2, "center": 0.25, "color": [1.25, 0.25, -0.25]})",
            R"({"result": {"uvw": [2, 0, -1], "uvwPlusDeltaU": [3, 0, -1], "uvwPlusDeltaV": [2, 1, -1], "uvwValid": false,
            "samplePosition": [7, 5, 4], "samplePositionPlusDeltaU": [8, 5, 4], "samplePositionPlusDeltaV": [7, 6, 4]}})",
            kPoints},
        {"the centre pushes nowhere", R"({"strength": 9, "center": 0.5, "color": [0.5, 0.5, 0.5]})",
            R"({"result": {"uvw": [0, 0, 0], "samplePosition": [5, 5, 5]}})", kPoints},
    });

} // namespace velto::test
