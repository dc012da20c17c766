// Takes a number from one range to another.
#include "numbers.h"
#include "velto/node.h"

namespace velto::toolkit
{

static Float Remap(In<"value", Float> value, In<"fromMin", Float> fromMin, In<"fromMax", Float> fromMax,
    In<"toMin", Float> toMin, In<"toMax", Float> toMax, In<"clamp", Bool> clamp)
{
    Float share = ShareBetween(value, fromMin, fromMax);
    if (clamp)
        share = Clamp01(share);
    return toMin * (1.0 - share) + toMax * share;
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.remap", Remap);

} // namespace velto::toolkit
