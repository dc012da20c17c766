// Asks how two numbers stand to each other.
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

VELTO_INTERNED_ID(kNotEqual, "notequal");
VELTO_INTERNED_ID(kLess, "less");
VELTO_INTERNED_ID(kLessOrEqual, "lessorequal");
VELTO_INTERNED_ID(kGreater, "greater");
VELTO_INTERNED_ID(kGreaterOrEqual, "greaterorequal");

static Bool Compare(
    In<"a", Float> a, In<"b", Float> b, In<"relation", InternedId> relation, In<"tolerance", Float> tolerance)
{
    const bool isEqual = *a == *b || std::abs(a - b) <= *tolerance;
    if (*relation == kNotEqual)
        return !isEqual;
    if (*relation == kLess)
        return a < b && !isEqual;
    if (*relation == kLessOrEqual)
        return a < b || isEqual;
    if (*relation == kGreater)
        return a > b && !isEqual;
    if (*relation == kGreaterOrEqual)
        return a > b || isEqual;
    return isEqual;
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.compare", Compare);

} // namespace velto::toolkit
