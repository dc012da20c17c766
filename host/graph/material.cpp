#include "material.h"

#include "host/registry/datatypes.h"
#include "host/registry/reflection.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <numbers>

namespace velto::host
{

namespace
{

struct BsdfLayer
{
};

constexpr std::string_view kLayerNode = "net.velto.render.node.bsdflayer";

// What a parameter starts as where the layer node leaves it out, for people; channels that are left out are not baked.
struct Shown
{
    std::string_view name;
    std::string_view label;
    Json value;
    Json minimum;
    Json maximum;
};

const std::vector<Shown>& ShownParameters()
{
    const auto vector = [](Float x, Float y, Float z) {
        Json json = Json::Array();
        for (const Float c : {x, y, z})
            json.Append(c);
        return json;
    };
    static const std::vector<Shown> all{
        {"bsdftype", "Model", "ggxbrdf", {}, {}},
        {"color", "Colour", vector(0.8, 0.8, 0.8), {}, {}},
        {"reflectionstrength", "Reflection strength", 1.0, 0.0, 1.0},
        {"roughness", "Roughness", 0.3, 0.0, 1.0},
        {"anisotropy", "Anisotropy", 0.0, 0.0, 1.0},
        {"orientation", "Orientation", 0.0, 0.0, 2.0 * std::numbers::pi},
        {"samplesubdiv", "Sample subdivisions", Int(4), Int(0), Int(16)},
        {"normal", "Normal", vector(0.0, 0.0, 1.0), {}, {}},
        {"normalstrength", "Normal strength", 1.0, 0.0, 1.0},
        {"fresneltype", "Fresnel", "dielectric", {}, {}},
        {"fresnelstrength", "Fresnel strength", 1.0, 0.0, 1.0},
        {"conductorior", "Conductor index of refraction", vector(0.2, 0.9, 1.1), {}, {}},
        {"conductorabs", "Conductor absorption", vector(3.9, 2.4, 2.2), {}, {}},
        {"dielectricior", "Dielectric index of refraction", 1.5, 1.0, 3.0},
        {"opaquefresnel", "Opaque Fresnel", false, {}, {}},
    };
    return all;
}

Result SetType(const MutablePort& port, const DataType* type)
{
    return port.SetValue(port_attribute::kFixedType, Ref<const DataType>::Share(type));
}

// The entries `_0`, `_1`, ... of a list, each with the members of an entry.
template <std::size_t N>
Result AddEntries(const MutablePort& list, std::size_t count, const bsdf::Name (&members)[N])
{
    for (std::size_t i = 0; i < count; ++i)
    {
        MutablePort entry;
        VELTO_TRY(AddPort(list, fmt::format("_{}", i), entry));
        for (const bsdf::Name& member : members)
        {
            MutablePort port;
            VELTO_TRY(AddPort(entry, member.id, port));
            VELTO_TRY(SetType(port, TypeOfName(member)));
        }
    }
    return {};
}

} // namespace

const DataType* LayerType()
{
    static const DataType* const type = [] {
        static constexpr DataTypeOperations operations = MakeDataTypeOperations<BsdfLayer>();
        const DataType* made = nullptr;
        DataTypeService().Create(Id::OverStatic(bsdf::kLayerType), &operations, &made).Ignore();
        return made;
    }();
    return type;
}

const DataType* TypeOfName(const bsdf::Name& name)
{
    switch (name.kind)
    {
    case bsdf::Kind::Switch:
        return TypeOf<Bool>();
    case bsdf::Kind::Number:
        return TypeOf<Float>();
    case bsdf::Kind::Count:
        return TypeOf<Int>();
    case bsdf::Kind::Colour:
        return TypeOf<Color>();
    case bsdf::Kind::Direction:
        return TypeOf<Vector>();
    case bsdf::Kind::Enumeration:
        return TypeOf<InternedId>();
    case bsdf::Kind::Name:
        return TypeOf<String>();
    case bsdf::Kind::Layer:
        return LayerType();
    case bsdf::Kind::Context:
        return TypeOf<ShadingContext>();
    case bsdf::Kind::Layers:
    case bsdf::Kind::Outputs:
        break;
    }
    return nullptr;
}

bool IsLayerNode(const NodeType& type)
{
    return type.id == kLayerNode;
}

std::shared_ptr<const NodeType> LayerNodeType()
{
    auto type = std::make_shared<NodeType>();
    type->isDescribed = true;
    type->id = kLayerNode;
    type->name = "bsdflayer";
    type->label = "BSDF layer";
    type->category = "Shading";
    type->help = "A layer of a material: how light is reflected, and by which share.";
    for (const bsdf::Name& name : bsdf::kLayerParameters)
    {
        NodePort port;
        port.name = name.id;
        port.label = name.id;
        port.input = name.kind != bsdf::Kind::Layer;
        port.type = Ref<const DataType>::Share(TypeOfName(name));
        for (const Shown& shown : ShownParameters())
        {
            if (shown.name != name.id)
                continue;
            port.label = shown.label;
            port.shownDefault = shown.value;
            port.minimum = shown.minimum;
            port.maximum = shown.maximum;
        }
        if (name.id == "bsdftype")
            port.values.assign(std::begin(bsdf::kBsdfTypes), std::end(bsdf::kBsdfTypes));
        if (name.id == "fresneltype")
            port.values.assign(std::begin(bsdf::kFresnelTypes), std::end(bsdf::kFresnelTypes));
        type->AddPort(std::move(port));
    }
    return type;
}

const bsdf::Name* FindMaterialInput(std::string_view name)
{
    for (const bsdf::Name& input : bsdf::kMaterialInputs)
    {
        if (input.id == name)
            return &input;
    }
    return nullptr;
}

Result BuildMaterialRoot(std::size_t layers, std::size_t aovs, NodeSystem& system)
{
    system = MakeNodeSystem();
    if (!system)
        return OutOfMemory();
    const MutableRoot root(system);
    MutablePort inputs;
    VELTO_TRY(root.GetInputs(inputs));
    for (const bsdf::Name& name : bsdf::kMaterialInputs)
    {
        MutablePort port;
        VELTO_TRY(AddPort(inputs, name.id, port));
        if (name.kind == bsdf::Kind::Layers)
            VELTO_TRY(AddEntries(port, layers, bsdf::kLayerEntry));
        else if (name.kind == bsdf::Kind::Outputs)
            VELTO_TRY(AddEntries(port, aovs, bsdf::kOutputEntry));
        else if (name.kind != bsdf::Kind::Context)
            VELTO_TRY(SetType(port, TypeOfName(name)));
    }
    VELTO_TRY(CallRootFunction("net.velto.shadernode.SetupMaterial", root));
    return root.Commit(0);
}

std::vector<std::string> ArrivingInputs(const HostNodeSystem& root)
{
    std::vector<std::string> names;
    for (const GraphWire& wire : root.wires)
    {
        const GraphPort& from = root.ports[static_cast<std::size_t>(wire.from)];
        const GraphPort& to = root.ports[static_cast<std::size_t>(wire.to)];
        const bool isAtOutput = to.parent >= 0 && root.ports[static_cast<std::size_t>(to.parent)].name == "materialout";
        if (wire.mode == wire_mode::kForward && isAtOutput)
            names.push_back(from.name);
    }
    return names;
}

} // namespace velto::host
