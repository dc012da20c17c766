// Replaces nodes by simpler ones, or by one of their inputs.
#include "settle.h"

#include "host/registry/datatypes.h"
#include "velto/function.h"

namespace velto::host
{

namespace
{

// Stands for a function while optimizers ask about it.
struct ProbeFunction : FunctionInterface
{
    explicit ProbeFunction(bool constantAnswer) : answersConstantly(constantAnswer)
    {
        invoke = [](const FunctionInterface*, void*, const ShadingContext*, Data*) {
            return MakeError(error::kIllegalState, "A function has no value before the program is complete.");
        };
        isConstant = [](const FunctionInterface* self) -> Bool {
            return static_cast<const ProbeFunction*>(self)->answersConstantly;
        };
        references = kImmortal;
    }
    bool answersConstantly;
};

// That the node's replacement rests on the values that its optimizer saw.
void NoteValues(GraphNode& node, const std::vector<const void*>& constants)
{
    for (std::size_t i = 0; i < constants.size(); ++i)
    {
        const CoreInput* const source = node.inputs[i].source;
        if (constants[i] && source && !source->origin.empty())
            node.restsOn.insert(source->origin);
    }
}

// Puts the group of an answer in the place of the node's, with its links.
Result SwapGroup(GraphNode& node, Optimization& answer)
{
    const HostGroup& group = AsHost(answer.group);
    std::vector<GraphInput> inputs(group.access.size());
    std::vector<Int> newOutputs(static_cast<std::size_t>(node.PortCount()), -1);
    for (UInt32 i = 0; i < answer.linkCount; ++i)
    {
        const auto [replacement, original] = answer.links[i];
        if (replacement < 0 || replacement >= static_cast<Int>(group.access.size()) || original < 0 ||
            original >= node.PortCount())
            return Fault(node, "its optimizer links a port that does not exist");
        if (node.Port(original).input)
            inputs[static_cast<std::size_t>(replacement)] = node.inputs[static_cast<std::size_t>(original)];
        else
            newOutputs[static_cast<std::size_t>(original)] = replacement;
    }
    // A second replacement starts from the ports of the first.
    if (node.newOutputs.empty())
        node.newOutputs = std::move(newOutputs);
    else
    {
        for (Int& output : node.newOutputs)
            output = output < 0 ? -1 : newOutputs[static_cast<std::size_t>(output)];
    }
    node.inputs = std::move(inputs);
    node.group = std::move(answer.group);
    return {};
}

} // namespace

Result SimplifyNode(const SettledGraph& graph, const CompileOptions& options, GraphNode& node)
{
    for (int rounds = 0; rounds < 16; ++rounds)
    {
        const ProbeFunction constant(true);
        const ProbeFunction varying(false);
        ColorAFunction functions[2] = {
            {Ref<const FunctionInterface>::Share(&constant)}, {Ref<const FunctionInterface>::Share(&varying)}};
        std::vector<const void*> constants(static_cast<std::size_t>(node.PortCount()), nullptr);
        for (Int i = 0; i < node.PortCount(); ++i)
        {
            const GraphInput& input = node.inputs[static_cast<std::size_t>(i)];
            if (!node.Port(i).input || input.kind == GraphInput::Kind::Default)
                continue;
            const bool isVariable = input.source && options.variable.contains(input.source->origin);
            if (FunctionResultType(node.Port(i).type.Get()))
            {
                if (!input.source || !input.source->connected)
                    continue; // its node may do other than take the default
                const bool isConstant =
                    !isVariable && (input.kind == GraphInput::Kind::Value || graph.IsFixedSource(input.link));
                constants[static_cast<std::size_t>(i)] = &functions[isConstant ? 0 : 1];
            }
            else if (input.kind == GraphInput::Kind::Value && input.source && !isVariable)
                constants[static_cast<std::size_t>(i)] = input.source->value.Value();
        }
        const OptimizeRequest request{node.Group().record, static_cast<UInt32>(node.PortCount()), constants.data()};
        Optimization answer;
        VELTO_TRY(Optimize(node.Group(), request, answer));
        if (answer.kind == Optimization::Kind::Keep)
            return {};
        NoteValues(node, constants);
        if (answer.kind == Optimization::Kind::TakeInput)
        {
            if (answer.input < 0 || answer.input >= node.PortCount() || !node.Port(answer.input).input)
                return Fault(node, "its optimizer names an input that it does not have");
            node.takesInput = answer.input;
            return {};
        }
        VELTO_TRY(SwapGroup(node, answer));
    }
    return Fault(node, "its optimizers replace each other without end");
}

} // namespace velto::host
