// Makes one number of a vector.
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

VELTO_INTERNED_ID(kX, "x");
VELTO_INTERNED_ID(kY, "y");
VELTO_INTERNED_ID(kZ, "z");
VELTO_INTERNED_ID(kW, "w");
VELTO_INTERNED_ID(kAverage, "average");
VELTO_INTERNED_ID(kLength, "length");
VELTO_INTERNED_ID(kSquaredLength, "squaredlength");
VELTO_INTERNED_ID(kSum, "sum");
VELTO_INTERNED_ID(kMin, "min");
VELTO_INTERNED_ID(kMax, "max");

static Float VectorToFloat(In<"vector", Vector4d> v, In<"mode", InternedId> mode)
{
    const auto squaredLength = [&] { return v->x * v->x + v->y * v->y + v->z * v->z + v->w * v->w; };
    if (*mode == kX)
        return v->x;
    if (*mode == kY)
        return v->y;
    if (*mode == kZ)
        return v->z;
    if (*mode == kW)
        return v->w;
    if (*mode == kAverage)
        return (v->x + v->y + v->z + v->w) * 0.25;
    if (*mode == kLength)
        return std::sqrt(squaredLength());
    if (*mode == kSquaredLength)
        return squaredLength();
    if (*mode == kSum)
        return v->x + v->y + v->z + v->w;
    if (*mode == kMin)
        return Min(Min(Min(v->x, v->y), v->z), v->w);
    if (*mode == kMax)
        return Max(Max(Max(v->x, v->y), v->z), v->w);
    return 0.0;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.vectortofloat", VectorToFloat);

} // namespace velto::pattern
