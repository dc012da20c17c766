// Takes a vector apart.
#include "velto/node.h"

namespace velto::pattern
{

static void SplitVectorComponents(In<"vector", Vector4d> vector, In<"index", Int> index, Out<"xyz", Vector> xyz,
    Out<"xy", Vector2d> xy, Out<"x", Float> x, Out<"y", Float> y, Out<"z", Float> z, Out<"w", Float> w,
    Optional<"indexedComponent", Float> indexed)
{
    xyz = Vector{vector->x, vector->y, vector->z};
    xy = Vector2d{vector->x, vector->y};
    x = vector->x;
    y = vector->y;
    z = vector->z;
    w = vector->w;
    if (static_cast<UInt>(*index) < 4)
    {
        const Float components[] = {vector->x, vector->y, vector->z, vector->w};
        indexed = components[*index];
    }
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.splitvectorcomponents", SplitVectorComponents);

} // namespace velto::pattern
