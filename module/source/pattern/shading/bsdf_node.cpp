// Hands the inputs of nodes and materials on to where they are read.
#include "../../shader/shadernodesystem.h"
#include "velto/bsdf.h"
#include "velto/record.h"

#include <new>

namespace velto::shadernode
{

VELTO_TRANSLATION_UNIT(0);

// The vocabulary as interned ids, each declared once, in its order.
class Vocabulary
{
public:
    Vocabulary()
    {
        const auto declareNames = [this](const auto& names) {
            for (const bsdf::Name& name : names)
                Declare(name.id);
        };
        const auto declareTexts = [this](const auto& texts) {
            for (const std::string_view text : texts)
                Declare(text);
        };
        declareNames(bsdf::kContextPorts);
        Declare(bsdf::kContextGroup);
        declareNames(bsdf::kLayerEntry);
        declareNames(bsdf::kLayerParameters);
        declareTexts(bsdf::kBsdfTypes);
        declareTexts(bsdf::kFresnelTypes);
        declareNames(bsdf::kMaterialInputs);
        declareNames(bsdf::kOutputEntry);
        declareTexts(bsdf::kLayeredMaterial);
    }

private:
    static constexpr int kMost = 160;

    void Declare(std::string_view text)
    {
        for (int i = 0; i < count_; ++i)
        {
            if (At(i).id.View() == text)
                return;
        }
        if (count_ < kMost)
            ::new (memory_ + sizeof(InternedName) * static_cast<std::size_t>(count_++))
                InternedName(thisUnit, Id::OverStatic(text));
    }
    InternedName& At(int i)
    {
        return *std::launder(
            reinterpret_cast<InternedName*>(memory_ + sizeof(InternedName) * static_cast<std::size_t>(i)));
    }

    alignas(InternedName) std::byte memory_[sizeof(InternedName) * kMost];
    int count_ = 0;
};

static Vocabulary vocabulary;

// A port of the same name under `target`, wired to `source`.
static Result Forward(const MutablePort& source, const Id& name, const MutablePort& target, MutablePort& forwarded)
{
    VELTO_TRY(target.AddPort(name, forwarded));
    return source.Connect(forwarded, wire_mode::kForward);
}

Result CreateForwardingWires(const MutableRoot& root)
{
    VELTO_TRY(root.Commit(0));
    MutablePort inputs;
    MutablePort outputs;
    MutablePort out;
    VELTO_TRY(root.GetOutputs(outputs));
    VELTO_TRY(outputs.FindPort(Id(), out));
    VELTO_TRY(root.GetInputs(inputs));
    VELTO_TRY(inputs.GetChildren([&](const MutablePort& input) -> Result {
        bool isLeftAlone = false;
        VELTO_TRY(IsLeftAlone(input, isLeftAlone));
        Id name;
        VELTO_TRY(input.GetName(name));
        if (isLeftAlone || name == port::kContext)
            return {};
        MutablePort forwarded;
        VELTO_TRY(Forward(input, name, out, forwarded));
        return forwarded.SetValue(port_attribute::kInternalHidden, true);
    }));
    return SetupContext(root);
}

Result SetupMaterial(const MutableRoot& root)
{
    VELTO_TRY(SetupContext(root));
    MutablePort outputs;
    MutablePort material;
    VELTO_TRY(root.GetOutputs(outputs));
    VELTO_TRY(outputs.AddPort(port::kMaterialOut, material));
    VELTO_TRY(material.SetValue(port_attribute::kTappingPort, true));
    VELTO_TRY(material.SetValue(port_attribute::kInternalHidden, true));

    MutablePort inputs;
    MutablePort layers;
    MutablePort bsdfLayers;
    VELTO_TRY(material.AddPort(port::kLayers, layers));
    VELTO_TRY(root.GetInputs(inputs));
    VELTO_TRY(inputs.FindPort(port::kBsdfLayers, bsdfLayers));
    VELTO_TRY(bsdfLayers.Connect(layers, wire_mode::kForward));

    MutablePort globalContext;
    VELTO_TRY(inputs.AddPort(port::kGlobalContext, globalContext));
    VELTO_TRY(globalContext.Connect(material, wire_mode::kContext));
    VELTO_TRY(globalContext.SetValue(port_attribute::kInternalHidden, true));
    NodePath path;
    VELTO_TRY(ContextPath(path));
    VELTO_TRY(globalContext.SetValue(port_attribute::kContextMemberDefinitionPrefix, path));

    return inputs.GetChildren([&](const MutablePort& input) -> Result {
        Id name;
        VELTO_TRY(input.GetName(name));
        if (name == port::kContext || name == port::kBsdfLayers || name == port::kGlobalContext)
            return {};
        MutablePort forwarded;
        return Forward(input, name, material, forwarded);
    });
}

} // namespace velto::shadernode
