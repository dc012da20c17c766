// Bends the shading normal by the slope of a height pattern.
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

static constexpr Float kSpaceUnit = 0.01;
static constexpr Float kTextureUnit = 0.0001;

static Result HeightAt(const ColorFunction& function, const ShadingContext& context, Float& height)
{
    Color color;
    VELTO_TRY(function.Invoke(color, context));
    height = color.r + color.g + color.b;
    return {};
}

static void MovePoints(ShadingContext& context, const Vector& step)
{
    context.samplePosition = context.samplePosition + step;
    context.samplePositionPlusDeltaU = context.samplePositionPlusDeltaU + step;
    context.samplePositionPlusDeltaV = context.samplePositionPlusDeltaV + step;
}

static Result Bump(In<"context", ShadingContext> context, Connected<"color", ColorFunction> color,
    In<"strength", Float> strength, In<"epsilonuv", Float> epsilonUv, In<"epsilon3d", Float> epsilon3d,
    Out<"result", Vector> result)
{
    if (!context->uvwValid || !color.IsConnected())
    {
        result = Vector();
        return {};
    }
    const Vector tangent = context->tangent;
    const Vector bitangent = context->bitangent;
    const Float stepSpace = epsilon3d * kSpaceUnit;
    const Float stepUv = epsilonUv * kTextureUnit;
    const Float k = strength * 10000.0 * 0.1 / 6.0;

    ShadingContext probe;
    CopyContext(probe, *context);
    probe.filterOff = true;
    Float height = 0.0;
    VELTO_TRY(HeightAt(*color, probe, height));

    MovePoints(probe, tangent * stepSpace);
    probe.uvw.x += stepUv;
    probe.uvwPlusDeltaU.x += stepUv;
    probe.uvwPlusDeltaV.x += stepUv;
    Float heightAlongU = 0.0;
    VELTO_TRY(HeightAt(*color, probe, heightAlongU));

    MovePoints(probe, bitangent * stepSpace - tangent * stepSpace);
    probe.uvw = {context->uvw.x, probe.uvw.y + stepUv, probe.uvw.z};
    probe.uvwPlusDeltaU = {context->uvwPlusDeltaU.x, probe.uvwPlusDeltaU.y + stepUv, probe.uvwPlusDeltaU.z};
    probe.uvwPlusDeltaV = {context->uvwPlusDeltaV.x, probe.uvwPlusDeltaV.y + stepUv, probe.uvwPlusDeltaV.z};
    Float heightAlongV = 0.0;
    VELTO_TRY(HeightAt(*color, probe, heightAlongV));

    const Float slopeU = (heightAlongU - height) * k;
    const Float slopeV = (heightAlongV - height) * k;
    const Vector normal = context->shadingNormal - (tangent * slopeU - bitangent * slopeV);
    const Float length = std::sqrt(Dot(normal, normal));
    result = length != 0.0 ? normal * (1.0 / length) : Vector();
    return {};
}

// What is left of a bump without slope.
static Vector GetPhongNormal(In<"context", ShadingContext> context)
{
    return context->uvwValid ? context->shadingNormal : Vector();
}

static bool HasNoSlope(const OptimizeRequest& request)
{
    const auto* const strength = static_cast<const Float*>(request.constants[2]);
    if (strength && *strength == 0.0)
        return true;
    const auto* const color = static_cast<const ColorFunction*>(request.constants[1]);
    if (!color || !color->object)
        return false;
    const FunctionInterface& function = *color->object;
    return function.isConstant && function.isConstant(&function);
}

static Result Simplify(const OptimizeRequest* request, Optimization* answer)
{
    if (!HasNoSlope(*request))
        return {};
    VELTO_TRY(BuildMicroNodeGroup(detail::NodeOf<GetPhongNormal, MicroNodeKind::Sample>::kTable, "GetPhongNormal", {},
        nullptr, answer->group.Receive()));
    answer->links[0] = {.replacement = 0, .original = 0}; // context
    answer->links[1] = {.replacement = 1, .original = 5}; // result
    answer->linkCount = 2;
    answer->kind = Optimization::Kind::Replace;
    return {};
}

VELTO_CORE_NODE("net.velto.render.corenode.bump", Bump, .optimizer = &Simplify);
VELTO_DEPENDS_ON_LABEL("databaseregister");

} // namespace velto::pattern
