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

// A place and its two neighbours.
struct Triple
{
    Vector at;
    Vector besideU;
    Vector besideV;

    Triple operator+(const Vector& step) const { return {at + step, besideU + step, besideV + step}; }
};

static void SetPoints(ShadingContext& context, const Triple& points)
{
    context.samplePosition = points.at;
    context.samplePositionPlusDeltaU = points.besideU;
    context.samplePositionPlusDeltaV = points.besideV;
}

static void SetCoordinates(ShadingContext& context, const Triple& coordinates)
{
    context.uvw = coordinates.at;
    context.uvwPlusDeltaU = coordinates.besideU;
    context.uvwPlusDeltaV = coordinates.besideV;
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

    const Triple points{context->samplePosition, context->samplePositionPlusDeltaU, context->samplePositionPlusDeltaV};
    const Triple coordinates{context->uvw, context->uvwPlusDeltaU, context->uvwPlusDeltaV};
    const auto moved = [](const Triple& from, Float Vector::*axis, Float step) {
        Triple to = from;
        for (Vector Triple::*point : {&Triple::at, &Triple::besideU, &Triple::besideV})
            (to.*point).*axis += step;
        return to;
    };
    const Triple alongU = points + tangent * stepSpace;
    SetPoints(probe, alongU);
    SetCoordinates(probe, moved(coordinates, &Vector::x, stepUv));
    Float heightAlongU = 0.0;
    VELTO_TRY(HeightAt(*color, probe, heightAlongU));

    SetPoints(probe, alongU + (bitangent * stepSpace - tangent * stepSpace));
    SetCoordinates(probe, moved(coordinates, &Vector::y, stepUv));
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
