// Chooses one of any number of colours.
#include "velto/node.h"

namespace velto::toolkit
{

static ColorA Choose(In<"index", Int> index, Variadic<"in", ColorA> in)
{
    return in.Count() > 0 ? in[Min(Max<Int>(*index, 0), in.Count() - 1)] : kTransparentBlack;
}

static constexpr Int kFirstElement = 2; // access index of in[0], behind `index` and `result`

// An index that is the same for every sample: its element stands for the node, and the others are not evaluated.
static Result TakeElement(const OptimizeRequest* request, Optimization* answer)
{
    const auto* const index = static_cast<const Int*>(request->constants[0]);
    const Int count = static_cast<Int>(request->portCount) - kFirstElement;
    if (!index || count <= 0)
        return {};
    answer->kind = Optimization::Kind::TakeInput;
    answer->input = static_cast<Int32>(Min(Max<Int>(*index, 0), count - 1) + kFirstElement);
    return {};
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.choose", Choose, .optimizer = &TakeElement);

} // namespace velto::toolkit
