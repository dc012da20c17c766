// Rows of bricks in a bond, with mortar between them.
#include "pulse.h"
#include "velto/footprint.h"
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

static void Bricks(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local, In<"brick", ColorA> brick,
    In<"joint", ColorA> joint, In<"columns", Int> columnCount, In<"rows", Int> rowCount, In<"mortar", Float> mortar,
    In<"bevel", Float> bevel, In<"offset", Float> offset, In<"rowVariation", Float> rowVariation,
    In<"seed", UInt32> seed, Out<"result", ColorA> result, Out<"mask", Float> mask, Out<"height", Float> height,
    Out<"index", Int> index, Out<"random", Float> random, Out<"local", Vector> within)
{
    if (!local->uvwValid)
    {
        result = kTransparentBlack;
        mask = 0.0;
        height = 0.0;
        index = 0;
        random = 0.0;
        within = Vector();
        return;
    }
    const Int columns = CellCount(columnCount);
    const Int rows = CellCount(rowCount);
    const Vector footprint = Footprint<2>(*local);
    const Float widthU = footprint.x * static_cast<Float>(columns);
    const Float widthV = footprint.y * static_cast<Float>(rows);

    const Float y = local->uvw.y * static_cast<Float>(rows);
    const Int row = WrappedCell(Floor(y), rows);
    const Float shift = static_cast<Float>(row & 1) * offset + CellStream(seed, ~row).Next01() * rowVariation;
    const Float x = local->uvw.x * static_cast<Float>(columns) - shift;
    const Int column = WrappedCell(Floor(x), columns);

    // Mortar and bevel are measured in heights of a brick, so that they are as wide on all sides.
    const Float aspect = static_cast<Float>(columns) / static_cast<Float>(rows);
    const Float barU = 1.0 - Clamp01(mortar * aspect);
    const Float barV = 1.0 - Clamp01(mortar);
    const Float covered = PulseCoverage(x, widthU, barU) * PulseCoverage(y, widthV, barV);

    const Vector place{x - Floor(x), y - Floor(y), 0.0};
    const Float edgeU = (0.5 * barU - std::abs(place.x - 0.5)) / aspect;
    const Float edgeV = 0.5 * barV - std::abs(place.y - 0.5);
    const Float edge = Min(edgeU, edgeV);
    const Float rise = bevel > 0.0 ? SmoothRise(edge / bevel) : covered;

    const Int number = row * columns + column;
    result = Mix(*joint, *brick, covered);
    mask = covered;
    height = covered + (Min(rise, 1.0) * (edge > 0.0 ? 1.0 : covered) - covered) * Clarity(Max(widthU, widthV));
    index = number;
    random = CellStream(seed, number).Next01();
    within = place;
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.generator.bricks", Bricks);

} // namespace velto::toolkit
