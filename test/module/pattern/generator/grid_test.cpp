#include "test/support/node_table.h"

namespace velto::test
{

// With line 0 and fill 1 the red channel is the mask.
#define VELTO_GRID(rest) R"({"line": [0, 1, 0, 0.5], "fill": [1, 0, 0, 1], )" rest "}"
#define VELTO_AT(u, v, w) R"({"uvw": [)" #u ", " #v ", " #w "]}"

NODE_TABLE(GridTable, "net.velto.pattern.corenode.generator.grid",
    {
        {"a soft edge mixes all channels",
            VELTO_GRID(R"("thickness": [0.5, 0.1, 0.1], "softness": 0.25, "frequency": [8, 8, 8])"),
            R"({"result": [0.1912960000000003, 0.8087039999999997, 0, 0.5956480000000002], "index": 2})",
            VELTO_AT(0.02, 0.3, 0), 1e-14},
        {"between the lines", VELTO_GRID(R"("thickness": [0.2, 0.2, 0.2], "softness": 0, "frequency": [2, 3, 0])"),
            R"({"result": [1, 0, 0, 1], "index": 1})", VELTO_AT(0.25, 0.55, 0)},
        {"cells below zero", VELTO_GRID(R"("thickness": [0.1, 0.1, 0], "softness": 0.05, "frequency": [10, 7, 1])"),
            R"({"result": [0, 1, 0, 0.5], "index": -17})", VELTO_AT(-0.3, 0.7, 0)},
        {"the third axis has the other phase",
            VELTO_GRID(R"("thickness": [0.3, 0.3, 0.9], "softness": 0.5, "frequency": [4, 4, 1])"),
            R"({"result": [0.352, 0.648, 0, 0.676], "index": 1})", VELTO_AT(0.06, 0.31, 0.2), 1e-14},
        {"a flat coordinate has no line on the third axis",
            VELTO_GRID(R"("thickness": [0, 0, 0.999], "softness": 0, "frequency": [2, 2, 5])"), "[1, 0, 0, 1]",
            VELTO_AT(0.25, 0.25, 0)},
        {"unless it is as thick as the cell",
            VELTO_GRID(R"("thickness": [0, 0, 1], "softness": 0, "frequency": [2, 2, 5])"), "[0, 1, 0, 0.5]",
            VELTO_AT(0.25, 0.25, 0)},
        {"a hard edge belongs to the line",
            VELTO_GRID(R"("thickness": [0.5, 0, 0], "softness": 0, "frequency": [2, 2, 0])"), "[0, 1, 0, 0.5]",
            VELTO_AT(0.125, 0.25, 0)},
        {"a soft edge ends at the thickness",
            VELTO_GRID(R"("thickness": [0.5, 0, 0], "softness": 0.25, "frequency": [2, 2, 0])"), "[1, 0, 0, 1]",
            VELTO_AT(0.125, 0.25, 0)},
        {"softness above the thickness reaches the middle of the line",
            VELTO_GRID(R"("thickness": [0.2, 0.2, 0.2], "softness": 0.6, "frequency": [4, 4, 4])"),
            "[0.7407407407407407, 0.25925925925925924, 0, 0.8703703703703703]", VELTO_AT(0, 0.1, 0), 1e-14},
        {"no frequency is all line", VELTO_GRID(R"("thickness": [0, 0, 0], "softness": 0, "frequency": [0, 2, 2])"),
            R"({"result": [0, 1, 0, 0.5], "index": 0})", VELTO_AT(0.7, 0.25, 0)},
        {"no place", VELTO_GRID(R"("thickness": [0.1, 0.1, 0.1], "softness": 0, "frequency": [4, 4, 4])"),
            R"({"result": [0, 0, 0, 0], "index": 0})", R"({"uvwValid": false, "uvw": [0.6, 0.6, 0]})"},
    });

} // namespace velto::test
