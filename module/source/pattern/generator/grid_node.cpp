// Lines with a soft edge between numbered cells, on all three axes.
#include "truncate.h"
#include "velto/floor.h"
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

// 0 on a line, 1 off it. `position` is in cells.
static Float LineMask(Float position, Float thickness, Float softness)
{
    const Float fraction = position - Floor(position);
    const Float d = std::abs(2.0 * fraction - 1.0);
    const Float inner = thickness - softness;
    if (inner >= d)
        return 0.0;
    const Float ramp = thickness - inner;
    if (ramp == 0.0 || d >= thickness)
        return 1.0;
    const Float t = (d - inner) / ramp;
    return t * t * (3.0 - 2.0 * t);
}

static void Grid(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local, In<"line", ColorA> line,
    In<"fill", ColorA> fill, In<"thickness", Vector> thickness, In<"softness", Float> softness,
    In<"frequency", Vector> frequency, Out<"result", ColorA> result, Out<"index", Int> index)
{
    if (!local->uvwValid)
    {
        result = kTransparentBlack;
        index = 0;
        return;
    }
    const Float x = local->uvw.x * frequency->x;
    const Float y = local->uvw.y * frequency->y;
    // No half cell on z, so that a flat coordinate lies between two lines.
    const Float maskX = LineMask(x + 0.5, thickness->x, softness);
    const Float maskY = LineMask(y + 0.5, thickness->y, softness);
    const Float maskZ = LineMask(local->uvw.z * frequency->z, thickness->z, softness);
    const Float m = Min(Min(maskX, maskY), maskZ);
    result = Mix(*line, *fill, m);
    index = Truncate<Int>(Floor(x) * frequency->y + Floor(y));
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.grid", Grid);

} // namespace velto::pattern
