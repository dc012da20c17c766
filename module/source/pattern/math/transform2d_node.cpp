// Moves, turns and scales a point about a pivot.
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

static Vector2d Transform2d(In<"point", Vector2d> point, In<"translate", Vector2d> translate,
    In<"rotate", Float> rotate, In<"scale", Vector2d> scale, In<"pivot", Vector2d> pivot)
{
    // The translation is taken off: it moves the picture that is looked up at the point.
    const Float dx = point->x - pivot->x - translate->x;
    const Float dy = point->y - pivot->y - translate->y;
    const Float s = std::sin(*rotate);
    const Float c = std::cos(*rotate);
    return {(dx * c - dy * s) * scale->x + pivot->x, (dx * s + dy * c) * scale->y + pivot->y};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.transform2d", Transform2d);

} // namespace velto::pattern
