#include "settle.h"

#include "host/corenode/factory.h"
#include "host/corenode/forward.h"
#include "host/registry/datatypes.h"
#include "host/registry/dictionary.h"
#include "host/registry/registry.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

namespace velto::host
{

Result Fault(const GraphNode& node, std::string_view text)
{
    return MakeError(error::kIllegalArgument, fmt::format("nodes.{}: {}", node.source->name, text));
}

Result CountSlots(const GraphNode& node, UInt& slots)
{
    slots += static_cast<UInt>(node.PortCount());
    if (slots > kMaxSlots)
        return Fault(node, fmt::format("the program has more than {} ports up to this node", kMaxSlots));
    return {};
}

const GraphInput* SettledGraph::Resolve(OutputOf& link) const
{
    for (;;)
    {
        const GraphNode& node = nodes[link.node];
        if (node.takesInput >= 0)
        {
            const GraphInput& input = node.inputs[static_cast<std::size_t>(node.takesInput)];
            if (input.kind != GraphInput::Kind::Link)
                return &input;
            link = input.link;
            continue;
        }
        if (!node.newOutputs.empty() && link.port < static_cast<Int>(node.newOutputs.size()))
            link.port = node.newOutputs[static_cast<std::size_t>(link.port)];
        return nullptr;
    }
}

bool SettledGraph::IsFixedSource(OutputOf link) const
{
    if (const GraphInput* const input = Resolve(link))
        return input->kind == GraphInput::Kind::Value;
    return nodes[link.node].isFixed;
}

namespace
{

class Settler
{
public:
    Settler(const CoreGraph& source, const CompileOptions& options, SettledGraph& settled)
        : source_(source), options_(options), settled_(settled)
    {
    }

    Result Run()
    {
        VELTO_TRY(MakeNodes());
        for (std::size_t i = 0; i < settled_.nodes.size(); ++i)
            VELTO_TRY(Settle(i));
        return {};
    }

private:
    Result MakeNodes()
    {
        settled_.nodes.resize(source_.nodes.size());
        for (std::size_t i = 0; i < settled_.nodes.size(); ++i)
        {
            GraphNode& node = settled_.nodes[i];
            node.source = &source_.nodes[i];
            VELTO_TRY(MakeGroup(node));
            VELTO_TRY(CountSlots(node, slots_));
            node.inputs.resize(static_cast<std::size_t>(node.PortCount()));
        }
        for (GraphNode& node : settled_.nodes)
        {
            for (const auto& [name, given] : node.source->inputs)
                VELTO_TRY(LinkInput(node, name, given));
        }
        // By the ports of the nodes as they are now: replacements are looked through later.
        for (const CoreOutput& output : source_.outputs)
        {
            settled_.outputs.emplace_back();
            if (output.source.link)
                VELTO_TRY(FindOutput(output.name, *output.source.link, settled_.outputs.back().emplace()));
        }
        return {};
    }

    Result MakeGroup(GraphNode& node)
    {
        if (node.source->forwarded)
            return MakeForwardGroup(node.source->forwarded.Get(), node.group);
        const Data* const entry = FindEntry(registry::kCoreNodes.View(), node.source->type);
        const CoreNodeFactory* const factory = entry ? entry->As<CoreNodeFactory>() : nullptr;
        if (!factory)
            return Fault(node, fmt::format("there is no core node {}", node.source->type));
        Result made = CreateGroup(*factory, node.source->arguments, node.group);
        const bool isItsFault = made.IsError() && made.Kind() != error::kOutOfMemory.View();
        return isItsFault ? Fault(node, made.Message()) : made;
    }

    Result LinkInput(GraphNode& node, const std::string& name, const CoreInput& given)
    {
        const GroupPort* const port = node.Group().FindPort(name);
        if (!port || !port->input || port->index < 0)
            return Fault(node, fmt::format("there is no input {}", name));
        GraphInput& input = node.inputs[static_cast<std::size_t>(port->index)];
        input.source = &given;
        if (given.link)
        {
            input.kind = GraphInput::Kind::Link;
            VELTO_TRY(FindOutput(node.source->name, *given.link, input.link));
        }
        else if (!given.value.IsEmpty())
            input.kind = GraphInput::Kind::Value;
        return {};
    }

    Result FindOutput(const std::string& reader, const CorePort& from, OutputOf& found)
    {
        if (from.node >= settled_.nodes.size())
            return MakeError(error::kIllegalArgument, fmt::format("{}: a link leads to no node", reader));
        const GroupPort* const port = settled_.nodes[from.node].Group().FindPort(from.port);
        if (!port || port->input)
            return MakeError(error::kIllegalArgument,
                fmt::format("{}: {} has no output {}", reader, settled_.nodes[from.node].source->name, from.port));
        found = {from.node, port->index};
        return {};
    }
    Result Settle(std::size_t index)
    {
        // An explicit stack: a chain may be as long as a document.
        std::vector<std::size_t> open{index};
        while (!open.empty())
        {
            GraphNode& node = settled_.nodes[open.back()];
            if (node.visit == Visit::Done)
            {
                open.pop_back();
                continue;
            }
            const bool isFirstVisit = node.visit == Visit::New;
            node.visit = Visit::Open;
            bool isReady = true;
            for (const GraphInput& input : node.inputs)
            {
                if (input.kind != GraphInput::Kind::Link || settled_.nodes[input.link.node].visit == Visit::Done)
                    continue;
                if (settled_.nodes[input.link.node].visit == Visit::Open &&
                    (isFirstVisit || input.link.node == open.back()))
                    return Fault(node, "the links form a cycle");
                if (settled_.nodes[input.link.node].visit == Visit::New)
                {
                    open.push_back(input.link.node);
                    isReady = false;
                }
            }
            if (!isReady)
                continue;
            VELTO_TRY(SimplifyNode(settled_, options_, settled_.nodes[open.back()]));
            node.isFixed = IsFixed(node);
            node.visit = Visit::Done;
            open.pop_back();
        }
        return {};
    }
    // Whether an input gives the same for every sample.
    bool IsFixedInput(const GraphNode& node, Int i) const
    {
        const GroupPort& port = node.Port(i);
        const GraphInput& input = node.inputs[static_cast<std::size_t>(i)];
        if (!port.input || FunctionResultType(port.type.Get()))
            return true;
        if (input.kind == GraphInput::Kind::Link)
            return settled_.IsFixedSource(input.link);
        return port.type.Get() != TypeOf<ShadingContext>();
    }

    bool IsFixed(const GraphNode& node) const
    {
        if (node.Group().hasSideEffect)
            return false;
        for (Int i = 0; i < node.PortCount(); ++i)
        {
            if (!IsFixedInput(node, i))
                return false;
        }
        return true;
    }

    const CoreGraph& source_;
    const CompileOptions& options_;
    SettledGraph& settled_;
    UInt slots_ = 0;
};

} // namespace

Result SettleGraph(const CoreGraph& graph, const CompileOptions& options, SettledGraph& settled)
{
    return Settler(graph, options, settled).Run();
}

} // namespace velto::host
