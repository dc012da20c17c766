// Random values that depend on two seeds alone.
#include "randomvalues.h"

namespace velto::pattern
{

static void Hash(In<"seed", Int> seed, In<"salt", Int> salt, In<"minimum", Float> minimum, In<"maximum", Float> maximum,
    RandomOutputs outputs)
{
    const UInt32 s = IntegerHash32(static_cast<UInt32>(*seed) + static_cast<UInt32>(*salt));
    outputs = RandomValues(RandomStream(s), minimum, maximum);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.hash", Hash);

} // namespace velto::pattern
