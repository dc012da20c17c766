// Cell noise: the nearest feature points of a scattered lattice.
#pragma once

#include "velto/system.h"

namespace velto
{

struct NoiseObject : Object
{
};

struct NoiseInterface
{
    static constexpr Id kId{"net.velto.render.interface.noise"};
    static constexpr Id kFramework{"net.velto.render.framework"};

    // [any thread] A new empty object; the caller owns the reference. Null without memory.
    VELTO_METHOD(Alloc, NoiseObject*());
    // [one thread; setup] Once, before any query.
    VELTO_METHOD(Init, Result(NoiseObject* noise, UInt32 seed, Int32 complexity));
    // [any thread; sampling] The `count` (1 or 2) nearest feature points of `position`, three coordinates:
    // their distances in rising order, and their identifiers in the same order. Never fails.
    VELTO_METHOD(Voronoi,
        void(const NoiseObject* noise, const Float32* position, Int32 count, Float32* distances, Int32* identifiers));
    // [any thread] Destroys the object with its last reference.
    VELTO_METHOD(Free, void(NoiseObject* noise));
    // [any thread] The framework's own object of seed 0, borrowed; null when it has none.
    VELTO_METHOD(GetDefault, const NoiseObject*());
};
VELTO_USED_BY_INCLUDERS("velto/noise.h", NoiseInterface);

} // namespace velto
