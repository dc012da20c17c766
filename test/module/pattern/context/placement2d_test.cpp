#include "test/support/node_table.h"

namespace velto::test
{

// One tile to a unit, but for what a row says first.
#define PLACED(more) "{" more R"("localRotation": 0})"
#define UNIT R"("localLength": [1, 1], "localRepetitions": [1, 1], )"
#define MODES(u, v) R"("localModeU": ")" u R"(", "localModeV": ")" v R"(", )"
#define DECAL R"("localDecalU": true, "localDecalV": true, )"

NODE_TABLE(Placement2dTable, "net.velto.render.corenode.placement2d",
    {
        {"neutral, and an unknown mode extends", PLACED(UNIT MODES("extend", "sideways")),
            R"({"result": {"uvw": [1.5, -2, 0], "uvwPlusDeltaU": [1.75, -2, 0], "uvwPlusDeltaV": [1.5, -1, 0],
                "uvwValid": true, "tileModeU": 0, "tileModeV": 0}})",
            R"({"uvw": [1.5, -2, 3], "uvwPlusDeltaU": [1.75, -2, 3], "uvwPlusDeltaV": [1.5, -1, 4], "uvwValid": false})"},
        {"about the pivot, behind the offset",
            R"({"localLength": [2, 4], "localOffset": [1, 2], "localPivot": [0.5, 0.25],
                "localRotation": 1.5707963267948966, )" MODES("extend", "extend") R"("localRepetitions": [3, 5]})",
            // (0.5, 3.75) from pivot and offset is turned back to (3.75, -0.5), shrunk to (1.875, -0.125).
            R"({"result": {"uvw": [7.125, 0.625, 0]}})", R"({"uvw": [2, 6, 0]})", 1e-14},
        {"odd tiles run backwards, the neighbours with the centre", PLACED(UNIT MODES("mirror", "mirror")),
            R"({"result": {"uvw": [0.75, 0.25, 0], "uvwPlusDeltaU": [-0.25, 0.25, 0], "uvwPlusDeltaV": [0.75, -0.5, 0],
                "tileModeU": 3, "tileModeV": 3}})",
            R"({"uvw": [1.25, -0.25, 0], "uvwPlusDeltaU": [2.25, -0.25, 0], "uvwPlusDeltaV": [1.25, 0.5, 0]})"},
        {"a footprint does not jump at a border", PLACED(UNIT MODES("repeat", "repeat")),
            R"({"result": {"uvw": [0.875, 0.125, 0], "uvwPlusDeltaU": [1.125, 0.125, 0],
                "uvwPlusDeltaV": [0.875, -0.125, 0], "tileModeU": 2}})",
            R"({"uvw": [0.875, 1.125, 0], "uvwPlusDeltaU": [1.125, 1.125, 0], "uvwPlusDeltaV": [0.875, 0.875, 0]})"},
        {"clamp, each coordinate by itself, backwards down to the repetitions",
            PLACED(R"("localLength": [1, 1], "localRepetitions": [2, -2], )" MODES("clamp", "clamp")),
            R"({"result": {"uvw": [2, -2, 0], "uvwPlusDeltaU": [1, -2, 0], "uvwPlusDeltaV": [2, 0, 0]}})",
            R"({"uvw": [3, 3, 0], "uvwPlusDeltaU": [0.5, 3, 0], "uvwPlusDeltaV": [3, -1, 0]})"},
        {"both ends of a decal are inside; one of one tile is clamped", PLACED(UNIT DECAL MODES("repeat", "mirror")),
            R"({"result": {"uvw": [0, 0, 0], "uvwPlusDeltaU": [0.5, 0, 0], "uvwValid": true, "tileModeU": 1,
                "tileModeV": 1}})",
            R"({"uvw": [1, 0, 0], "uvwPlusDeltaU": [1.5, 0, 0]})"},
        {"outside of a decal there is no footprint",
            PLACED(R"("localLength": [1, 1], "localRepetitions": [2, 2], )" DECAL MODES("repeat", "mirror")),
            R"({"result": {"uvw": [0.25, 0.5, 0], "uvwPlusDeltaU": [0.25, 0.5, 0], "uvwPlusDeltaV": [0.25, 0.5, 0],
                "uvwValid": false, "tileModeU": 2, "tileModeV": 3}})",
            R"({"uvw": [1.125, 0.25, 0], "uvwPlusDeltaU": [0.5, 0.25, 0], "uvwPlusDeltaV": [1.125, 0.5, 0]})"},
        {"without length only the repetitions apply",
            R"({"localLength": [0, 2], "localOffset": [5, 5], "localPivot": [3, 3], )" MODES(
                "extend", "extend") R"("localRepetitions": [2, 3]})",
            R"({"result": {"uvw": [1, 0.75, 0]}})", R"({"uvw": [0.5, 0.25, 0]})"},
        {"no repetition is on every area", PLACED(R"("localLength": [1, 1], "localRepetitions": [0, 1], )" DECAL),
            R"({"result": {"uvw": [0, 0.5, 0], "uvwValid": true}})", R"({"uvw": [7, 0.5, 0]})"},
        // The index of a tile ends at 64 bits, where the last one is odd and the first even; the centre has no index.
        {"beyond the last tile", PLACED(UNIT MODES("mirror", "repeat")),
            R"({"result": {"uvw": [1, 0, 0], "uvwPlusDeltaU": [9223372036854775808, -27670116110564327424, 0],
                "uvwPlusDeltaV": [-9223372036854775808, 9223372036854775808, 0]}})",
            R"({"uvw": [18446744073709551616, -36893488147419103232, 0], "uvwPlusDeltaU": [0, -36893488147419103232, 0],
                "uvwPlusDeltaV": [18446744073709551616, 0, 0]})"},
    });

} // namespace velto::test
