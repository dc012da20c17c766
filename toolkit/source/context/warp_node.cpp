// Displaces the coordinate of a pattern by another pattern.
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

static constexpr Int kMostSteps = 16;

// Where a pattern that is asked at a place is looked up: pushed `steps` times, each time from where it was pushed to.
static Result Push(const ColorFunction& offset, ShadingContext& probe, Data& cache, Vector2d amount, Float center,
    Int steps, Vector& place)
{
    for (Int step = 0; step < steps; ++step)
    {
        probe.uvw = place;
        Color push;
        VELTO_TRY(offset.Invoke(push, probe, &cache));
        place.x += (push.r - center) * amount.x;
        place.y += (push.g - center) * amount.y;
    }
    return {};
}

static Result Warp(In<"context", ShadingContext> context, In<"color", ColorAFunction> color,
    Connected<"offset", ColorFunction> offset, In<"amount", Vector2d> amount, In<"center", Float> center,
    In<"steps", Int> stepCount, State<"colorCache", Data> colorCache, State<"offsetCache", Data> offsetCache,
    Out<"result", ColorA> result)
{
    if (!context->uvwValid)
    {
        result = kTransparentBlack;
        return {};
    }
    ContextCopy probe(*context);
    const Int steps = offset.IsConnected() ? Min(Max<Int>(*stepCount, 0), kMostSteps) : 0;
    const Vector2d each = {
        amount->x / static_cast<Float>(Max<Int>(steps, 1)), amount->y / static_cast<Float>(Max<Int>(steps, 1))};
    // The neighbours are pushed on their own, so that the footprint grows where the pattern is drawn together.
    Vector places[3] = {context->uvw, context->uvwPlusDeltaU, context->uvwPlusDeltaV};
    const bool hasFootprint = places[1] != places[0] || places[2] != places[0];
    const Vector toU = places[1] - places[0];
    const Vector toV = places[2] - places[0];
    for (int i = 0; i < (hasFootprint ? 3 : 1); ++i)
    {
        probe->uvwPlusDeltaU = places[i] + toU;
        probe->uvwPlusDeltaV = places[i] + toV;
        VELTO_TRY(Push(*offset, *probe, *offsetCache, each, center, steps, places[i]));
    }
    probe->uvw = places[0];
    probe->uvwPlusDeltaU = hasFootprint ? places[1] : places[0];
    probe->uvwPlusDeltaV = hasFootprint ? places[2] : places[0];
    *result = kOpaqueBlack;
    return color->Invoke(*result, *probe, &*colorCache);
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.context.warp", Warp);

} // namespace velto::toolkit
