// The vocabulary of materials: the names of a layer's parameters and of a material's inputs, in the order in which
// descriptions state them. What they do to light is the renderer's.
#pragma once

#include <string_view>

namespace velto::bsdf
{

// The kind of value that a name has.
enum class Kind
{
    Switch,      // Bool
    Number,      // Float
    Count,       // Int
    Colour,      // Color
    Direction,   // Vector
    Enumeration, // InternedId
    Name,        // String
    Layer,       // a BSDF layer, opaque
    Layers,      // a list of layer entries
    Outputs,     // a list of additional outputs
    Context,     // ShadingContext
};

struct Name
{
    std::string_view id;
    Kind kind;
};

inline constexpr std::string_view kLayerType = "net.velto.render.datatype.bsdflayer";
inline constexpr std::string_view kContextGroup = "net.velto.render.node.base.group.context";

inline constexpr Name kContextPorts[] = {{"context", Kind::Context}, {"contextlocal", Kind::Context}};

inline constexpr Name kLayerEntry[] = {
    {"active", Kind::Switch}, {"bsdflayer", Kind::Layer}, {"strength", Kind::Number}};

inline constexpr std::string_view kBsdfTypes[] = {
    "orennayerbrdf", "beckmannbrdf", "ggxbrdf", "phongbrdf", "wardbrdf", "anisotropicbrdf"};
inline constexpr std::string_view kFresnelTypes[] = {"none", "conductor", "dielectric"};

inline constexpr Name kLayerParameters[] = {
    {"bsdftype", Kind::Enumeration},
    {"color", Kind::Colour},
    {"reflectionstrength", Kind::Number},
    {"roughness", Kind::Number},
    {"anisotropy", Kind::Number},
    {"orientation", Kind::Number},
    {"samplesubdiv", Kind::Count},
    {"normal", Kind::Direction},
    {"normalstrength", Kind::Number},
    {"fresneltype", Kind::Enumeration},
    {"fresnelstrength", Kind::Number},
    {"conductorior", Kind::Direction},
    {"conductorabs", Kind::Direction},
    {"dielectricior", Kind::Number},
    {"opaquefresnel", Kind::Switch},
    {"result", Kind::Layer},
};

inline constexpr Name kMaterialInputs[] = {
    {"bsdflayers", Kind::Layers},
    {"emission", Kind::Colour},
    {"alphacontrol", Kind::Switch},
    {"alpha", Kind::Number},
    {"enabletransparency", Kind::Switch},
    {"transparency", Kind::Colour},
    {"ior", Kind::Number},
    {"exitreflections", Kind::Switch},
    {"roughness", Kind::Number},
    {"fresnelreflectivity", Kind::Number},
    {"samplesubdiv", Kind::Count},
    {"blurriness", Kind::Number},
    {"absorption", Kind::Colour},
    {"absorptiondistance", Kind::Number},
    {"normal", Kind::Direction},
    {"displacement", Kind::Number},
    {"displacementheight", Kind::Number},
    {"spd", Kind::Switch},
    {"roundgeometry", Kind::Switch},
    {"spdlevel", Kind::Count},
    {"aovs", Kind::Outputs},
    {"context", Kind::Context},
};

inline constexpr Name kOutputEntry[] = {{"active", Kind::Switch}, {"id", Kind::Name}, {"color", Kind::Colour}};

// The parameters of one layered material, as the GPU renderer's node set names them.
inline constexpr std::string_view kLayeredMaterial[] = {
    "base.color",
    "base.strength",
    "base.reflection.color",
    "base.reflection.strength",
    "base.reflection.roughness",
    "base.reflection.anisotropy",
    "base.reflection.roughness.anisotropyrotation",
    "base.fresneltype",
    "dielectric",
    "metallic",
    "base.metalness",
    "ior",
    "base.sheen",
    "base.sheen.color",
    "base.transparency.type",
    "refraction",
    "scattering",
    "base.transparency.refraction.strength",
    "base.transparency.scattering.strength",
    "base.transparency.refraction.roughness",
    "base.refraction.thinsurface",
    "base.refraction.caustics",
    "base.bump.strength",
    "base.bump.mode",
    "bump",
    "normal",
    "base.bump.normalmap",
    "base.bump.bumpmap",
    "base.normal.flip.x",
    "base.normal.flip.y",
    "base.normal.swapyz",
    "coating.color",
    "coating.ior",
    "coating.strength",
    "coating.roughness",
    "coating.thickness",
    "coating.transmissioncolor",
    "coating.bump.strength",
    "coating.bump.mode",
    "coating.bump.bumpmap",
    "coating.bump.normalmap",
    "coating.normal.flip.x",
    "coating.normal.flip.y",
    "coating.normal.swapyz",
    "emission.color",
    "emission.intensity",
    "base",
    "coating",
    "emission",
};

} // namespace velto::bsdf
