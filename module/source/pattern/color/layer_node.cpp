// Stacks any number of colours, the first on top, each with a blend mode, a strength and a switch of its own.
#include "blend_handler.h"
#include "velto/node.h"

namespace velto::pattern
{

// What is kept of a layer from sample to sample.
struct LayerBlendEntry
{
    Id mode;
    BlendClassRef blendClass;
    BlendPixelHandlerRef handler;
};

using LayerBlendEntries = BaseArray<LayerBlendEntry>;

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::LayerBlendEntries, "net.velto.render.datatype.layerblendentries");

namespace velto::pattern
{

// An entry whose mode has changed gets the handler of the new one. The mode is taken over first: a mode without a class
// fails once, when it comes; the layer then goes on with the handler it had.
static Result Refresh(LayerBlendEntry& entry, const Id& mode)
{
    if (mode == entry.mode)
        return {};
    entry.mode = mode;
    entry.blendClass = FindBlendClass(mode);
    return MakeBlendHandler(entry.blendClass, entry.handler);
}

static Result Layer(Out<"result", ColorA> result, State<"cachedBlendModes", LayerBlendEntries> entries,
    Variadic<"color", ColorA, "layers"> color, Variadic<"strength", Float, "layers"> strength,
    Variadic<"active", Bool, "layers"> active, Variadic<"mode", Id, "layers"> mode)
{
    const Int count = color.Count();
    VELTO_TRY(entries->Resize(count));
    for (Int i = 0; i < count; ++i)
    {
        if (active[i])
            VELTO_TRY(Refresh((*entries)[i], mode[i]));
    }
    ColorA stack = kTransparentBlack;
    for (Int i = count - 1; i >= 0; --i)
    {
        if (!active[i] || !(strength[i] > 0.0))
            continue;
        ColorA layer = color[i];
        layer.a *= strength[i];
        VELTO_TRY(BlendPixel((*entries)[i].handler, stack, stack, layer));
    }
    *result = stack;
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.layer", Layer);

} // namespace velto::pattern
