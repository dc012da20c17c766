// The module's functions on graph roots, wire by wire.
#include "host/graph/nodesystem.h"
#include "host/registry/datatypes.h"
#include "host/registry/reflection.h"
#include "test/support/eval.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

namespace velto::test
{

namespace
{

using host::HostNodeSystem;

// A root with ports by path: `inputs.colour.r`.
class RootTest : public ::testing::Test
{
protected:
    RootTest()
    {
        TheModule();
        system_ = host::MakeNodeSystem();
        root_ = MutableRoot(system_);
    }

    MutablePort Add(bool input, std::initializer_list<std::string_view> path)
    {
        MutablePort port;
        EXPECT_TRUE((input ? root_.GetInputs(port) : root_.GetOutputs(port)).IsOk());
        for (const std::string_view name : path)
        {
            Id id;
            EXPECT_TRUE(Id::Create(name, id).IsOk());
            MutablePort child;
            EXPECT_TRUE(port.AddPort(id, child).IsOk());
            port = child;
        }
        return port;
    }

    MutablePort AddTyped(std::initializer_list<std::string_view> path)
    {
        const MutablePort port = Add(true, path);
        EXPECT_TRUE(
            port.SetValue(port_attribute::kFixedType, Ref<const DataType>::Share(host::TypeOf<Float>())).IsOk());
        return port;
    }

    std::vector<std::string> Wires() const
    {
        std::vector<std::string> wires;
        const HostNodeSystem& system = host::AsHost(system_);
        for (const host::GraphWire& wire : system.wires)
            wires.push_back(fmt::format(
                "{} -> {} {:x}", host::PortPath(system, wire.from), host::PortPath(system, wire.to), wire.mode));
        return wires;
    }

    // Names of a port's attributes in order of setting.
    std::string Attributes(const MutablePort& port) const
    {
        std::string names;
        for (const auto& [name, value] :
            host::AsHost(system_).ports[static_cast<std::size_t>(port.Number())].attributes)
            names += (names.empty() ? "" : " ") + name;
        return names;
    }

    Result Call(std::string_view name)
    {
        return host::CallRootFunction(fmt::format("net.velto.shadernode.{}", name), root_);
    }

    NodeSystem system_;
    MutableRoot root_;
};

using Strings = std::vector<std::string>;

TEST_F(RootTest, SetupContextChangesNothingWithoutContext)
{
    AddTyped({"scale"});
    Add(true, {"contextlocal"});
    EXPECT_TRUE(Call("SetupContext").IsOk());
    EXPECT_TRUE(Wires().empty());
    EXPECT_EQ(host::AsHost(system_).commits, 0);
}

TEST_F(RootTest, SetupContextWiresLeavesThatWantIt)
{
    const MutablePort context = Add(true, {"context"});
    Add(true, {"contextlocal"});
    AddTyped({"scale"});
    AddTyped({"group", "inner", "leaf"});
    AddTyped({".hidden"});
    ASSERT_TRUE(AddTyped({"function"}).SetValue(port_attribute::kFunctionResult, true).IsOk());
    ASSERT_TRUE(AddTyped({"flag2"}).SetValue(port_attribute::kPortFlags, UInt8(2)).IsOk());
    ASSERT_TRUE(AddTyped({"flag18"}).SetValue(port_attribute::kPortFlags, UInt8(18)).IsOk());
    ASSERT_TRUE(Call("SetupContext").IsOk());
    EXPECT_EQ(Wires(),
        (Strings{"inputs.context -> inputs.contextlocal 10000010000008", "inputs.context -> inputs.scale 10000000",
            "inputs.context -> inputs.group.inner.leaf 10000000", "inputs.context -> inputs.flag18 10000000"}));
    EXPECT_EQ(Attributes(context), "fixedtype contextmemberdefinitionprefix contextmember");
    EXPECT_EQ(host::AsHost(system_).commits, 1);
}

TEST_F(RootTest, SetupContextWithNothingToWireSetsNoPrefix)
{
    const MutablePort context = Add(true, {"context"});
    Add(true, {"group"});
    ASSERT_TRUE(Call("SetupContext").IsOk());
    EXPECT_EQ(Attributes(context), "fixedtype contextmember");
}

TEST_F(RootTest, CreateForwardingWiresForwardsThenWires)
{
    Add(true, {"context"});
    AddTyped({"scale"});
    ASSERT_TRUE(AddTyped({"left"}).SetValue(port_attribute::kPortFlags, UInt8(2)).IsOk());
    ASSERT_TRUE(Call("CreateForwardingWires").IsOk());
    EXPECT_EQ(Wires(), (Strings{"inputs.scale -> outputs.scale 1010", "inputs.context -> inputs.scale 10000000"}));
    MutablePort outputs;
    MutablePort forwarded;
    ASSERT_TRUE(root_.GetOutputs(outputs).IsOk());
    ASSERT_TRUE(outputs.FindPort("scale", forwarded).IsOk());
    EXPECT_EQ(Attributes(forwarded), "net.velto.node.attribute.internalhidden");
}

TEST_F(RootTest, SetupMaterialForwardsToMaterialOut)
{
    Add(true, {"context"});
    AddTyped({"bsdflayers", "_0", "strength"});
    AddTyped({"emission"});
    ASSERT_TRUE(Call("SetupMaterial").IsOk());
    EXPECT_EQ(Wires(),
        (Strings{"inputs.context -> inputs.bsdflayers._0.strength 10000000",
            "inputs.context -> inputs.emission 10000000", "inputs.bsdflayers -> outputs.materialout.layers 1010",
            "inputs.globalcontext -> outputs.materialout 10000000",
            "inputs.emission -> outputs.materialout.emission 1010"}));
    const MutablePort material = Add(false, {"materialout"});
    EXPECT_EQ(Attributes(material), "tappingport net.velto.node.attribute.internalhidden");
    EXPECT_EQ(Attributes(Add(true, {"globalcontext"})),
        "net.velto.node.attribute.internalhidden contextmemberdefinitionprefix");
}

TEST_F(RootTest, SetupMaterialWithoutLayersKeepsWhatWasDone)
{
    Add(true, {"context"});
    AddTyped({"emission"});
    const Result result = Call("SetupMaterial");
    EXPECT_EQ(result.Kind(), "net.velto.error.illegalstate");
    EXPECT_TRUE(result.Message().starts_with("Illegal state: Condition this->GetNodeSystem() not fulfilled. "));
    EXPECT_EQ(Wires(), Strings{"inputs.context -> inputs.emission 10000000"});
    MutablePort outputs;
    MutablePort material;
    MutablePort layers;
    ASSERT_TRUE(root_.GetOutputs(outputs).IsOk());
    ASSERT_TRUE(outputs.FindPort("materialout", material).IsOk());
    ASSERT_TRUE(material.FindPort("layers", layers).IsOk());
    EXPECT_FALSE(layers.IsEmpty());
}

TEST_F(RootTest, PortsOfAnotherRootAreRefused)
{
    const MutableRoot other(host::MakeNodeSystem());
    MutablePort foreign;
    ASSERT_TRUE(other.GetInputs(foreign).IsOk());
    EXPECT_EQ(Add(true, {"a"}).Connect(foreign, wire_mode::kForward).Kind(), "net.velto.error.illegalargument");
    EXPECT_EQ(MutablePort().FindPort("a", foreign).Kind(), "net.velto.error.illegalstate");
}

} // namespace

} // namespace velto::test
