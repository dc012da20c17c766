// A spiral of any number of arms.
#include "coverage.h"

#include <cmath>

namespace velto::pattern
{

static constexpr Float kWinding = 20.0; // radians a unit of radius

static void Spiral(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"exterior", ColorA> exterior, In<"fill", ColorA> fill, In<"scale", Float> scale, In<"arms", Int> arms,
    In<"innersoftness", Float> innerSoftness, In<"outersoftness", Float> outerSoftness, Out<"mask", Float> mask,
    Out<"distance", Float> distance, Out<"result", ColorA> result)
{
    const ShapeOutputs outputs{*mask, *distance, *result};
    if (!local->uvwValid)
        return outputs.WriteEmpty();
    const Float a = local->uvw.x - 0.5;
    const Float b = local->uvw.y - 0.5;
    const Float f =
        std::sin(std::atan2(b, a) * static_cast<Float>(*arms) + std::sqrt(a * a + b * b) * (scale * kWinding));
    outputs.Write(*fill, *exterior, SoftStep(f, -*innerSoftness, outerSoftness), f);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.shape.spiral", Spiral);

} // namespace velto::pattern
