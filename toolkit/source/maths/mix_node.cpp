// Goes from one number to another.
#include "velto/node.h"

namespace velto::toolkit
{

static Float Mix(In<"a", Float> a, In<"b", Float> b, In<"factor", Float> factor, In<"clamp", Bool> clamp)
{
    const Float share = clamp ? Clamp01(factor) : *factor;
    // Both ends are met exactly.
    return a * (1.0 - share) + b * share;
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.mix", Mix);

} // namespace velto::toolkit
