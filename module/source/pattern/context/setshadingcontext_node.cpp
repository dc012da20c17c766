// Overrides single fields of the context; what is not connected passes as it is.
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

static Vector Normalized(const Vector& v)
{
    const Float length = std::sqrt(Dot(v, v));
    return length == 0.0 ? Vector() : v * (1.0 / length);
}

static void SetShadingContext(In<"context", ShadingContext> context, Connected<"rayorigin", Vector> rayOrigin,
    Connected<"raydirection", Vector> rayDirection, Connected<"time", TimeValue> time, Connected<"uvw", Vector> uvw,
    Connected<"uvwdelta", Vector> uvwDelta, Connected<"shadingnormal", Vector> shadingNormal,
    Out<"result", ShadingContext> result)
{
    const Vector normal = shadingNormal.IsConnected() ? Normalized(shadingNormal) : Vector();
    // After the arithmetic: the sample's fields were written just now, and a wide load waits until they have settled.
    CopyContext(*result, *context);
    if (rayOrigin.IsConnected())
    {
        result->rayOrigin = rayOrigin;
        result->rayOriginPlusDeltaU = rayOrigin;
        result->rayOriginPlusDeltaV = rayOrigin;
    }
    if (rayDirection.IsConnected())
    {
        result->rayDirection = rayDirection;
        result->rayDirectionPlusDeltaU = rayDirection;
        result->rayDirectionPlusDeltaV = rayDirection;
    }
    if (uvw.IsConnected())
    {
        result->uvw = uvw;
        result->uvwPlusDeltaU = uvw;
        result->uvwPlusDeltaV = uvw;
    }
    if (uvwDelta.IsConnected())
    {
        const Vector at = result->uvw;
        result->uvwValid = true;
        // x is the step along the first screen direction, y and z are the step along the second.
        result->uvwPlusDeltaU = {at.x + uvwDelta->x, at.y, at.z};
        result->uvwPlusDeltaV = {at.x, at.y + uvwDelta->y, at.z + uvwDelta->z};
    }
    if (shadingNormal.IsConnected())
        result->shadingNormal = normal;
    if (time.IsConnected())
        result->time = time;
}

VELTO_CORE_NODE("net.velto.render.corenode.setshadingcontext", SetShadingContext);

} // namespace velto::pattern
