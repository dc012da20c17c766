// A star of any number of spikes.
#include "coverage.h"
#include "velto/floor.h"

#include <cmath>
#include <numbers>

namespace velto::pattern
{

static constexpr Float kPi = std::numbers::pi;
static constexpr Float kTwoPi = 2.0 * std::numbers::pi;

// Below three spikes nothing is written.
static void Star(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"exterior", ColorA> exterior, In<"fill", ColorA> fill, In<"scale", Float> scale, In<"spikes", Int> spikes,
    In<"innersoftness", Float> innerSoftness, In<"outersoftness", Float> outerSoftness, In<"cutout", Float> cutout,
    Optional<"mask", Float> mask, Optional<"distance", Float> distance, Optional<"result", ColorA> result)
{
    if (spikes < 3)
        return;
    const ShapeOutputs outputs{*mask, *distance, *result};
    if (!local->uvwValid)
        return outputs.WriteEmpty();
    const Float s = 2.0 / Max(*scale, kLeastScale);
    const Float x = ((local->uvw.x - 0.5) * s) * 2.0;
    const Float y = ((local->uvw.y - 0.5) * s) * 2.0;
    const Float sector = kTwoPi / static_cast<Float>(*spikes);
    // The angle from the axis of the nearest spike.
    const Float turn = std::atan2(x, y) / sector - 0.5;
    const Float e = std::abs(turn - Floor(turn) - 0.5) * sector;
    const Float r = std::sqrt(x * x + y * y);
    const Float p = r * std::sin(e);
    const Float q = r * std::cos(e) - 0.5;
    const Float tilt = 0.5 * sector + (kPi / static_cast<Float>(*spikes)) * cutout;
    const Float d = std::cos(tilt) * q + std::sin(tilt) * p;
    outputs.Write(*fill, *exterior, EdgeStep(d, innerSoftness, outerSoftness), d);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.shape.star", Star);

} // namespace velto::pattern
