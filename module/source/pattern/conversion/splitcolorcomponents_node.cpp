// Takes a colour apart.
#include "velto/node.h"

namespace velto::pattern
{

static void SplitColorComponents(In<"color", ColorA> color, In<"index", Int> index, Out<"rgb", Color> rgb,
    Out<"r", Float> r, Out<"g", Float> g, Out<"b", Float> b, Out<"a", Float> a,
    Optional<"indexedComponent", Float> indexed)
{
    rgb = Color{color->r, color->g, color->b};
    r = color->r;
    g = color->g;
    b = color->b;
    a = color->a;
    if (static_cast<UInt>(*index) < 4)
    {
        const Float components[] = {color->r, color->g, color->b, color->a};
        indexed = components[*index];
    }
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.splitcolorcomponents", SplitColorComponents);

} // namespace velto::pattern
