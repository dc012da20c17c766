// Cells about scattered points, with a colour for each, a border between them, and the distances themselves.
#include "velto/random.h"
#include "velto/rendernoise.h"
#include "voronoinoise.h"

#include <cmath>

namespace velto::pattern
{

static Result VoronoiNoisePre(In<"seed", UInt32> seed, Once<"voronoinoise", VoronoiNoiseTable> table)
{
    if (table->noise && table->seed == *seed)
        return {};
    const auto& noise = Bound<NoiseInterface>();
    table->seed = *seed;
    table->noise = Ref<NoiseObject>::Adopt(noise.Alloc());
    if (!table->noise)
        return OutOfMemory();
    return noise.Init(table->noise.Get(), *seed, kNoiseComplexity);
}

static Float BorderFactor(
    const VoronoiNoiseTable& table, const Vector& position, Int32 id, Float gap, Float width, Bool evenWidth)
{
    if (!(width > 0.0))
        return 1.0;
    if (!evenWidth)
        return width < gap ? 1.0 : 0.0;
    // A cell ends within the width to the right or upwards.
    const Float right = FindNeighbours(table, {position.x + width, position.y, position.z}).id;
    const Float up = FindNeighbours(table, {position.x, position.y + width, position.z}).id;
    return 1.0 - Clamp01(std::abs(2.0 * id - right - up));
}

static void VoronoiNoise(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"scale", Float> scale, In<"randomColor", Bool> randomColor, In<"borderWidth", Float> borderWidth,
    In<"evenWidthBorder", Bool> evenWidthBorder, In<"voronoinoise", VoronoiNoiseTable> table,
    Out<"resultColor", Color> resultColor, Out<"resultFloat", Float> resultFloat, Out<"distance", Float> distance,
    Out<"f1", Float> f1, Out<"f2", Float> f2, Out<"index", Int> index)
{
    const Vector position = local->uvw * (scale > 0.0 ? 1.0 / scale : 0.0);
    const VoronoiNeighbours nearest = FindNeighbours(*table, position);
    const Float gap = nearest.f2 - nearest.f1; // in 32 bits
    const Float border = BorderFactor(*table, position, nearest.id, gap, borderWidth, evenWidthBorder);

    Color color{1.0, 1.0, 1.0};
    if (randomColor)
    {
        RandomStream stream(static_cast<UInt32>(nearest.id));
        color.r = stream.Next01();
        color.g = stream.Next01();
        color.b = stream.Next01();
    }
    resultColor = Color{color.r * border, color.g * border, color.b * border};
    resultFloat = color.r * border;
    distance = gap;
    f1 = nearest.f1;
    f2 = nearest.f2;
    index = nearest.id;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.voronoinoisepre", VoronoiNoisePre);
VELTO_CORE_NODE("net.velto.pattern.corenode.generator.voronoinoise", VoronoiNoise);

} // namespace velto::pattern
