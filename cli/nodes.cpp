#include "nodes.h"

#include "describe.h"

#include "host/graph/describe.h"
#include "host/registry/registry.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <ostream>
#include <sstream>

namespace velto::cli
{

using host::Json;

namespace
{

std::string_view FirstSentence(std::string_view text)
{
    return text.substr(0, std::min(text.find(". "), text.size() - 1) + 1);
}

std::size_t TerminalWidth()
{
    winsize size{};
    return isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void Describe(
    const NodesArguments& arguments, const Streams& streams, const std::string& id, const host::NodeType& type)
{
    if (!arguments.json)
        streams.out << DescribeForPeople(type, TerminalWidth());
    else if (type.isDescribed)
        streams.out << host::DescribeNode(type).Write(true) << '\n';
    else
        streams.out << host::DescribeCoreNode(id, type).Write(true) << '\n';
}

int DescribeDocument(const std::string& file, const NodesArguments& arguments, const Streams& streams,
    const std::shared_ptr<host::NodeCatalog>& catalog)
{
    host::Diagnostics diagnostics;
    std::vector<std::string> libraries = arguments.libraries;
    AddLibraries(libraries);
    const std::shared_ptr<const host::NodeType> type =
        host::ReadDocumentType(file, catalog, {{}, {}, libraries}, diagnostics);
    PrintDiagnostics(streams, file, diagnostics);
    if (!type)
        return kWrongInput;
    Describe(arguments, streams, file, *type);
    return kSuccess;
}

std::string LowerCase(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return lower;
}

// The text of a node that is searched: everything that people read of it.
std::string SearchText(const host::NodeType& type)
{
    std::string text = fmt::format("{} {} {} {} {}", type.id, type.label, type.category, type.help, type.keywords);
    for (const host::NodePort& port : type.ports)
    {
        text += fmt::format(" {} {} {}", port.name, port.label, port.help);
        for (const std::string& label : port.valueLabels)
            text += " " + label;
    }
    return LowerCase(text);
}

void ListNode(const host::NodeType& type, const Streams& streams)
{
    const std::size_t width = TerminalWidth();
    const std::string head = fmt::format("{:<24} {:<12} {:<12} ", type.name, type.category, type.module);
    const std::string help = Wrapped(
        FirstSentence(type.help), width > head.size() + 20 ? head.size() : 0, width > head.size() + 20 ? width : 0);
    streams.out << head << std::string_view(help).substr(std::min(help.size() - 1, help.find_first_not_of(' ')));
}

void PrintNodes(
    const NodesArguments& arguments, const Streams& streams, const std::vector<const host::NodeType*>& types)
{
    Json list = Json::Array();
    for (const host::NodeType* const type : types)
    {
        if (arguments.json)
            list.Append(host::DescribeNode(*type));
        else
            ListNode(*type, streams);
    }
    if (arguments.json)
        streams.out << list.Write(true) << '\n';
}

// Lists the nodes that have all the words; those that are named so come first.
int FindByWords(const NodesArguments& arguments, const Streams& streams, host::NodeCatalog& catalog)
{
    std::vector<std::pair<bool, const host::NodeType*>> found;
    for (const auto& type : catalog.Described())
    {
        const std::string text = SearchText(*type);
        const std::string name = LowerCase(fmt::format("{} {} {}", type->name, type->label, type->keywords));
        const auto isIn = [](const std::string& where) {
            // Finds only beginnings of words: "add" is not in "padding".
            return
                [&where](const std::string& word) { return (" " + where).find(" " + LowerCase(word)) != where.npos; };
        };
        if (std::all_of(arguments.words.begin(), arguments.words.end(), isIn(text)))
            found.emplace_back(!std::all_of(arguments.words.begin(), arguments.words.end(), isIn(name)), type.get());
    }
    if (found.empty())
    {
        PrintError(streams, fmt::format("no node has {} in its description{}", fmt::join(arguments.words, " and "),
                                host::Suggestion(arguments.words.front(), catalog.Names())));
        return kWrongInput;
    }
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<const host::NodeType*> types;
    for (const auto& [isMentioned, type] : found)
        types.push_back(&*type);
    PrintNodes(arguments, streams, types);
    return kSuccess;
}

int DescribeOrFind(
    const NodesArguments& arguments, const Streams& streams, const std::shared_ptr<host::NodeCatalog>& catalog)
{
    std::vector<std::string> words; // those that stand in one argument too
    for (const std::string& argument : arguments.words)
    {
        std::istringstream split(argument);
        words.insert(words.end(), std::istream_iterator<std::string>(split), {});
    }
    if (words.size() == 1 && catalog->Knows(words[0]))
    {
        host::Diagnostics diagnostics;
        const host::NodeType* const type = catalog->Find(words[0], {}, words[0], diagnostics);
        PrintDiagnostics(streams, "nodes", diagnostics);
        if (type)
            Describe(arguments, streams, words[0], *type);
        return type ? kSuccess : kWrongInput;
    }
    const std::string& first = arguments.words.front();
    if (arguments.words.size() == 1 && first.ends_with(".json"))
        return DescribeDocument(first, arguments, streams, catalog);
    NodesArguments split = arguments;
    split.words = words;
    return FindByWords(split, streams, *catalog);
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
            list.Append(host::DescribeCoreNode(id, *type));
        else
            streams.out << id << '\n';
    }
    if (arguments.json)
        streams.out << list.Write(true) << '\n';
}

void ListDescribed(const NodesArguments& arguments, const Streams& streams, const host::NodeCatalog& catalog)
{
    std::vector<const host::NodeType*> types;
    for (const auto& type : catalog.Described())
        types.push_back(type.get());
    PrintNodes(arguments, streams, types);
}

} // namespace

int Nodes(const NodesArguments& arguments, const Streams& streams)
{
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.modules, streams, modules))
        return kFailed;
    const auto catalog = std::make_shared<host::NodeCatalog>();
    if (!arguments.words.empty())
        return DescribeOrFind(arguments, streams, catalog);
    if (arguments.core)
        ListCore(arguments, streams, *catalog);
    else
        ListDescribed(arguments, streams, *catalog);
    return kSuccess;
}

} // namespace velto::cli
