// Cuts a part out of a string.
#include "text.h"
#include "velto/node.h"

namespace velto::pattern
{

static Result Substring(
    In<"string", String> string, In<"start", Int> start, In<"count", Int> count, Out<"result", String> result)
{
    const Int length = Length(*string);
    const Int first = Min(Max<Int>(*start, 0), length);
    // No count reaches further than the string's end, so that the sum stays in range.
    const Int end = Min(Max<Int>(Min(*count, length) + first, 0), length);
    String part = *string ? Part(*string, first, PartEnd::End(end)) : String();
    if (!part && end > first)
        return OutOfMemory();
    result = std::move(part);
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.string.substr", Substring);

} // namespace velto::pattern
