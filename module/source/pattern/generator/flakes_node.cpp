// Tiny facets that each turn the normal their own way, as in metallic paint.
#include "velto/random.h"
#include "voronoinoise.h"

#include <cmath>

namespace velto::pattern
{

static constexpr Float kNoiseUnits = 10.0;

static Vector Normalized(const Vector& v)
{
    const Float length = std::sqrt(Dot(v, v));
    return length == 0.0 ? Vector() : Vector{v.x / length, v.y / length, v.z / length};
}

static Vector FlakeDirection(Int32 id)
{
    RandomStream stream(static_cast<UInt32>(id));
    Vector direction;
    direction.x = 2.0 * stream.Next01() - 1.0;
    direction.y = 2.0 * stream.Next01() - 1.0;
    direction.z = 2.0 * stream.Next01() - 1.0;
    return Normalized(direction);
}

static void Flakes(In<"context", ShadingContext> context, In<"scale", Float> scale,
    In<"voronoinoise", VoronoiNoiseTable> table, In<"density", Float> density, In<"intensity", Float> intensity,
    Out<"normal", Vector> normal, Out<"index", Int> index, Out<"mask", Bool> mask)
{
    const Vector base = context->shadingNormal;
    const Float s = scale > 0.0 ? (1.0 / scale) * kNoiseUnits : 0.0;
    const VoronoiNeighbours nearest = FindNeighbours(*table, context->uvw * s);
    if (!(density > Float(nearest.f1)))
    {
        normal = base;
        index = 0;
        mask = false;
        return;
    }
    Vector flake = FlakeDirection(nearest.id);
    if (Dot(base, flake) < 0.0)
        flake = -flake;
    normal = Normalized(base + (flake - base) * intensity);
    index = nearest.id;
    mask = nearest.id > 0;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.flakes", Flakes);

} // namespace velto::pattern
