#include "nodesystem.h"

#include "values.h"

#include "host/registry/datatypes.h"
#include "host/registry/registry.h"
#include "host/system/guard.h"

#include <fmt/format.h>

namespace velto::host
{

namespace
{

struct HostNodePath : NodePathObject
{
    explicit HostNodePath(std::string text) : name(std::move(text)) {}
    std::string name;
};

HostNodeSystem& Host(NodeSystemObject* system)
{
    return *static_cast<HostNodeSystem*>(system);
}

const HostNodeSystem& Host(const NodeSystemObject* system)
{
    return *static_cast<const HostNodeSystem*>(system);
}

Result CheckPort(const NodeSystemObject* system, Int port)
{
    VELTO_CHECK_ARGUMENT(system && port >= 0 && port < static_cast<Int>(Host(system).ports.size()));
    return {};
}

const GraphPort& PortAt(const NodeSystemObject* system, Int port)
{
    return Host(system).ports[static_cast<std::size_t>(port)];
}

Result FindPort(const NodeSystemObject* system, Int parent, const Id& name, Int* port)
{
    VELTO_TRY(CheckPort(system, parent));
    *port = name.IsEmpty() ? parent : -1;
    if (name.IsEmpty())
        return {};
    for (const Int child : PortAt(system, parent).children)
    {
        if (PortAt(system, child).name == name.View())
            *port = child;
    }
    return {};
}

Result AddPort(NodeSystemObject* system, Int parent, const Id& name, Int* port)
{
    return Guarded([&]() -> Result {
        VELTO_TRY(FindPort(system, parent, name, port));
        if (*port >= 0)
            return {};
        auto& ports = Host(system).ports;
        GraphPort made;
        made.name = name.View();
        made.parent = parent;
        ports.push_back(std::move(made));
        const auto added = static_cast<Int>(ports.size()) - 1;
        ports[static_cast<std::size_t>(parent)].children.push_back(added);
        *port = added;
        return {};
    });
}

Result SetValue(NodeSystemObject* system, Int port, const Id& attribute, const Data& value, Int32)
{
    return Guarded([&]() -> Result {
        VELTO_TRY(CheckPort(system, port));
        Data copy;
        VELTO_TRY(copy.CopyFrom(value));
        auto& attributes = Host(system).ports[static_cast<std::size_t>(port)].attributes;
        for (auto& [name, old] : attributes)
        {
            if (name == attribute.View())
            {
                old = std::move(copy);
                return {};
            }
        }
        attributes.emplace_back(std::string(attribute.View()), std::move(copy));
        return {};
    });
}

Result Connect(NodeSystemObject* system, Int from, Int to, WireMode mode)
{
    return Guarded([&]() -> Result {
        VELTO_TRY(CheckPort(system, from));
        VELTO_TRY(CheckPort(system, to));
        auto& wires = Host(system).wires;
        for (GraphWire& wire : wires)
        {
            if (wire.from == from && wire.to == to)
            {
                wire.mode = mode; // between two ports runs one wire
                return {};
            }
        }
        wires.push_back({from, to, mode});
        return {};
    });
}

Result Create(const NodeSystemClassObject*, NodeSystemObject** system)
{
    NodeSystem made = MakeNodeSystem();
    if (!made)
        return OutOfMemory();
    *system = made.Detach();
    return {};
}

} // namespace

NodeSystem MakeNodeSystem()
{
    HostNodeSystem* const made = NewObject<HostNodeSystem>();
    NodeSystem system = NodeSystem::Adopt(made);
    if (made)
    {
        made->ports.resize(2);
        made->ports[HostNodeSystem::kInputs].name = "inputs";
        made->ports[HostNodeSystem::kOutputs].name = "outputs";
    }
    return system;
}

std::string PortPath(const HostNodeSystem& system, Int port)
{
    std::string path;
    for (; port >= 0; port = system.ports[static_cast<std::size_t>(port)].parent)
    {
        const std::string& name = system.ports[static_cast<std::size_t>(port)].name;
        path = path.empty() ? name : fmt::format("{}.{}", name, path);
    }
    return path;
}

const Data* FindAttribute(const HostNodeSystem& system, Int port, const Id& attribute)
{
    for (const auto& [name, value] : system.ports[static_cast<std::size_t>(port)].attributes)
    {
        if (name == attribute.View())
            return &value;
    }
    return nullptr;
}

namespace
{

Json DescribeAttribute(const Data& value)
{
    if (const auto* const type = value.As<Ref<const DataType>>())
        return Json(TypeName(type->Get()));
    if (const auto* const path = value.As<NodePath>())
        return Json(path->Get() ? static_cast<const HostNodePath*>(path->Get())->name : std::string());
    return WriteValue(value.Type(), value.Value());
}

Json DescribePort(const HostNodeSystem& system, Int port)
{
    const GraphPort& source = system.ports[static_cast<std::size_t>(port)];
    Json json = Json::Object();
    json.Add("name", source.name);
    Json attributes = Json::Object();
    for (const auto& [name, value] : source.attributes)
        attributes.Add(name, DescribeAttribute(value));
    json.Add("attributes", std::move(attributes));
    if (!source.children.empty())
    {
        Json children = Json::Array();
        for (const Int child : source.children)
            children.Append(DescribePort(system, child));
        json.Add("children", std::move(children));
    }
    return json;
}

} // namespace

Json DescribeNodeSystem(const HostNodeSystem& system)
{
    Json json = Json::Object();
    for (const Int list : {HostNodeSystem::kInputs, HostNodeSystem::kOutputs})
    {
        Json ports = Json::Array();
        for (const Int port : system.ports[static_cast<std::size_t>(list)].children)
            ports.Append(DescribePort(system, port));
        json.Add(system.ports[static_cast<std::size_t>(list)].name, std::move(ports));
    }
    Json wires = Json::Array();
    for (const GraphWire& wire : system.wires)
    {
        Json entry = Json::Object();
        entry.Add("from", PortPath(system, wire.from));
        entry.Add("to", PortPath(system, wire.to));
        entry.Add("mode", fmt::format("0x{:016x}", wire.mode));
        wires.Append(std::move(entry));
    }
    json.Add("wires", std::move(wires));
    json.Add("commits", system.commits);
    return json;
}

const NodeGraphInterface& NodeGraphService()
{
    static constexpr NodeGraphInterface service{
        .GetList = {+[](const NodeSystemObject* system, Bool inputs, Int* port) -> Result {
            VELTO_CHECK_ARGUMENT(system);
            *port = inputs ? HostNodeSystem::kInputs : HostNodeSystem::kOutputs;
            return {};
        }},
        .FindPort = {&FindPort},
        .AddPort = {&AddPort},
        .GetChildCount = {+[](const NodeSystemObject* system, Int parent, Int* count) -> Result {
            VELTO_TRY(CheckPort(system, parent));
            *count = static_cast<Int>(PortAt(system, parent).children.size());
            return {};
        }},
        .GetChild = {+[](const NodeSystemObject* system, Int parent, Int i, Int* port) -> Result {
            VELTO_TRY(CheckPort(system, parent));
            const std::vector<Int>& children = PortAt(system, parent).children;
            VELTO_CHECK_ARGUMENT(i >= 0 && i < static_cast<Int>(children.size()));
            *port = children[static_cast<std::size_t>(i)];
            return {};
        }},
        .GetName = {+[](const NodeSystemObject* system, Int port, Id* name) -> Result {
            VELTO_TRY(CheckPort(system, port));
            return Id::Create(PortAt(system, port).name, *name);
        }},
        .GetValue = {+[](const NodeSystemObject* system, Int port, const Id& attribute, Data* value) -> Result {
            VELTO_TRY(CheckPort(system, port));
            const Data* const found = FindAttribute(Host(system), port, attribute);
            value->Reset();
            return found ? value->CopyFrom(*found) : Result();
        }},
        .SetValue = {&SetValue},
        .Connect = {&Connect},
        .Commit = {+[](NodeSystemObject* system, Int32) -> Result {
            VELTO_CHECK_ARGUMENT(system);
            ++Host(system).commits;
            return {};
        }},
    };
    return service;
}

Result AddPort(const MutablePort& parent, std::string_view name, MutablePort& added)
{
    Id id;
    VELTO_TRY(Id::Create(name, id));
    return parent.AddPort(id, added);
}

Result PublishNodeSystemClass()
{
    static NodeSystemClassObject nodeSystemClass{{kImmortal, nullptr}, &Create};
    Data data;
    VELTO_TRY(data.Set(NodeSystemClass::Share(&nodeSystemClass)));
    return RegistryService().InsertEntry(registry::kNodeSystemClasses, "net.velto.node.nodesystemclass", data);
}

const NodesLibInterface& NodesLibService()
{
    static constexpr NodesLibInterface service{
        .WrapTemplate = {+[](NodeSystemObject* system, const Id&, Data* nodeTemplate) -> Result {
            VELTO_CHECK_ARGUMENT(system);
            ++Host(system).commits;
            return nodeTemplate->Set(NodeSystem::Share(system));
        }},
    };
    return service;
}

const NodePathInterface& NodePathService()
{
    static constexpr NodePathInterface service{
        .Create = {+[](const char* name, UInt length, NodePathObject** path) {
            return Guarded([&]() -> Result {
                HostNodePath* const made = NewObject<HostNodePath>(std::string(name, length));
                if (!made)
                    return OutOfMemory();
                *path = made;
                return {};
            });
        }},
    };
    return service;
}

} // namespace velto::host
