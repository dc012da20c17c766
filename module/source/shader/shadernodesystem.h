// The functions that prepare a graph root for the runtime.
#pragma once

#include "velto/graph.h"

namespace velto::shadernode
{

// Gives the root's context its type and wires it to every port that receives it.
Result SetupContext(const MutableRoot& root);

// Hands a node's inputs on to its output.
Result CreateForwardingWires(const MutableRoot& root);

// Hands a material's inputs on to what the renderer reads, `materialout`.
Result SetupMaterial(const MutableRoot& root);

namespace port
{
inline constexpr Id kContext{"context"};
inline constexpr Id kContextLocal{"contextlocal"};
inline constexpr Id kGlobalContext{"globalcontext"};
inline constexpr Id kMaterialOut{"materialout"};
inline constexpr Id kLayers{"layers"};
inline constexpr Id kBsdfLayers{"bsdflayers"};
} // namespace port

// The path of the context in the runtime.
inline Result ContextPath(NodePath& path)
{
    constexpr std::string_view name = "shadingcontext";
    return Bound<NodePathInterface>().Create(name.data(), name.size(), path.Receive());
}

// Whether a port is left alone by its flags.
inline Result IsLeftAlone(const MutablePort& port, bool& isLeftAlone)
{
    Data value;
    VELTO_TRY(port.GetValue(port_attribute::kPortFlags, value));
    const UInt8* const flags = value.As<UInt8>();
    isLeftAlone = flags && (*flags & 18) == 2;
    return {};
}

} // namespace velto::shadernode
