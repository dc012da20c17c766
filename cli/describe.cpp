#include "describe.h"

#include "host/graph/values.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::cli
{

using host::NodePort;
using host::NodeType;

namespace
{

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
    if (!type.module.empty())
        text += fmt::format("module {}\n", type.module);
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
