// Hands a colour on unchanged: a named junction of wires.
#include "../../shader/shadernodesystem.h"
#include "velto/record.h"

namespace velto::pattern
{

VELTO_TRANSLATION_UNIT(0);
VELTO_DEPENDS_ON_LABEL("databaseregister");

static constexpr Id kPassthrough{"net.velto.pattern.node.utility.passthrough"};

static Result DescribeColor(const MutablePort& port)
{
    const DataType* type = nullptr;
    VELTO_TRY(GetDataType<ColorA>(type));
    VELTO_TRY(port.SetValue(port_attribute::kInheritPorts, false));
    VELTO_TRY(port.SetValue(port_attribute::kSynthesizePorts, false));
    return port.SetValue(port_attribute::kFixedType, Ref<const DataType>::Share(type));
}

static Result MakeTemplate(const BuiltinNodeObject*, Data* nodeTemplate)
{
    NodeSystem system;
    VELTO_TRY(Bound<NodesLibInterface>().CreateNodeSystem("net.velto.node.nodesystemclass", system.Receive()));
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
    VELTO_TRY(outputs.AddPort("passthrough", passthrough));
    VELTO_TRY(DescribeColor(passthrough));
    VELTO_TRY(color.Connect(passthrough, wire_mode::kForward));
    VELTO_TRY(inputs.AddPort(shadernode::port::kContext, context));
    VELTO_TRY(shadernode::SetupContext(root));
    return Bound<NodesLibInterface>().WrapTemplate(system.Get(), kPassthrough, nodeTemplate);
}

static struct PassthroughDeclaration : DeclarationRecord
{
    PassthroughDeclaration()
    {
        ConstructPublished(thisUnit, kPassthrough, record_flags::kPublished, registry::kBuiltinNodes,
            [](DeclarationRecord*, Data* value, Id*) -> Result {
                Ref<BuiltinNodeObject> node = MakeShared<BuiltinNodeObject>();
                if (!node)
                    return OutOfMemory();
                node->makeTemplate = &MakeTemplate;
                return value->Set(BuiltinNode::Adopt(node.Detach()));
            });
    }
} passthroughNode;

} // namespace velto::pattern
