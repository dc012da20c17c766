// Functions that modules offer by name.
#pragma once

#include "velto/reflection.h"

#include <string>
#include <string_view>
#include <vector>

namespace velto::host
{

// The signature that all functions of a graph root have.
inline constexpr std::string_view kRootFunctionHash = "@fe0b344e033cea7a";

// Takes over what a module's providers offer; the names go to `names`.
Result RegisterFunctions(const ReflectionProvider* providers, std::vector<std::string>& names);
void UnregisterFunctions(const std::vector<std::string>& names);

// Calls a function such as `net.velto.shadernode.SetupContext`. Unresolved when no module offers it.
Result CallRootFunction(std::string_view name, const MutableRoot& root);
bool HasRootFunction(std::string_view name);

std::vector<std::string> FunctionNames();

} // namespace velto::host
