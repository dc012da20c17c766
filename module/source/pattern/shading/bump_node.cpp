// Bends the shading normal by the slope of a height pattern.
#include "../../datadescription_shadernodes/databaseregister.h"
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

    ContextCopy probe(*context);
    probe->filterOff = true;
    Float height = 0.0;
    VELTO_TRY(HeightAt(*color, *probe, height));

    constexpr Vector ShadingContext::*kPoints[] = {&ShadingContext::samplePosition,
        &ShadingContext::samplePositionPlusDeltaU, &ShadingContext::samplePositionPlusDeltaV};
    constexpr Vector ShadingContext::*kCoordinates[] = {
        &ShadingContext::uvw, &ShadingContext::uvwPlusDeltaU, &ShadingContext::uvwPlusDeltaV};
    const Vector toU = tangent * stepSpace;
    for (const auto point : kPoints)
        (*probe).*point = (*context).*point + toU;
    for (const auto coordinate : kCoordinates)
        ((*probe).*coordinate).x = ((*context).*coordinate).x + stepUv;
    Float heightAlongU = 0.0;
    VELTO_TRY(HeightAt(*color, *probe, heightAlongU));

    const Vector fromUToV = bitangent * stepSpace - toU;
    for (const auto point : kPoints)
        (*probe).*point = (*context).*point + toU + fromUToV;
    for (const auto coordinate : kCoordinates)
    {
        const Vector& from = (*context).*coordinate;
        ((*probe).*coordinate).x = from.x;
        ((*probe).*coordinate).y = from.y + stepUv;
    }
    Float heightAlongV = 0.0;
    VELTO_TRY(HeightAt(*color, *probe, heightAlongV));

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
    VELTO_TRY(BuildMicroNodeGroup(TableOf<GetPhongNormal>(), "GetPhongNormal", {}, nullptr, answer->group.Receive()));
    answer->links[0] = {.replacement = 0, .original = 0}; // context
    answer->links[1] = {.replacement = 1, .original = 5}; // result
    answer->linkCount = 2;
    answer->kind = Optimization::Kind::Replace;
    return {};
}

VELTO_CORE_NODE("net.velto.render.corenode.bump", Bump, .optimizer = &Simplify);
VELTO_DEPENDS_ON_LABEL(databaseRegister, "databaseregister");

} // namespace velto::pattern
