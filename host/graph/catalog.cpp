#include "catalog.h"

#include "description.h"
#include "material.h"
#include "template.h"

#include "host/corenode/factory.h"
#include "host/corenode/group.h"
#include "host/registry/datatypes.h"
#include "host/registry/registry.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

NodeCatalog::NodeCatalog() : described_(DescribedNodes())
{
    ThrowIfOutOfMemory(BuiltinTypes(described_)); // what else cannot be made is not there
    described_.push_back(LayerNodeType());
    for (const auto& type : described_)
    {
        byName_[type->id].push_back(type.get());
        byName_[type->name].push_back(type.get());
        // What a description says of a port also holds for the port of the core node inside.
        for (const NodePort& port : type->ports)
        {
            const auto note = [&](const NodePort& described) {
                for (const InnerPort& target : described.targets)
                {
                    coreDescriptions_.try_emplace(
                        fmt::format("{}.{}", type->inner[target.node].type, target.port), &described);
                    // Some core nodes go by the described node's short name too.
                    if (type->inner.size() == 1)
                        coreDescriptions_.try_emplace(fmt::format("{}.{}", type->name, target.port), &described);
                }
            };
            if (!port.input)
                continue;
            note(port);
            std::for_each(port.members.begin(), port.members.end(), note);
        }
    }
}

std::vector<std::string> NodeCatalog::Names() const
{
    std::vector<std::string> names = EntryNames(registry::kCoreNodes.View());
    for (const auto& [name, types] : byName_)
        names.push_back(name);
    return names;
}

std::shared_ptr<const NodeType> NodeCatalog::Core(const std::string& id) const
{
    std::shared_ptr<const NodeType> type;
    ThrowIfOutOfMemory(MakeCore(id, {}, type));
    return type;
}

Result NodeCatalog::MakeCore(
    const std::string& id, const DataDictionary& arguments, std::shared_ptr<const NodeType>& core) const
{
    const Data* const entry = FindEntry(registry::kCoreNodes.View(), id);
    const CoreNodeFactory* const factory = entry ? entry->As<CoreNodeFactory>() : nullptr;
    Ref<MicroNodeGroup> group;
    if (!factory)
        return MakeError(error::kUnresolved, fmt::format("There is no core node {}.", id));
    VELTO_TRY(CreateGroup(*factory, arguments, group));
    auto type = std::make_shared<NodeType>();
    type->id = id;
    type->name = id.substr(id.rfind('.') + 1);
    type->module = ModuleName(PublisherOf(registry::kCoreNodes.View(), id));
    type->arguments = AsHost(group).arguments;
    InnerNode inner;
    inner.type = id;
    type->inner.push_back(std::move(inner));
    for (const GroupPort& port : AsHost(group).ports)
    {
        NodePort made;
        made.name = port.name;
        made.input = port.input;
        made.type = port.type;
        made.isVariadic = port.wildcard;
        made.namedBy = NamingArgument(AsHost(group), port);
        made.mark = port.Mark();
        made.index = port.index;
        made.targets.push_back({0, port.name});
        const std::string& described = port.family.empty() ? port.name : port.family;
        if (const auto found = coreDescriptions_.find(fmt::format("{}.{}", id, described));
            port.input && found != coreDescriptions_.end())
        {
            made.values = found->second->values;
            made.hasFallback = found->second->hasFallback;
            if (!FunctionResultType(port.type.Get()) && found->second->defaultValue.Type() == port.type.Get())
                ThrowIfError(made.defaultValue.CopyFrom(found->second->defaultValue));
        }
        type->AddPort(std::move(made));
    }
    core = std::move(type);
    return {};
}

bool NodeCatalog::Knows(const std::string& name) const
{
    return byName_.contains(name) || FindEntry(registry::kCoreNodes.View(), name);
}

const NodeType* NodeCatalog::FindCore(
    const std::string& id, const NodeArguments& arguments, const std::string& place, Diagnostics& diagnostics)
{
    if (const auto known = core_.find({id, arguments.key}); known != core_.end())
        return known->second.get();
    std::shared_ptr<const NodeType> type;
    if (const Result made = MakeCore(id, arguments.values, type); made.IsError())
    {
        ThrowIfOutOfMemory(made);
        diagnostics.Fault(arguments.values ? arguments.place : place, made.Message());
        return nullptr;
    }
    constexpr std::size_t kMostPorts = 1'000'000;
    if (!arguments.key.empty() && (portsMade_ += type->ports.size()) > kMostPorts)
    {
        diagnostics.Fault(
            arguments.place, fmt::format("the nodes' arguments ask for more than {} ports in all", kMostPorts));
        return nullptr;
    }
    return core_.emplace(std::pair(id, arguments.key), std::move(type)).first->second.get();
}

const NodeType* NodeCatalog::Find(
    const std::string& name, const NodeArguments& arguments, const std::string& place, Diagnostics& diagnostics)
{
    // A described node goes first where a core node's id is a plain word, too.
    const auto found = byName_.find(name);
    if (FindEntry(registry::kCoreNodes.View(), name) && (found == byName_.end() || name.find('.') != name.npos))
        return FindCore(name, arguments, place, diagnostics);
    if (found == byName_.end())
    {
        diagnostics.Fault(
            place, fmt::format("there is no node type \"{}\"{}", Printable(name), Suggestion(name, Names())));
        return nullptr;
    }
    if (found->second.size() > 1)
    {
        std::string ids;
        for (const NodeType* const type : found->second)
            ids += (ids.empty() ? "" : ", ") + type->id;
        diagnostics.Fault(place, fmt::format("\"{}\" may be any of {}", name, ids));
        return nullptr;
    }
    return found->second.front();
}

} // namespace velto::host
