// Converts an angle between radians and degrees.
#include "velto/node.h"

namespace velto::pattern
{

VELTO_INTERNED_ID(kRadToDeg, "radtodeg");
VELTO_INTERNED_ID(kDegToRad, "degtorad");

static constexpr Float kDegreesPerRadian = 57.29577951308232;
static constexpr Float kRadiansPerDegree = 0.017453292519943295;

static void ConvertDegrees(In<"value", Float> value, In<"mode", InternedId> mode, Optional<"result", Float> result)
{
    if (*mode == kRadToDeg)
        result = value * kDegreesPerRadian;
    else if (*mode == kDegToRad)
        result = value * kRadiansPerDegree;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.convertdegrees", ConvertDegrees);

} // namespace velto::pattern
