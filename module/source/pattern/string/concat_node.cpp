// Joins any number of strings.
#include "text.h"
#include "velto/node.h"

namespace velto::pattern
{

static void Concat(Out<"result", String> result, Variadic<"strings", String> strings)
{
    String joined;
    for (Int i = 0; i < strings.Count(); ++i)
        AppendOrDrop(joined, strings[i]);
    result = std::move(joined);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.string.concat", Concat);

} // namespace velto::pattern
