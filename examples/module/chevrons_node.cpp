// Bands of two colours in a zigzag.
#include "velto/node.h"

#include <cmath>

namespace velto::example
{

static ColorA Chevrons(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"color1", ColorA> color1, In<"color2", ColorA> color2, In<"columns", Float> columns, In<"rows", Float> rows,
    In<"height", Float> height)
{
    if (!local->uvwValid)
        return {};
    const Float x = local->uvw.x * columns;
    const Float fold = std::abs(x - std::floor(x) - 0.5) * 2.0; // 1 at the sides of a column, 0 in its middle
    const Float y = local->uvw.y * rows + fold * height;
    return y - std::floor(y) < 0.5 ? *color1 : *color2;
}

VELTO_CORE_NODE("net.example.corenode.chevrons", Chevrons);

} // namespace velto::example
