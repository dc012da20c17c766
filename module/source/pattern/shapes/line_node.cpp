// A line between two points.
#include "coverage.h"

#include <cmath>

namespace velto::pattern
{

static void Line(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"exterior", ColorA> exterior, In<"fill", ColorA> fill, In<"source", Vector2d> source,
    In<"destination", Vector2d> destination, In<"softness", Float> softness, In<"width", Float> width,
    Out<"mask", Float> mask, Out<"distance", Float> distance, Out<"result", ColorA> result)
{
    const ShapeOutputs outputs{*mask, *distance, *result};
    if (!local->uvwValid)
        return outputs.WriteEmpty();
    const Float ax = local->uvw.x - source->x;
    const Float ay = local->uvw.y - source->y;
    const Float bx = destination->x - source->x;
    const Float by = destination->y - source->y;
    const Float h = Clamp01((ax * bx + ay * by) / (bx * bx + by * by));
    const Float dx = ax - bx * h;
    const Float dy = ay - by * h;
    // The field is stepped already, and stepped once more for the edge.
    const Float s = SoftStep(std::sqrt(dx * dx + dy * dy), 0.0, width);
    outputs.Write(*fill, *exterior, SoftStep(s, width * 0.5, width * 0.5 + softness * 0.5), s);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.shape.line", Line);

} // namespace velto::pattern
