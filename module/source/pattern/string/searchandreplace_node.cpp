// Replaces one text by another throughout a string.
#include "text.h"
#include "velto/node.h"

namespace velto::pattern
{

static Result SearchAndReplace(In<"string", String> string, In<"search", String> search, In<"replace", String> replace,
    Out<"result", String> result)
{
    String copy = Part(*string, 0, PartEnd::End(-1));
    if (!copy)
        return NullptrError();
    StringObject* changed = copy.Detach();
    Result replaced = Bound<StringInterface>().Replace(&changed, OrEmpty(*search).Get(), OrEmpty(*replace).Get());
    copy = String::Adopt(changed);
    VELTO_TRY(std::move(replaced));
    result = std::move(copy);
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.string.searchandreplace", SearchAndReplace);

} // namespace velto::pattern
