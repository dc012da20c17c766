// Puts a string between two others.
#include "text.h"
#include "velto/node.h"

namespace velto::pattern
{

static String PrefixSuffix(In<"string", String> string, In<"prefix", String> prefix, In<"suffix", String> suffix)
{
    String joined = *prefix;
    AppendOrDrop(joined, *string);
    AppendOrDrop(joined, *suffix);
    return joined;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.string.prefixsuffix", PrefixSuffix);

} // namespace velto::pattern
