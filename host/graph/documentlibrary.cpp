#include "documentlibrary.h"

#include "documentscope.h"
#include "values.h"

#include "host/corenode/forward.h"
#include "host/registry/datatypes.h"
#include "host/system/fileaccess.h"
#include "host/system/guard.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace velto::host
{

namespace
{

constexpr std::string_view kContext = "context";
constexpr std::string_view kLocalContext = "contextLocal";

// Core nodes by how they are reached from the outputs: by links of values, and from inputs that take functions, where
// the node that invokes them gives the context.
struct Reached
{
    std::vector<char> directly;
    std::vector<char> asFunction;
};

Reached Reach(const DocumentScope& scope)
{
    const std::vector<CoreNode>& nodes = scope.document.graph.nodes;
    Reached reached{std::vector<char>(nodes.size()), std::vector<char>(nodes.size())};
    std::vector<std::pair<std::size_t, bool>> open;
    for (const CoreOutput& output : scope.document.graph.outputs)
    {
        if (output.source.link)
            open.emplace_back(output.source.link->node, false);
    }
    while (!open.empty())
    {
        const auto [node, asFunction] = open.back();
        open.pop_back();
        char& seen = (asFunction ? reached.asFunction : reached.directly)[node];
        if (std::exchange(seen, 1))
            continue;
        for (const auto& [port, input] : nodes[node].inputs)
        {
            if (input.link)
                open.emplace_back(input.link->node, asFunction || scope.functions.contains({node, port}));
        }
    }
    return reached;
}

// Makes a node type of a document that was read.
class DocumentTypeBuilder
{
public:
    DocumentTypeBuilder(const DocumentScope& scope, NodeType& type) : scope_(scope), type_(type) {}

    void Build(bool takesContext)
    {
        for (const DocumentParameter& parameter : scope_.parameters)
        {
            NodePort port;
            port.name = parameter.port.name;
            port.type = parameter.port.type;
            port.label = parameter.port.label;
            port.help = parameter.port.help;
            port.minimum = parameter.port.minimum;
            port.maximum = parameter.port.maximum;
            port.shownDefault = parameter.port.shownDefault;
            port.values = parameter.port.values;
            port.hasFallback = parameter.port.hasFallback;
            inputs_.push_back(std::move(port));
        }
        const bool hasOwn = FindInput(kContext) || FindInput(kLocalContext);
        if (!hasOwn)
            AddContexts();
        AddNodes(takesContext && !hasOwn);
        for (NodePort& port : inputs_)
            type_.AddPort(std::move(port));
        for (std::size_t i = 0; i < scope_.document.graph.outputs.size(); ++i)
        {
            const CoreOutput& output = scope_.document.graph.outputs[i];
            NodePort port;
            port.name = port.label = output.name;
            port.input = false;
            port.type = scope_.outputTypes[i];
            if (output.source.link)
                port.targets.push_back({direct_[output.source.link->node], output.source.link->port});
            type_.AddPort(std::move(port));
        }
    }

private:
    NodePort* FindInput(std::string_view name)
    {
        const auto found =
            std::find_if(inputs_.begin(), inputs_.end(), [&](const NodePort& port) { return port.name == name; });
        return found == inputs_.end() ? nullptr : &*found;
    }

    void AddContexts()
    {
        for (const std::string_view name : {kContext, kLocalContext})
        {
            NodePort port;
            port.name = name;
            port.label = name == kContext ? "Context" : "Local context";
            port.type = Ref<const DataType>::Share(TypeOf<ShadingContext>());
            if (name == kLocalContext)
                port.follows = kContext;
            inputs_.push_back(std::move(port));
        }
    }

    // A node that is reached in both ways stands twice where the document's context differs from that of invocations.
    void AddNodes(bool takesContext)
    {
        const std::vector<CoreNode>& nodes = scope_.document.graph.nodes;
        const Reached reached = takesContext ? Reach(scope_) : Reached{};
        std::size_t count = nodes.size();
        direct_.resize(nodes.size());
        asFunction_.resize(nodes.size());
        for (std::size_t i = 0; i < nodes.size(); ++i)
        {
            direct_[i] = i;
            asFunction_[i] = takesContext && reached.directly[i] && reached.asFunction[i] ? count++ : i;
        }
        for (std::size_t i = 0; i < nodes.size(); ++i)
            AddNode(i, false, takesContext && reached.directly[i]);
        for (std::size_t i = 0; i < nodes.size(); ++i)
        {
            if (asFunction_[i] != i)
                AddNode(i, true, false);
        }
    }

    void AddNode(std::size_t index, bool isFunction, bool takesContext)
    {
        const CoreNode& node = scope_.document.graph.nodes[index];
        InnerNode inner;
        inner.name = node.name;
        inner.type = node.type;
        inner.forwarded = node.forwarded;
        inner.arguments = node.arguments;
        const std::size_t at = type_.inner.size();
        const bool isOnlyFunction = isFunction || (!takesContext && asFunction_[index] == index);
        for (const auto& [port, input] : node.inputs)
        {
            const bool isPortFunction = scope_.functions.contains({index, port});
            InnerNode::Given given;
            given.port = port;
            given.connected = input.connected;
            if (input.link)
            {
                given.link = true;
                given.from = {
                    (isOnlyFunction || isPortFunction ? asFunction_ : direct_)[input.link->node], input.link->port};
            }
            else
                ThrowIfError(given.value.CopyFrom(input.value));
            if (NodePort* const parameter = input.origin.empty() ? nullptr : FindInput(input.origin))
                AddTarget(*parameter, {at, port, nullptr}, node, input);
            inner.given.push_back(std::move(given));
        }
        if (takesContext)
            OpenContexts(node, at);
        type_.inner.push_back(std::move(inner));
    }

    const NodeType* CoreType(const CoreNode& node) const
    {
        Diagnostics ignored;
        if (node.type == kForwardNode)
            return nullptr;
        NodeArguments arguments{node.arguments, {}, {}};
        if (node.arguments)
        {
            const DataDictionary* const given = &node.arguments;
            arguments.key = WriteValue(TypeOf<DataDictionary>(), given).Write();
        }
        return scope_.catalog.FindCore(node.type, arguments, "", ignored);
    }

    void AddTarget(NodePort& parameter, InnerPort target, const CoreNode& node, const CoreInput& input)
    {
        if (!input.value.IsEmpty() && input.value.Type() != parameter.type.Get())
            target.valueType = input.value.Type();
        const NodeType* const core = CoreType(node);
        const NodePort* const port =
            core ? core->FindPort(target.port.substr(0, target.port.find('[')), true) : nullptr;
        target.isFunction = port && FunctionResultType(port->type.Get());
        parameter.targets.push_back(std::move(target));
    }

    // What a node looks at is at the local context, what it hands on at the other one.
    void OpenContexts(const CoreNode& node, std::size_t at)
    {
        const NodeType* const core = CoreType(node);
        if (!core)
            return;
        const bool hasLocal = core->FindPort(kLocalContext, true);
        for (const NodePort& port : core->ports)
        {
            if (!port.input || port.type.Get() != TypeOf<ShadingContext>() || node.inputs.contains(port.name))
                continue;
            NodePort* const outer = FindInput(hasLocal && port.name != kLocalContext ? kContext : kLocalContext);
            outer->targets.push_back({at, port.name, nullptr});
        }
    }

    const DocumentScope& scope_;
    NodeType& type_;
    std::vector<NodePort> inputs_;
    std::vector<std::size_t> direct_;     // by core node: the inner node that outputs read
    std::vector<std::size_t> asFunction_; // the one that functions read
};

std::string Canonical(const std::string& file)
{
    std::error_code failure;
    const std::filesystem::path path = std::filesystem::weakly_canonical(file, failure);
    return failure ? file : path.string();
}

bool IsFile(const std::filesystem::path& path)
{
    std::error_code ignored;
    return MayRead(path) && std::filesystem::is_regular_file(path, ignored);
}

} // namespace

DocumentLibrary::DocumentLibrary(
    std::shared_ptr<NodeCatalog> catalog, const DocumentPlaces& places, const GraphLimits& limits)
    : catalog_(std::move(catalog)), places_(places), limits_(limits)
{
    if (!places_.file.empty())
        open_.push_back(Canonical(places_.file));
}

DocumentLibrary::~DocumentLibrary() = default;

std::string DocumentLibrary::FindFile(const std::string& type) const
{
    const std::filesystem::path name(type);
    if (type.find('\0') != type.npos || type.empty())
        return {};
    if (!type.ends_with(".json"))
    {
        for (const std::string& library : places_.libraries)
        {
            const std::filesystem::path place = std::filesystem::path(library) / (type + ".json");
            if (!name.has_parent_path() && IsFile(place))
                return place.string();
        }
        return {};
    }
    if (name.is_absolute())
        return IsFile(name) ? type : std::string();
    std::filesystem::path place = open_.empty() ? name : std::filesystem::path(open_.back()).parent_path() / name;
    if (IsFile(place))
        return place.string();
    for (const std::string& directory : places_.searchPaths)
    {
        place = std::filesystem::path(directory) / name;
        if (IsFile(place))
            return place.string();
    }
    return {};
}

const NodeType* DocumentLibrary::Find(
    const std::string& file, bool takesContext, const std::string& place, Diagnostics& diagnostics)
{
    const std::string path = Canonical(file);
    if (const auto at = std::find(open_.begin(), open_.end(), path); at != open_.end())
    {
        std::string circle;
        for (auto each = at; each != open_.end(); ++each)
            circle += std::filesystem::path(*each).filename().string() + " -> ";
        diagnostics.Fault(place,
            fmt::format("the documents use each other: {}{}", circle, std::filesystem::path(path).filename().string()));
        return nullptr;
    }
    const auto [found, isNew] = entries_.try_emplace(path);
    Entry& entry = found->second;
    if (!isNew)
        return entry.types[takesContext].get();
    if (open_.size() > limits_.depth)
    {
        diagnostics.Fault(place, fmt::format("documents in documents, more than {} deep", limits_.depth));
        return nullptr;
    }
    const std::string user = open_.empty() ? std::string() : fmt::format("{}: {}", Printable(open_.back()), place);
    diagnostics.EnterFile(file, user);
    open_.push_back(path);
    const std::size_t before = diagnostics.FaultCount();
    std::string text;
    Json json;
    if (ReadFile(file, JsonLimits().bytes, text, diagnostics) && ReadJson(text, json, diagnostics))
    {
        DocumentOptions options;
        options.limits = limits_;
        GraphDocument document;
        DocumentScope scope{*catalog_, *this, options, diagnostics, document};
        ReadContents(scope, json);
        WarnOfUnused(scope);
        for (const bool withContext : {false, true})
        {
            if (diagnostics.FaultCount() > before)
                break;
            auto type = std::make_shared<NodeType>();
            type->isDescribed = type->isDocument = true;
            type->id = file;
            type->name = type->label = std::filesystem::path(file).stem().string();
            type->category = "Document";
            if (const Json* const comment = json.Find("comment"); comment && comment->IsString())
                type->help = comment->AsString();
            type->documentNodes = scope.nodeCount;
            type->documentLinks = scope.links;
            DocumentTypeBuilder(scope, *type).Build(withContext);
            entries_[path].types[withContext] = std::move(type);
        }
    }
    open_.pop_back();
    diagnostics.LeaveFile();
    return entries_[path].types[takesContext].get();
}

std::vector<std::string> DocumentLibrary::Files() const
{
    std::vector<std::string> files;
    for (const auto& [path, entry] : entries_)
        files.push_back(path);
    return files;
}

} // namespace velto::host
