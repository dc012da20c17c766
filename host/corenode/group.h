// A core node as the host keeps it: its ports and the micro node that runs.
#pragma once

#include "velto/corenodes.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velto
{

// The micro node that stands for a port while its group is built; it holds the port's marks.
struct PortMicroNode : MicroNode
{
};

} // namespace velto

namespace velto::host
{

struct GroupPort
{
    std::string name;   // `.family#*` of a wildcard stands here as `family`
    std::string family; // of an element of a variadic port, else empty
    bool input = true;
    bool wildcard = false;
    UInt key = 0;
    Ref<const DataType> type;
    Int index = -1; // access index; -1: a wildcard
    PortMicroNode micronode{};
    bool mayStayUnwritten = false; // by a successful call

    Int32 Mark() const { return micronode.flags; }
};

struct HostGroup : MicroNodeGroup
{
    ~HostGroup();

    const GroupPort* FindPort(std::string_view name) const;

    Id id;
    std::vector<GroupPort> ports;                        // in order of declaration
    std::unordered_map<std::string, std::size_t> places; // of the ports, by name
    MicroNode* record = nullptr;
    bool hasSideEffect = false;
    bool isFinal = false;
    std::vector<std::string> arguments; // the names of those that its builder asked for, in order
    Optimizer optimizer = nullptr;
    std::vector<Int32> optimizerRows;

    // By access index.
    std::vector<const GroupPort*> access;
};

inline const HostGroup& AsHost(const Ref<MicroNodeGroup>& group)
{
    return *static_cast<const HostGroup*>(group.Get());
}

// The construction argument whose ids name the elements of a port; empty where they are numbered, or it has none.
std::string NamingArgument(const HostGroup& group, const GroupPort& port);

// Asks the group's optimizer, if it has one.
Result Optimize(const HostGroup& group, const OptimizeRequest& request, Optimization& answer);

const MicroNodeGroupInterface& GroupService();
const MicroNodeInterface& MicroNodeService();
const CoreNodeInstanceBaseInterface& CoreNodeInstanceService();
const CoreNodesLibInterface& CoreNodesLibService();

} // namespace velto::host
