// Steepens or flattens a colour about mid-grey.
#include "velto/mask.h"

namespace velto::pattern
{

static ColorA Contrast(In<"color", ColorA> x, In<"contrast", Float> contrast)
{
    const Float slope = contrast + 1.0;
    const auto steepen = [slope](Float c) { return Max((c - 0.5) * slope + 0.5, 0.0); };
    return {steepen(x->r), steepen(x->g), steepen(x->b), Max((x->a - 1.0) * 2.0 + 1.0, 1.0)};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.contrast", Masked<Contrast>);

} // namespace velto::pattern
