// A honeycomb.
#include "pulse.h"
#include "velto/footprint.h"
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

static constexpr Float kRowStep = 0.8660254037844386; // half the root of 3: from row to row, in widths of a cell

// How far a point is from the middle of a cell of width 1, by the nearest of its three axes.
static Float AcrossHexagon(const Vector2d& from)
{
    const Float x = std::abs(from.x);
    return Max(x, 0.5 * x + kRowStep * std::abs(from.y));
}

struct HexagonCell
{
    Float column;
    Float row;
    Vector2d from; // its middle

    HexagonCell(Float x, Float y, Float ofRow)
    {
        row = ofRow;
        const Float shift = row - 2.0 * Floor(row * 0.5) == 0.0 ? 0.0 : 0.5;
        column = Floor(x - shift + 0.5);
        from = {x - shift - column, (y - row) * kRowStep};
    }
};

static void Hexagons(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"cell", ColorA> cellColor, In<"joint", ColorA> joint, In<"columns", Int> columnCount, In<"rows", Int> rowCount,
    In<"gap", Float> gap, In<"bevel", Float> bevel, In<"seed", UInt32> seed, Out<"result", ColorA> result,
    Out<"mask", Float> mask, Out<"height", Float> height, Out<"index", Int> index, Out<"random", Float> random,
    Out<"local", Vector> within)
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
    const Int rows = CellCount((CellCount(rowCount) + 1) / 2 * 2); // of two rows one is moved
    const Float x = local->uvw.x * static_cast<Float>(columns);
    const Float y = local->uvw.y * static_cast<Float>(rows);
    const HexagonCell below(x, y, Floor(y));
    const HexagonCell above(x, y, Floor(y) + 1.0);
    const auto square = [](const Vector2d& v) { return v.x * v.x + v.y * v.y; };
    const HexagonCell& cell = square(below.from) <= square(above.from) ? below : above;

    const Vector footprint = Footprint<2>(*local);
    const Float width =
        Max(footprint.x * static_cast<Float>(columns), footprint.y * static_cast<Float>(rows) * kRowStep);
    const Float gapWidth = Clamp01(gap);
    const Float edge = 0.5 - AcrossHexagon(cell.from) - 0.5 * gapWidth;
    const Float clarity = Clarity(width);
    const Float mean = (1.0 - gapWidth) * (1.0 - gapWidth);
    const Float covered = mean + (EdgeCoverage(edge, width) - mean) * clarity;
    const Float rise = bevel > 0.0 ? SmoothRise(edge / bevel) : covered;

    const Int number = WrappedCell(cell.row, rows) * columns + WrappedCell(cell.column, columns);
    result = Mix(*joint, *cellColor, covered);
    mask = covered;
    height = covered + (rise - covered) * clarity;
    index = number;
    random = CellStream(seed, number).Next01();
    within = Vector{cell.from.x + 0.5, cell.from.y + 0.5, 0.0};
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.generator.hexagons", Hexagons);

} // namespace velto::toolkit
