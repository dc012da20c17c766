// Hands the inputs of nodes and materials on to where they are read.
#include "../../shader/shadernodesystem.h"
#include "velto/bsdf.h"
#include "velto/unit.h"

#include <algorithm>

namespace velto::shadernode
{

VELTO_TRANSLATION_UNIT(0);

struct Words
{
    static constexpr std::size_t kMost = 160;
    std::string_view texts[kMost];
    std::size_t count = 0;

    // More than `kMost` do not compile.
    constexpr void Add(std::string_view text)
    {
        if (std::find(texts, texts + count, text) == texts + count)
            texts[count++] = text;
    }
    constexpr void Add(const bsdf::Name& name) { Add(name.id); }
};

// The vocabulary, each word once, in its order.
static constexpr Words kWords = [] {
    Words words;
    const auto addAll = [&words](const auto& list) {
        for (const auto& word : list)
            words.Add(word);
    };
    addAll(bsdf::kContextPorts);
    words.Add(bsdf::kContextGroup);
    addAll(bsdf::kLayerEntry);
    addAll(bsdf::kLayerParameters);
    addAll(bsdf::kBsdfTypes);
    addAll(bsdf::kFresnelTypes);
    addAll(bsdf::kMaterialInputs);
    addAll(bsdf::kOutputEntry);
    addAll(bsdf::kLayeredMaterial);
    return words;
}();

template <std::size_t... I>
struct Vocabulary
{
    InternedName names[sizeof...(I)];

    explicit Vocabulary(std::index_sequence<I...>) : names{InternedName(thisUnit, Id::OverStatic(kWords.texts[I]))...}
    {
    }
};

static const Vocabulary vocabulary{std::make_index_sequence<kWords.count>()};

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
