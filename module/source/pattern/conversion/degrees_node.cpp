// Converts an angle between radians and degrees.
#include "velto/node.h"

#include <numbers>

namespace velto::pattern
{

VELTO_INTERNED_ID(kRadToDeg, "radtodeg");
VELTO_INTERNED_ID(kDegToRad, "degtorad");

static constexpr Float kDegreesPerRadian = 180.0 / std::numbers::pi;
static constexpr Float kRadiansPerDegree = std::numbers::pi / 180.0;

static void ConvertDegrees(In<"value", Float> value, In<"mode", InternedId> mode, Optional<"result", Float> result)
{
    if (*mode == kRadToDeg)
        result = value * kDegreesPerRadian;
    else if (*mode == kDegToRad)
        result = value * kRadiansPerDegree;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.convertdegrees", ConvertDegrees);

} // namespace velto::pattern
