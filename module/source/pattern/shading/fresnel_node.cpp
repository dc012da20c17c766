// The share of light that a surface reflects, seen along the ray.
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

// Of the angle between the ray and the normal on its side; positive where the ray enters. The geometric normal decides
// the side, the shading normal gives the angle. The rounding to 32 bits is part of the result.
static Float CosineOfIncidence(const ShadingContext& context)
{
    const Vector direction = context.rayDirection;
    const Vector normal =
        Dot(context.geometricNormal, direction) > 0.0 ? -context.shadingNormal : context.shadingNormal;
    return static_cast<Float32>(-Dot(normal, direction));
}

static Float FresnelDielectric(In<"context", ShadingContext> context, In<"ior", Float> ior)
{
    const Float c = Min(Max(CosineOfIncidence(context), -1.0), 1.0);
    const Float s = std::sqrt(Max(1.0 - c * c, 0.0));
    const bool enters = c > 0.0;
    const Float a = enters ? 1.0 : *ior;
    const Float b = enters ? *ior : 1.0;
    const Float t = (a / b) * s;
    if (t >= 1.0)
        return 1.0; // total reflection
    const Float q = std::sqrt(Max(1.0 - t * t, 0.0));
    const Float m = std::abs(c);
    const Float parallel = (b * m - a * q) / (b * m + a * q);
    const Float perpendicular = (a * m - b * q) / (a * m + b * q);
    return 0.5 * (parallel * parallel + perpendicular * perpendicular);
}

static Float ConductorReflectance(Float c, Float n, Float k)
{
    const Float e = n * n + k * k;
    const Float f = 2.0 * n * c;
    const Float a = (e - f + c * c) / (e + f + c * c);
    const Float b = (e * (c * c) - f + 1.0) / (e * (c * c) + f + 1.0);
    return 0.5 * (a + b);
}

static ColorA FresnelConductor(
    In<"context", ShadingContext> context, In<"ior", Vector> ior, In<"absorption", Vector> absorption)
{
    const Float c = CosineOfIncidence(context);
    return {ConductorReflectance(c, ior->x, absorption->x), ConductorReflectance(c, ior->y, absorption->y),
        ConductorReflectance(c, ior->z, absorption->z), 1.0};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.fresneldielectric", FresnelDielectric);
VELTO_CORE_NODE("net.velto.pattern.corenode.effect.fresnelconductor", FresnelConductor);
// The same under short ids.
VELTO_CORE_NODE("fresneldielectric", FresnelDielectric);
VELTO_CORE_NODE("fresnelconductor", FresnelConductor);

} // namespace velto::pattern
