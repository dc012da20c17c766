#include "noise.h"

#include "noisekernels.h"
#include "noisemath.h"

namespace velto::host
{

namespace
{

struct CellNoise : NoiseObject
{
    UInt32 lattice = MixBits(0);
};

Result Init(NoiseObject* noise, UInt32 seed, Int32)
{
    VELTO_CHECK_ARGUMENT(noise);
    static_cast<CellNoise*>(noise)->lattice = MixBits(seed);
    return {};
}

void Voronoi(const NoiseObject* noise, const Float32* position, Int32 count, Float32* distances, Int32* identifiers)
{
    static const NoiseKernels& kernels = BestNoiseKernels();
    NearestPoints nearest;
    kernels.nearest3d(
        static_cast<const CellNoise*>(noise)->lattice, {position[0], position[1], position[2], 0.0f}, nearest);
    for (Int32 i = 0; i < count; ++i)
    {
        distances[i] = i == 0 ? nearest.f1 : nearest.f2;
        identifiers[i] = i == 0 ? nearest.id1 : nearest.id2;
    }
}

} // namespace

const NoiseInterface& NoiseService()
{
    static constexpr NoiseInterface service{
        .Alloc = {+[]() -> NoiseObject* { return MakeShared<CellNoise>().Detach(); }},
        .Init = {&Init},
        .Voronoi = {&Voronoi},
        .Free = {+[](NoiseObject* noise) { Ref<NoiseObject>::Adopt(noise) = {}; }},
        .GetDefault = {+[]() -> const NoiseObject* {
            static const CellNoise noise;
            return &noise;
        }},
    };
    return service;
}

} // namespace velto::host
