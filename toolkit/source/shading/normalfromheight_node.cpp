// A normal in texture space from the slope of a height pattern.
#include "velto/footprint.h"
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

VELTO_INTERNED_ID(kDown, "down");

static constexpr Float kLeastStep = 1e-6;

// Central differences, each over two steps.
static Result NormalFromHeight(In<"context", ShadingContext> context, In<"height", FloatFunction> height,
    In<"strength", Float> strength, In<"step", Float> step, In<"green", InternedId> green, State<"cache", Data> cache,
    Out<"result", Vector> result)
{
    if (!context->uvwValid)
    {
        result = Vector();
        return {};
    }
    const Vector footprint = Footprint<2>(*context);
    const Float half = Max(*step > 0.0 ? 0.5 * *step : 0.5 * Max(footprint.x, footprint.y), kLeastStep);
    ContextCopy probe(*context);
    const auto heightAt = [&](Float du, Float dv, Float& value) {
        for (const auto point : {&ShadingContext::uvw, &ShadingContext::uvwPlusDeltaU, &ShadingContext::uvwPlusDeltaV})
        {
            ((*probe).*point).x = ((*context).*point).x + du;
            ((*probe).*point).y = ((*context).*point).y + dv;
        }
        value = 0.0;
        return height->Invoke(value, *probe, &*cache);
    };
    Float left;
    Float right;
    Float above;
    Float below;
    VELTO_TRY(heightAt(-half, 0.0, left));
    VELTO_TRY(heightAt(half, 0.0, right));
    VELTO_TRY(heightAt(0.0, -half, above));
    VELTO_TRY(heightAt(0.0, half, below));
    const Float scale = strength / (2.0 * half);
    // V goes down the picture.
    const Float up = (below - above) * scale;
    const Vector normal{(left - right) * scale, *green == kDown ? -up : up, 1.0};
    const Float length = std::sqrt(Dot(normal, normal));
    result = Vector{normal.x / length, normal.y / length, normal.z / length};
    return {};
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.shading.normalfromheight", NormalFromHeight);

} // namespace velto::toolkit
