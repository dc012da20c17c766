#include "describe.h"

#include "values.h"

#include "host/corenode/factory.h"
#include "host/corenode/group.h"
#include "host/registry/registry.h"

#include <algorithm>

namespace velto::host
{

namespace
{

// In the order of access; ports that stand for many come last.
std::vector<std::pair<const NodePort*, std::size_t>> InAccessOrder(const NodeType& type)
{
    std::vector<std::pair<const NodePort*, std::size_t>> ports;
    for (std::size_t i = 0; i < type.ports.size(); ++i)
        ports.emplace_back(&type.ports[i], i);
    std::stable_sort(ports.begin(), ports.end(), [](const auto& a, const auto& b) {
        const auto key = [](const NodePort& port) { return port.index < 0 ? INT64_MAX : port.index; };
        return key(*a.first) < key(*b.first);
    });
    return ports;
}

Json DescribePort(const NodePort& port)
{
    Json json = Json::Object();
    json.Add("name", port.name);
    json.Add("direction", port.input ? "in" : "out");
    json.Add("type", port.type ? TypeName(port.type.Get()) : std::string("bundle"));
    json.Add("label", port.label);
    if (!port.help.empty())
        json.Add("help", port.help);
    if (!port.input)
        return json;
    if (!port.group.empty())
        json.Add("group", port.group);
    if (!port.id.empty())
        json.Add("id", port.id);
    if (port.isVariadic || port.IsBundle())
        json.Add("variadic", true);
    json.Add("default", port.shownDefault);
    json.Add("min", port.minimum);
    json.Add("max", port.maximum);
    Json values = Json::Array();
    for (const std::string& value : port.values)
        values.Append(value);
    json.Add("values", std::move(values));
    if (port.IsBundle())
    {
        Json members = Json::Array();
        for (const NodePort& member : port.members)
            members.Append(DescribePort(member));
        json.Add("members", std::move(members));
    }
    return json;
}

} // namespace

Json DescribeCoreNode(const std::string& id, const NodeType& type)
{
    Json json = Json::Object();
    json.Add("id", id);
    Int kind = 1;
    if (const Data* const entry = FindEntry(registry::kCoreNodes.View(), id))
    {
        Ref<MicroNodeGroup> group;
        if (CreateGroup(*entry->As<CoreNodeFactory>(), {}, group).IsOk())
            kind = static_cast<Int>(AsHost(group).record->kind);
    }
    json.Add("kind", kind);
    json.Add("module", type.module);
    Json ports = Json::Array();
    for (const auto& [port, declared] : InAccessOrder(type))
    {
        Json entry = Json::Object();
        entry.Add("index", port->index);
        entry.Add("name", port->name);
        entry.Add("direction", port->input ? "in" : "out");
        entry.Add("type", TypeName(port->type.Get()));
        entry.Add("mark", Int(port->mark));
        entry.Add("declared", static_cast<Int>(declared));
        if (port->isVariadic)
            entry.Add("variadic", true);
        ports.Append(std::move(entry));
    }
    json.Add("ports", std::move(ports));
    return json;
}

Json DescribeNode(const NodeType& type)
{
    Json json = Json::Object();
    json.Add("id", type.id);
    json.Add("name", type.name);
    json.Add("label", type.label);
    json.Add("category", type.category);
    json.Add("module", type.module);
    json.Add("help", type.help);
    Json ports = Json::Array();
    for (const NodePort& port : type.ports)
        ports.Append(DescribePort(port));
    json.Add("ports", std::move(ports));
    if (type.buttons.empty())
        return json;
    Json buttons = Json::Array();
    for (const NodeButtons& group : type.buttons)
    {
        Json commands = Json::Array();
        for (const std::string& command : group.commands)
            commands.Append(command);
        Json entry = Json::Object();
        entry.Add("id", group.id);
        entry.Add("commands", std::move(commands));
        buttons.Append(std::move(entry));
    }
    json.Add("buttons", std::move(buttons));
    return json;
}

} // namespace velto::host
