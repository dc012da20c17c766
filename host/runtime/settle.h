// A core graph on its way to a program: its nodes with their groups and links, simplified, and what is fixed.
#pragma once

#include "program.h"

#include <optional>

namespace velto::host
{

struct OutputOf
{
    std::size_t node;
    Int port; // access index
};

struct GraphInput
{
    enum class Kind
    {
        Default, // of its type, or the context of the body, or no function
        Value,
        Link,
    };
    Kind kind = Kind::Default;
    const CoreInput* source = nullptr;
    OutputOf link{};
};

enum class Visit : std::uint8_t
{
    New,
    Open,
    Done,
};

struct GraphNode
{
    const CoreNode* source = nullptr;
    Ref<MicroNodeGroup> group;
    std::vector<GraphInput> inputs; // by access index; entries of outputs are not used
    std::vector<Int> newOutputs;    // after a replacement: by old access index, the new one
    Visit visit = Visit::New;
    bool isFixed = false;
    std::set<std::string> restsOn; // origins of the values by which it was replaced
    Int takesInput = -1;           // the input that stands for the node's outputs
    std::set<Int> usedPorts;       // outputs that something reads
    Int setupCall = -1;
    std::vector<UInt32> setupPorts; // of a fixed node: offsets of its outputs in the setup's store

    const HostGroup& Group() const { return AsHost(group); }
    const GroupPort& Port(Int i) const { return *Group().access[static_cast<std::size_t>(i)]; }
    Int PortCount() const { return static_cast<Int>(Group().access.size()); }
};

// A small document can ask for a vast program: by counts of elements, or by function-valued inputs that each repeat
// what is upstream of them.
inline constexpr UInt kMaxSlots = 8'000'000;

struct SettledGraph
{
    std::vector<GraphNode> nodes;
    std::vector<std::optional<OutputOf>> outputs; // empty: a plain value

    // Follows replacements of the node at the end of a link: it may be another output, another node, or a plain input.
    // Null: `link` leads to an output.
    const GraphInput* Resolve(OutputOf& link) const;

    // Whether the end of a link gives the same for every sample.
    bool IsFixedSource(OutputOf link) const;
};

Result Fault(const GraphNode& node, std::string_view text);

// Adds the ports of a node to `slots`.
Result CountSlots(const GraphNode& node, UInt& slots);

// Makes the nodes and decides, upstream first, what replaces each and whether it is fixed.
Result SettleGraph(const CoreGraph& graph, const CompileOptions& options, SettledGraph& settled);

// Asks the node's optimizer, and those of what it answers, until one keeps its node.
Result SimplifyNode(const SettledGraph& graph, const CompileOptions& options, GraphNode& node);

} // namespace velto::host
