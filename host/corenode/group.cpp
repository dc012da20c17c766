#include "group.h"

#include "host/system/guard.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto
{

// Gives the ports of a group their places.
struct AccessBuilder
{
    host::HostGroup& group;
};

} // namespace velto

namespace velto::host
{

namespace
{

HostGroup& Host(MicroNodeGroup* group)
{
    return *static_cast<HostGroup*>(group);
}

Result CreatePort(MicroNodeGroup* self, UInt key, const char* name, Int32 flags, Int32, const DataType* type, Int32)
{
    return Guarded([&]() -> Result {
        HostGroup& group = Host(self);
        constexpr std::size_t kMostPorts = 20'000;
        VELTO_CHECK_STATE(!group.isFinal);
        VELTO_CHECK_ARGUMENT(name && *name && type);
        if (group.ports.size() >= kMostPorts)
            return MakeError(error::kIllegalArgument,
                fmt::format("The node {} would have more than {} ports.", group.id.View(), kMostPorts));
        VELTO_CHECK_ARGUMENT(flags == port_flags::kInput || flags == port_flags::kOutput);
        GroupPort port;
        port.name = name;
        port.input = flags == port_flags::kInput;
        port.key = key;
        port.type = Ref<const DataType>::Share(type);
        if (port.name.starts_with('.') && port.name.ends_with("#*"))
        {
            port.wildcard = true;
            port.name = port.name.substr(1, port.name.size() - 3);
            port.family = port.name;
        }
        else if (key == kKeyBit)
            port.family = port.name.substr(0, port.name.find_first_of("#["));
        if (group.FindPort(port.name))
            return MakeError(error::kIllegalArgument,
                fmt::format("The node {} would have the port {} twice.", group.id.View(), port.name));
        group.ports.push_back(std::move(port));
        group.places.emplace(group.ports.back().name, group.ports.size() - 1);
        return {};
    });
}

Result FindByKey(MicroNodeGroup* group, UInt key, GroupPort*& found)
{
    for (GroupPort& port : Host(group).ports)
    {
        if (port.key == key && key != kKeyBit)
        {
            found = &port;
            return {};
        }
    }
    return MakeError(error::kUnresolved, "There is no port of this key.");
}

Result PrivateGetMicroNode(MicroNodeGroup* group, UInt key, PortMicroNode** node)
{
    GroupPort* port = nullptr;
    VELTO_TRY(FindByKey(group, key, port));
    *node = &port->micronode;
    return {};
}

Result SetMayStayUnwritten(MicroNodeGroup* group, UInt key)
{
    GroupPort* port = nullptr;
    Result found = FindByKey(group, key, port);
    if (port)
        port->mayStayUnwritten = true;
    return found;
}

Result AddMicroNode(MicroNodeGroup* self, MicroNode* record)
{
    return Guarded([&]() -> Result {
        HostGroup& group = Host(self);
        if (group.record)
        {
            record->destructor(record);
            return MakeError(error::kIllegalState, "A group has one micro node.");
        }
        group.record = record;
        AccessBuilder builder{group};
        return record->access(record, &builder);
    });
}

Result DescribePortAccess(AccessBuilder* builder, Int index, UInt key, Int32 direction)
{
    for (GroupPort& port : builder->group.ports)
    {
        if (port.key == key && port.input == (direction == 0))
        {
            port.index = index;
            return {};
        }
    }
    return MakeError(error::kUnresolved, "An access index is given to a port that is not declared.");
}

Result ExportPortAccess(AccessBuilder* builder, Int first, const char* wildcard, UInt32)
{
    const std::string_view text(wildcard);
    VELTO_CHECK_ARGUMENT(text.size() > 3 && text.starts_with('.') && text.ends_with("#*"));
    const std::string_view family = text.substr(1, text.size() - 3);
    for (GroupPort& port : builder->group.ports)
    {
        if (port.family == family && !port.wildcard && first >= 0)
            port.index = first++;
    }
    return {};
}

Result Finalize(MicroNodeGroup* self)
{
    return Guarded([&]() -> Result {
        HostGroup& group = Host(self);
        VELTO_CHECK_STATE(group.record && !group.isFinal);
        const auto elements =
            std::count_if(group.ports.begin(), group.ports.end(), [](const GroupPort& port) { return !port.wildcard; });
        group.access.assign(static_cast<std::size_t>(elements), nullptr);
        for (const GroupPort& port : group.ports)
        {
            if (port.wildcard)
                continue;
            const bool isFree =
                port.index >= 0 && port.index < elements && !group.access[static_cast<std::size_t>(port.index)];
            if (!isFree)
                return MakeError(error::kIllegalState,
                    fmt::format("The port {} of {} has no access index of its own.", port.name, group.id.View()));
            group.access[static_cast<std::size_t>(port.index)] = &port;
        }
        VELTO_CHECK_STATE(group.record->portCount == group.access.size());
        group.isFinal = true;
        return {};
    });
}

// The optimizer of all groups that have a table.
Result OptimizeByTable(const HostGroup& group, const OptimizeRequest& request, Optimization& answer)
{
    for (std::size_t row = 0; row + 3 < group.optimizerRows.size(); row += 4)
    {
        const Int32* const fields = &group.optimizerRows[row];
        const auto* const value = static_cast<const Bool*>(request.constants[fields[0]]);
        if (value && *value == (fields[1] != 0))
        {
            answer.kind = Optimization::Kind::TakeInput;
            answer.input = fields[2];
            return {};
        }
    }
    return {};
}

} // namespace

HostGroup::~HostGroup()
{
    if (record)
        record->destructor(record);
}

const GroupPort* HostGroup::FindPort(std::string_view name) const
{
    const auto found = places.find(std::string(name));
    return found == places.end() ? nullptr : &ports[found->second];
}

std::string NamingArgument(const HostGroup& group, const GroupPort& port)
{
    // A number of elements goes by the port's own name.
    const auto& names = group.arguments;
    if (!port.wildcard || std::find(names.begin(), names.end(), port.name) != names.end())
        return {};
    const auto found =
        std::find_if(names.begin(), names.end(), [&](const std::string& name) { return !group.FindPort(name); });
    return found == names.end() ? std::string() : *found;
}

Result Optimize(const HostGroup& group, const OptimizeRequest& request, Optimization& answer)
{
    if (group.optimizer)
        return group.optimizer(&request, &answer);
    return OptimizeByTable(group, request, answer);
}

const MicroNodeGroupInterface& GroupService()
{
    static constexpr MicroNodeGroupInterface service{
        .Alloc = {+[](MicroNodeGroup** group) -> Result {
            *group = NewObject<HostGroup>();
            return *group ? Result() : OutOfMemory();
        }},
        .SetId = {+[](MicroNodeGroup* group, const Id& id) -> Result {
            Host(group).id = id;
            return {};
        }},
        .PrivateCreatePort = {&CreatePort},
        .PrivateGetMicroNode = {&PrivateGetMicroNode},
        .AddMicroNode = {&AddMicroNode},
        .PrivateFinalize = {&Finalize},
    };
    return service;
}

const MicroNodeInterface& MicroNodeService()
{
    static constexpr MicroNodeInterface service{
        .GetImplementation = {+[](PortMicroNode* node, MicroNode** implementation) -> Result {
            *implementation = node;
            return {};
        }},
        .PrivateDescribePortAccess = {&DescribePortAccess},
        .PrivateExportPortAccess = {&ExportPortAccess},
    };
    return service;
}

const CoreNodeInstanceBaseInterface& CoreNodeInstanceService()
{
    static constexpr CoreNodeInstanceBaseInterface service{
        .InitFactory = {+[](MicroNodeGroup* group, Bool hasSideEffect) -> Result {
            Host(group).hasSideEffect = hasSideEffect;
            return {};
        }},
    };
    return service;
}

const CoreNodesLibInterface& CoreNodesLibService()
{
    static constexpr CoreNodesLibInterface service{
        .SetOptimizer = {+[](MicroNodeGroup* group, Optimizer optimizer) -> Result {
            Host(group).optimizer = optimizer;
            return {};
        }},
        .CreateOptimizer = {+[](MicroNodeGroup* group, const Int32* rows, Int32 rowCount) {
            return Guarded([&]() -> Result {
                Host(group).optimizerRows.assign(rows, rows + 4 * rowCount);
                return {};
            });
        }},
        .SetMayStayUnwritten = {&SetMayStayUnwritten},
    };
    return service;
}

} // namespace velto::host
