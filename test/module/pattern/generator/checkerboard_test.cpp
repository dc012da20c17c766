#include "test/support/node_table.h"

namespace velto::test
{

static constexpr const char* kNode = "net.velto.pattern.corenode.generator.checkerboard";

// Red is the share of the second colour.
#define BOARD R"({"color1": [0, 0, 0, 1], "color2": [1, 0, 0, 1]})"
#define HALF_BOARD R"({"color1": [0, 0, 0, 1]})"
#define SHARE(share) R"({"result": [)" #share ", 0, 0, 1]}"
#define LOST R"({"error": "net.velto.error.nullptr"})"
// A point, and a footprint of the sides w and h at (u, v), in a tile mode along u.
#define POINT(u, v) R"({"uvw": [)" #u ", " #v ", 0]}"
#define BOX(u, v, toU, toV, mode)                                                                                      \
    R"({"uvw": [)" #u ", " #v R"(, 0], "uvwPlusDeltaU": [)" #toU ", " #v R"(, 0], "uvwPlusDeltaV": [)" #u ", " #toV    \
    R"(, 0], "tileModeU": )" #mode "}"

static constexpr double kRounding = 1e-13;

NODE_TABLE(CheckerboardTable, kNode,
    {
        {"the first cell", BOARD, SHARE(0), POINT(0.25, 0.25)},
        {"along u", BOARD, SHARE(1), POINT(0.75, 0.25)},
        {"along v", BOARD, SHARE(1), POINT(0.25, 0.75)},
        {"along both", BOARD, SHARE(0), POINT(0.75, 0.75)},
        {"before the tile", BOARD, SHARE(1), POINT(-0.25, 0.25)},
        {"a point on the line belongs to the first half", BOARD, SHARE(0), POINT(0.5, 0.25)},
        {"a footprint on the line to the second", BOARD, SHARE(1), BOX(0.5, 0.25, 0.5, 0.26, 0)},
        {"clamped beyond the end", BOARD, SHARE(1), R"({"uvw": [1.5, 0.25, 0], "tileModeU": 1})"},
        {"clamped before the beginning", BOARD, SHARE(0), R"({"uvw": [-3, 0.25, 0], "tileModeU": 1})"},
        {"a quarter of the box beyond the line", BOARD, SHARE(0.25), BOX(0.45, 0.3, 0.55, 0.3, 0), kRounding},
        {"wherever along v", BOARD, SHARE(0.25), BOX(0.45, 0.01, 0.55, 0.01, 0), kRounding},
        {"a quarter of it along v", BOARD, SHARE(0.25), BOX(0.3, 0.45, 0.3, 0.55, 0), kRounding},
        {"the corner beyond both lines is the cell's own", BOARD, SHARE(0.375), BOX(0.45, 0.45, 0.55, 0.55, 0),
            kRounding},
        {"a whole period is half and half", BOARD, SHARE(0.5), BOX(0.25, 0.25, 0.75, 0.75, 0), kRounding},
        {"and so is more", BOARD, SHARE(0.5), BOX(0.25, 0.25, 50, -50, 0), kRounding},
        {"the next tile shows", BOARD, SHARE(0.4), BOX(0.02, 0.25, 0.12, 0.25, 2), kRounding},
        {"but not beyond a mirror", BOARD, SHARE(0), BOX(0.02, 0.25, 0.12, 0.25, 3)},
        {"the next tile shows at the end", BOARD, SHARE(0.6), BOX(0.98, 0.25, 0.88, 0.25, 0), kRounding},
        {"but not beyond a mirror at the end", BOARD, SHARE(1), BOX(0.98, 0.25, 0.88, 0.25, 3)},
        {"no place", BOARD, "[0, 0, 0, 0]", R"({"uvw": [0.75, 0.25, 0], "uvwValid": false})"},
        {"a colour that is not needed may be missing", HALF_BOARD, SHARE(0), POINT(0.25, 0.25)},
        {"one that is needed may not", HALF_BOARD, LOST, POINT(0.75, 0.25)},
        {"nor one that fills the box", HALF_BOARD, LOST, BOX(0.75, 0.25, 0.76, 0.26, 0)},
        {"nor one that takes part", HALF_BOARD, LOST, BOX(0.45, 0.3, 0.55, 0.3, 0)},
    });

} // namespace velto::test
