// The nodes framework: roots with trees of ports, attributes and wires, as the module's graph functions build them.
#pragma once

#include "json.h"

#include "velto/graph.h"

#include <map>
#include <string>
#include <vector>

namespace velto::host
{

struct GraphPort
{
    std::string name;
    Int parent = -1;
    std::vector<Int> children;                            // in order of adding
    std::vector<std::pair<std::string, Data>> attributes; // in order of first setting
};

struct GraphWire
{
    Int from = -1;
    Int to = -1;
    WireMode mode = 0;
};

struct HostNodeSystem : NodeSystemObject
{
    static constexpr Int kInputs = 0;
    static constexpr Int kOutputs = 1;

    std::vector<GraphPort> ports; // the lists of inputs and outputs first
    std::vector<GraphWire> wires;
    Int commits = 0;
};

// A new empty graph; null without memory.
NodeSystem MakeNodeSystem();

inline const HostNodeSystem& AsHost(const NodeSystem& system)
{
    return *static_cast<const HostNodeSystem*>(system.Get());
}

// `inputs.gradient._0`.
std::string PortPath(const HostNodeSystem& system, Int port);

// An attribute of a port, or null.
const Data* FindAttribute(const HostNodeSystem& system, Int port, const Id& attribute);

// The root's ports, attributes and wires.
Json DescribeNodeSystem(const HostNodeSystem& system);

// The child of that name, added if there is none.
Result AddPort(const MutablePort& parent, std::string_view name, MutablePort& added);

// Publishes what modules make graphs with.
Result PublishNodeSystemClass();

const NodeGraphInterface& NodeGraphService();
const NodesLibInterface& NodesLibService();
const NodePathInterface& NodePathService();

} // namespace velto::host
