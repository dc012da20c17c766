// Cuts a string to a number of characters.
#include "text.h"
#include "velto/node.h"

namespace velto::pattern
{

static constexpr Int kMaxCount = 0x3fffffffffffffff; // what fits the word of a part's end

static String Truncate(In<"string", String> string, In<"count", Int> count)
{
    return Part(*string, 0, PartEnd::Count(Min(Max<Int>(*count, 0), kMaxCount)));
}

VELTO_CORE_NODE("net.velto.pattern.corenode.string.truncate", Truncate);

} // namespace velto::pattern
