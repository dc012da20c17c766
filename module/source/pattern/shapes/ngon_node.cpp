// A regular polygon.
#include "coverage.h"
#include "velto/floor.h"

#include <cmath>
#include <numbers>

namespace velto::pattern
{

static constexpr Float kPi = std::numbers::pi;
static constexpr Float kTwoPi = 2.0 * std::numbers::pi;

// Below three sides nothing is written.
static void Ngon(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"exterior", ColorA> exterior, In<"fill", ColorA> fill, In<"scale", Float> scale, In<"sides", Int> sides,
    In<"innersoftness", Float> innerSoftness, In<"outersoftness", Float> outerSoftness, Optional<"mask", Float> mask,
    Optional<"distance", Float> distance, Optional<"result", ColorA> result)
{
    if (sides < 3)
        return;
    const ShapeOutputs outputs{*mask, *distance, *result};
    if (!local->uvwValid)
        return outputs.WriteEmpty();
    const Float s = 1.0 / Max(*scale, kLeastScale);
    const Float x = ((local->uvw.x - 0.5) * s + 0.5) * 2.0 - 1.0;
    const Float y = ((local->uvw.y - 0.5) * s + 0.5) * 2.0 - 1.0;
    const Float angle = std::atan2(x, y) + kPi; // from the v axis towards the u axis
    const Float sector = kTwoPi / static_cast<Float>(*sides);
    const Float c = std::cos(Floor(angle / sector + 0.5) * sector - angle);
    const Float d = std::sqrt(x * x + y * y) * c;
    outputs.Write(*fill, *exterior, EdgeStep(d, innerSoftness, outerSoftness), d);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.shape.ngon", Ngon);

} // namespace velto::pattern
