// Hands a colour on unchanged: a named junction of wires.
#include "../../datadescription_shadernodes/databaseregister.h"
#include "../../shader/shadernodesystem.h"
#include "velto/graphnodes.h"
#include "velto/module.h"

namespace velto::pattern
{

VELTO_TRANSLATION_UNIT(0);
VELTO_DEPENDS_ON_LABEL(databaseRegister, "databaseregister");

static constexpr Id kPassthrough{"net.velto.pattern.node.utility.passthrough"};

// The names that descriptions of the debug node refer to.
VELTO_INTERNED_ID(kColor, "color");
VELTO_INTERNED_ID(kTokens, "tokens");
VELTO_INTERNED_ID(kWriteToConsole, "writetoconsole");
VELTO_INTERNED_ID(kWidth, "width");
VELTO_INTERNED_ID(kHeight, "height");
VELTO_INTERNED_ID(kCondition, "condition");
VELTO_INTERNED_ID(kPassthroughName, "passthrough");
VELTO_INTERNED_ID(kOutput, "output");
VELTO_INTERNED_ID(kTokensGroup, "tokensgroup");
VELTO_INTERNED_ID(kDebug1, "net.velto.pattern.node.utility.debug.d5W3rkBSKRdtk$6$VyMZ1A");
VELTO_INTERNED_ID(kDebug2, "net.velto.pattern.node.utility.debug.pk2aOiRzNltnx9ngIJC9$C");
VELTO_INTERNED_ID(kDebug3, "net.velto.pattern.node.utility.debug.QrshRlffGhPhDNFy7X6owD");
VELTO_INTERNED_ID(kDebug4, "net.velto.pattern.node.utility.debug.UFSnzs95AtgjzWahHaPRUA");
VELTO_INTERNED_ID(kDebug5, "net.velto.pattern.node.utility.debug.pnvbiviNKJpmBcnvQr2RSC");
VELTO_INTERNED_ID(kDebug6, "net.velto.pattern.node.utility.debug.Ue$hxjpeCNSiCd61RojAYC");

static Result DescribeColor(const MutablePort& port)
{
    const DataType* type = nullptr;
    VELTO_TRY(GetDataType<ColorA>(type));
    VELTO_TRY(port.SetValue(port_attribute::kInheritPorts, false));
    VELTO_TRY(port.SetValue(port_attribute::kSynthesizePorts, false));
    return port.SetValue(port_attribute::kFixedType, Ref<const DataType>::Share(type));
}

static Result MakeTemplate(Data& nodeTemplate)
{
    const auto* const systems = Find<NodeSystemClass>(registry::kNodeSystemClasses, "net.velto.node.nodesystemclass");
    VELTO_CHECK_STATE(systems);
    NodeSystem system;
    VELTO_TRY((*systems)->create(systems->Get(), system.Receive()));
    const MutableRoot root(system);
    MutablePort inputs;
    MutablePort outputs;
    MutablePort color;
    MutablePort passthrough;
    MutablePort context;
    VELTO_TRY(root.GetInputs(inputs));
    VELTO_TRY(inputs.AddPort("color", color));
    VELTO_TRY(DescribeColor(color));
    VELTO_TRY(color.SetValue(port_attribute::kDefaultValue, kOpaqueBlack));
    VELTO_TRY(root.GetOutputs(outputs));
    VELTO_TRY(outputs.SetValue(port_attribute::kLabel, Id("Passthrough")));
    VELTO_TRY(outputs.SetValue(port_attribute::kCategory, Id("Maths")));
    VELTO_TRY(outputs.SetValue(port_attribute::kHelp, Id("Hands a colour on unchanged: a named junction of wires.")));
    VELTO_TRY(outputs.AddPort("passthrough", passthrough));
    VELTO_TRY(DescribeColor(passthrough));
    VELTO_TRY(color.Connect(passthrough, wire_mode::kForward));
    VELTO_TRY(inputs.AddPort(shadernode::port::kContext, context));
    VELTO_TRY(shadernode::SetupContext(root));
    return Bound<NodesLibInterface>().WrapTemplate(system.Get(), kPassthrough, &nodeTemplate);
}

VELTO_BUILTIN_NODE(kPassthrough, &MakeTemplate);

} // namespace velto::pattern
