// The cell noise that the Voronoi noise pre node makes and that patterns ask for their nearest feature points.
#pragma once

#include "velto/node.h"
#include "velto/noise.h"

namespace velto::pattern
{

struct VoronoiNoiseTable
{
    UInt32 seed = 0;
    Ref<NoiseObject> noise;

    friend bool operator==(const VoronoiNoiseTable&, const VoronoiNoiseTable&) = default;
};

// The two nearest feature points.
struct VoronoiNeighbours
{
    Float32 f1;
    Float32 f2;
    Int32 id; // of the nearest
};

// Asks at a position in noise space, which is narrowed to 32 bits. Without an object of the table's the framework's
// own answers; without that either all is 0.
inline VoronoiNeighbours FindNeighbours(const VoronoiNoiseTable& table, const Vector& position)
{
    const auto& noise = Bound<NoiseInterface>();
    const NoiseObject* const object = table.noise ? table.noise.Get() : noise.GetDefault();
    const Float32 at[3] = {
        static_cast<Float32>(position.x), static_cast<Float32>(position.y), static_cast<Float32>(position.z)};
    Float32 distances[2] = {};
    Int32 identifiers[2] = {};
    if (object)
        noise.Voronoi(object, at, 2, distances, identifiers);
    return {distances[0], distances[1], identifiers[0]};
}

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::VoronoiNoiseTable, "net.velto.render.datatype.voronoinoisetable");
