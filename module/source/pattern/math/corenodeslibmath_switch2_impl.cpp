// Chooses between whole shading contexts, by a condition or by an index.
#include "velto/node.h"

namespace velto::pattern
{

// The condition as the byte that it is: any but 1 chooses the alternative.
struct Condition
{
    static constexpr ParameterKind kKind = ParameterKind::Ports;
    static constexpr auto kPorts = In<"in[0]", Bool>::kPorts;
    static Condition Read(const PortReader& reader, Int index, UInt32)
    {
        return {*static_cast<const std::uint8_t*>(reader.Value(index)) == 1};
    }

    bool holds;
};

static void If(Condition condition, In<"in[1]", ShadingContext> chosen, In<"in[2]", ShadingContext> otherwise,
    Out<"out", ShadingContext> out)
{
    CopyContext(*out, condition.holds ? *chosen : *otherwise);
}

// Input, its constant, the input that then stands for the node.
static constexpr Int32 kIfRows[] = {
    0, 0, 2, -1, //
    0, 1, 1, -1, //
};

VELTO_BATCH_NODE("net.velto.corenode.if<net.velto.render.datatype.shadingcontext>", If, .optimizerRows = kIfRows,
    .optimizerRowCount = 2);

static constexpr Int kFirstElement = 2; // access index of in[0], behind `index` and `out`

static void SwitchSingle(In<"index", Int> index, Optional<"out", ShadingContext> out, Variadic<"in", ShadingContext> in)
{
    if (in.Count() <= 0)
        return;
    CopyContext(*out, in[Min(Max<Int>(*index, 0), in.Count() - 1)]);
}

// An index that is the same for every sample: its element stands for the node.
static Result TakeConstantElement(const OptimizeRequest* request, Optimization* answer)
{
    const auto* const index = static_cast<const Int*>(request->constants[0]);
    if (!index || *index < 0 || *index >= static_cast<Int>(request->portCount) - kFirstElement)
        return {};
    answer->kind = Optimization::Kind::TakeInput;
    answer->input = static_cast<Int32>(*index + kFirstElement);
    return {};
}

VELTO_CORE_NODE("net.velto.corenode.switchsingle<net.velto.render.datatype.shadingcontext>", SwitchSingle,
    .optimizer = &TakeConstantElement);

} // namespace velto::pattern
