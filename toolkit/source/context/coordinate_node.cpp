// What the sample is: its place in texture space, in space and in the picture, and the ray that found it.
#include "velto/node.h"

namespace velto::toolkit
{

static void Coordinate(In<"context", ShadingContext> context, In<"contextLocal", ShadingContext> local,
    Out<"uv", Vector> uv, Out<"u", Float> u, Out<"v", Float> v, Out<"position", Vector> position,
    Out<"normal", Vector> normal, Out<"tangent", Vector> tangent, Out<"bitangent", Vector> bitangent,
    Out<"ray", Vector> ray, Out<"pixel", Vector> pixel)
{
    const Vector place = local->uvwValid ? local->uvw : Vector();
    uv = place;
    u = place.x;
    v = place.y;
    position = context->samplePosition;
    normal = context->shadingNormal;
    tangent = context->tangent;
    bitangent = context->bitangent;
    ray = context->rayDirection;
    pixel = Vector{static_cast<Float>(context->pixel[0]) + context->subpixel.x,
        static_cast<Float>(context->pixel[1]) + context->subpixel.y, 0.0};
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.context.coordinate", Coordinate);

} // namespace velto::toolkit
