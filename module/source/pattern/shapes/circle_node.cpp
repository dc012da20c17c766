// A disc.
#include "coverage.h"

#include <cmath>

namespace velto::pattern
{

static void Circle(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"exterior", ColorA> exterior, In<"fill", ColorA> fill, In<"scale", Float> scale,
    In<"innersoftness", Float> innerSoftness, In<"outersoftness", Float> outerSoftness, Out<"mask", Float> mask,
    Out<"distance", Float> distance, Out<"result", ColorA> result)
{
    const ShapeOutputs outputs{*mask, *distance, *result};
    if (!local->uvwValid)
        return outputs.WriteEmpty();
    const Float s = (1.0 / Max(*scale, kLeastScale)) * 2.0;
    const Float x = (local->uvw.x - 0.5) * s;
    const Float y = (local->uvw.y - 0.5) * s;
    const Float d = std::sqrt(x * x + y * y);
    outputs.Write(*fill, *exterior, EdgeStep(d, innerSoftness, outerSoftness), d);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.shape.circle", Circle);

} // namespace velto::pattern
