#include "describe.h"

#include "host/corenode/factory.h"
#include "host/corenode/group.h"
#include "host/graph/values.h"
#include "host/registry/registry.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::cli
{

using host::Json;
using host::NodePort;
using host::NodeType;

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
    json.Add("type", port.type ? host::TypeName(port.type.Get()) : std::string("bundle"));
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

// A value as documents may write it: its last word, where no other value has that one.
std::string ShortValue(const std::string& value, const std::vector<std::string>& values)
{
    const std::string word = value.substr(value.rfind('.') + 1);
    return host::FindValue(word, values) == value ? word : value;
}

// The values of an enumeration, with labels where the word alone does not say what it means.
std::string DescribeValues(const NodePort& port)
{
    std::vector<std::string> values;
    for (std::size_t i = 0; i < port.values.size(); ++i)
    {
        std::string value = ShortValue(port.values[i], port.values);
        const bool isNumber = value.find_first_not_of("0123456789") == value.npos;
        if (isNumber && i < port.valueLabels.size() && !port.valueLabels[i].empty())
            value += fmt::format(" ({})", port.valueLabels[i]);
        values.push_back(std::move(value));
    }
    return fmt::format("{}", fmt::join(values, " | "));
}

} // namespace

Json DescribeCoreNode(const std::string& id, const NodeType& type)
{
    Json json = Json::Object();
    json.Add("id", id);
    Int kind = 1;
    if (const Data* const entry = host::FindEntry(registry::kCoreNodes.View(), id))
    {
        Ref<MicroNodeGroup> group;
        if (host::CreateGroup(*entry->As<CoreNodeFactory>(), {}, group).IsOk())
            kind = static_cast<Int>(host::AsHost(group).record->kind);
    }
    json.Add("kind", kind);
    Json ports = Json::Array();
    for (const auto& [port, declared] : InAccessOrder(type))
    {
        Json entry = Json::Object();
        entry.Add("index", port->index);
        entry.Add("name", port->name);
        entry.Add("direction", port->input ? "in" : "out");
        entry.Add("type", host::TypeName(port->type.Get()));
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
    json.Add("help", type.help);
    Json ports = Json::Array();
    for (const NodePort& port : type.ports)
        ports.Append(DescribePort(port));
    json.Add("ports", std::move(ports));
    if (type.buttons.empty())
        return json;
    Json buttons = Json::Array();
    for (const host::NodeButtons& group : type.buttons)
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

std::string Wrapped(std::string_view text, std::size_t indent, std::size_t width)
{
    std::string lines;
    std::size_t column = 0;
    while (!text.empty())
    {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (column == 0)
            lines.append(indent, ' ');
        else if (width > 0 && indent + column + 1 + end > width)
        {
            lines.append("\n").append(indent, ' ');
            column = 0;
        }
        else
        {
            lines += ' ';
            ++column;
        }
        lines += text.substr(0, end);
        column += end;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines + "\n";
}

std::string DescribeForPeople(const NodeType& type, std::size_t width)
{
    std::string text = type.label.empty() ? type.id + "\n" : fmt::format("{} ({})\n", type.label, type.id);
    if (!type.help.empty())
        text += Wrapped(type.help, 0, width);
    const auto list = [&](const NodePort& port, std::size_t indent) {
        std::string line = fmt::format("{:{}}{:<24} {:<18}", "", indent, port.name + (port.isVariadic ? "[]" : ""),
            port.type ? host::TypeName(port.type.Get()) : "bundle[]");
        if (!port.shownDefault.IsNull())
            line += " = " + port.shownDefault.Write();
        if (!port.minimum.IsNull() || !port.maximum.IsNull())
            line += fmt::format("  [{} to {}]", port.minimum.IsNull() ? "" : port.minimum.Write(),
                port.maximum.IsNull() ? "" : port.maximum.Write());
        while (line.ends_with(' '))
            line.pop_back();
        text += line + "\n";
        if (!port.help.empty())
            text += Wrapped(port.help, indent + 4, width);
        if (!port.values.empty())
            text += Wrapped(DescribeValues(port), indent + 4, width);
    };
    for (const bool input : {true, false})
    {
        text += input ? "inputs\n" : "outputs\n";
        for (const NodePort& port : type.ports)
        {
            if (port.input != input)
                continue;
            list(port, 2);
            for (const NodePort& member : port.members)
                list(member, 4);
        }
    }
    return text;
}

} // namespace velto::cli
