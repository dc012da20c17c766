// Pushes everything behind it around by a colour, in texture coordinates and in space.
#include "velto/node.h"

namespace velto::pattern
{

static void Distort(In<"context", ShadingContext> context, In<"strength", Float> strength, In<"center", Float> center,
    In<"color", Color> color, Out<"result", ShadingContext> result)
{
    CopyContext(*result, *context);
    const Vector offset{(color->r - center) * strength, (color->g - center) * strength, (color->b - center) * strength};
    // All points of a triple move alike, so the footprint keeps its size.
    for (Vector ShadingContext::*point : {&ShadingContext::samplePosition, &ShadingContext::samplePositionPlusDeltaU,
             &ShadingContext::samplePositionPlusDeltaV, &ShadingContext::uvw, &ShadingContext::uvwPlusDeltaU,
             &ShadingContext::uvwPlusDeltaV})
        (*result).*point = (*context).*point + offset;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.distorter", Distort);

} // namespace velto::pattern
