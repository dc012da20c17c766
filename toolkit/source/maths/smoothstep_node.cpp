// Rises from 0 to 1 between two values.
#include "numbers.h"
#include "velto/node.h"

namespace velto::toolkit
{

VELTO_INTERNED_ID(kLinear, "linear");
VELTO_INTERNED_ID(kSmoother, "smoother");

static Float SmoothStep(
    In<"value", Float> value, In<"from", Float> from, In<"to", Float> to, In<"curve", InternedId> curve)
{
    const Float t = Clamp01(ShareBetween(value, from, to));
    if (*curve == kLinear)
        return t;
    if (*curve == kSmoother)
        return t * t * t * (t * (t * 6.0 - 15.0) + 10.0);
    return t * t * (3.0 - 2.0 * t);
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.smoothstep", SmoothStep);

} // namespace velto::toolkit
