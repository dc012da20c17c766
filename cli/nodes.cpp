#include "nodes.h"

#include "describe.h"

#include "host/registry/registry.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

namespace velto::cli
{

using host::Json;

namespace
{

std::string_view FirstSentence(std::string_view text)
{
    return text.substr(0, std::min(text.find(". "), text.size() - 1) + 1);
}

int DescribeOne(const NodesArguments& arguments, const Streams& streams, host::NodeCatalog& catalog)
{
    host::Diagnostics diagnostics;
    const host::NodeType* const type = catalog.Find(arguments.id, {}, arguments.id, diagnostics);
    if (!type)
    {
        PrintDiagnostics(streams, "nodes", diagnostics);
        return kWrongInput;
    }
    if (!arguments.json)
        streams.out << DescribeForPeople(*type);
    else if (type->isDescribed)
        streams.out << DescribeNode(*type).Write(true) << '\n';
    else
        streams.out << DescribeCoreNode(arguments.id, *type).Write(true) << '\n';
    return kSuccess;
}

void ListCore(const NodesArguments& arguments, const Streams& streams, const host::NodeCatalog& catalog)
{
    Json list = Json::Array();
    for (const std::string& id : host::EntryNames(registry::kCoreNodes.View()))
    {
        const std::shared_ptr<const host::NodeType> type = catalog.Core(id);
        if (!type)
            continue;
        if (arguments.json)
            list.Append(DescribeCoreNode(id, *type));
        else
            streams.out << id << '\n';
    }
    if (arguments.json)
        streams.out << list.Write(true) << '\n';
}

void ListDescribed(const NodesArguments& arguments, const Streams& streams, const host::NodeCatalog& catalog)
{
    Json list = Json::Array();
    for (const auto& type : catalog.Described())
    {
        if (arguments.json)
            list.Append(DescribeNode(*type));
        else
            streams.out << fmt::format("{:<24} {:<12} {}\n", type->name, type->category, FirstSentence(type->help));
    }
    if (arguments.json)
        streams.out << list.Write(true) << '\n';
}

} // namespace

int Nodes(const NodesArguments& arguments, const Streams& streams)
{
    std::shared_ptr<host::Module> module;
    if (!LoadModule(arguments.module, streams, module))
        return kFailed;
    host::NodeCatalog catalog;
    if (!arguments.id.empty())
        return DescribeOne(arguments, streams, catalog);
    if (arguments.core)
        ListCore(arguments, streams, catalog);
    else
        ListDescribed(arguments, streams, catalog);
    return kSuccess;
}

} // namespace velto::cli
