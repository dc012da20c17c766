// Descriptions against the core nodes that stand behind them.
#include "test/support/examples.h"

#include "host/graph/catalog.h"
#include "host/registry/datatypes.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <filesystem>
#include <set>

#include <paths.h>

namespace velto::test
{

namespace
{

using host::NodePort;
using host::NodeType;

std::string Place(const NodeType& type, std::size_t node, std::string_view port)
{
    return fmt::format("{}.{}", type.inner[node].name, port);
}

// What the type's ports reach, or its description gives.
std::set<std::string> Reached(const NodeType& type)
{
    std::set<std::string> reached;
    const auto add = [&](const NodePort& port) {
        for (const host::InnerPort& target : port.targets)
            reached.insert(Place(type, target.node, target.port));
    };
    for (const NodePort& port : type.ports)
    {
        add(port);
        for (const NodePort& member : port.members)
            add(member);
    }
    for (std::size_t i = 0; i < type.inner.size(); ++i)
    {
        for (const host::InnerNode::Given& given : type.inner[i].given)
        {
            reached.insert(Place(type, i, given.port));
            if (given.link)
                reached.insert(Place(type, given.from.node, given.from.port));
        }
    }
    return reached;
}

TEST(PortsTest, EachIsDescribed)
{
    TheModule();
    const host::NodeCatalog catalog;
    for (const auto& type : catalog.Described())
    {
        const std::set<std::string> reached = Reached(*type);
        for (std::size_t i = 0; i < type->inner.size(); ++i)
        {
            const auto core = catalog.Core(type->inner[i].type);
            if (!core)
                continue;
            for (const NodePort& port : core->ports)
            {
                const DataType* const of = port.type.Get();
                if (of == host::TypeOf<RenderMode>() || of == host::TypeOf<SearchPathsType>())
                    continue; // the host gives them
                if (port.mark == 0)
                    EXPECT_TRUE(reached.contains(Place(*type, i, port.name)))
                        << type->name << ": " << Place(*type, i, port.name);
            }
        }
    }
}

TEST(PortsTest, DefaultsAreWithinTheirLimits)
{
    TheModule();
    const host::NodeCatalog catalog;
    for (const auto& type : catalog.Described())
    {
        for (const NodePort& port : type->ports)
        {
            if (!port.shownDefault.IsNumber())
                continue;
            SCOPED_TRACE(type->name + "." + port.name);
            if (port.minimum.IsNumber())
                EXPECT_LE(port.minimum.AsNumber(), port.shownDefault.AsNumber());
            if (port.maximum.IsNumber())
                EXPECT_GE(port.maximum.AsNumber(), port.shownDefault.AsNumber());
        }
    }
}

} // namespace

} // namespace velto::test
