// Lays one colour over another by a named blend mode.
#include "blend_handler.h"
#include "velto/mask.h"

namespace velto::pattern
{

static constexpr Id kDefaultMode{"net.velto.render.blendmode.over"};

VELTO_INTERNED_ID(kCompositing, "compositing");
VELTO_INTERNED_ID(kBackground, "background");
VELTO_INTERNED_ID(kForeground, "foreground");
VELTO_INTERNED_ID(kZero, "zero");
VELTO_INTERNED_ID(kOne, "one");

// The alpha of the result where alpha takes part; `blended` is what the mask has made of it.
static Float AlphaOf(const InternedId& handling, Float background, Float foreground, Float blended, Float maskBlend)
{
    if (handling == kBackground)
        return background;
    if (handling == kForeground)
        return foreground;
    if (handling == kZero)
        return 0.0;
    if (handling == kOne)
        return 1.0;
    if (handling == kCompositing)
    {
        const Float s = maskBlend * foreground;
        return background + s - background * s;
    }
    return blended;
}

static Result Blend(In<"background", ColorA> x, In<"foreground", ColorA> f, In<"blendMode", Id> mode,
    In<"alphaHandling", InternedId> alphaHandling, Mask mask, Out<"result", ColorA> result,
    State<"lastBlendMode", Id> lastMode, State<"blendPixelHandlerRef", BlendPixelHandlerRef> handler)
{
    if (!*handler || *mode != *lastMode)
    {
        VELTO_TRY(MakeBlendHandler(FindBlendClass(mode->IsEmpty() ? kDefaultMode : *mode), *handler));
        lastMode = *mode;
    }
    ColorA y = kOpaqueBlack;
    VELTO_TRY(BlendPixel(*handler, y, *x, *f));
    ColorA masked = mask.Apply(*x, y);
    if (mask.TakesAlpha())
        masked.a = AlphaOf(*alphaHandling, x->a, f->a, masked.a, mask.Share());
    *result = masked;
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.blend", Blend);

} // namespace velto::pattern
