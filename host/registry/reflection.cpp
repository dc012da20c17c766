#include "reflection.h"

#include "registry.h"

#include "host/system/guard.h"

#include <fmt/format.h>

#include <map>

namespace velto::host
{

namespace
{

struct Function
{
    Result (*implementation)(const MutableRoot&);
    Result (*call)(const FunctionDescriptor*, const MutableRoot*);
    std::string publisher;
};

std::map<std::string, Function, std::less<>>& Functions()
{
    static std::map<std::string, Function, std::less<>> functions;
    return functions;
}

// The descriptor is valid for this call only, so what is needed of it is copied.
Result Receive(void* receiver, const FunctionDescriptor* function)
{
    return Guarded([&]() -> Result {
        std::string name(function->name.View());
        if (function->kind != 4 || !name.ends_with(kRootFunctionHash))
            return MakeError(
                error::kUnresolved, fmt::format("The function {} has a signature that this host does not know.", name));
        const auto [known, isNew] =
            Functions().emplace(name, Function{function->implementation, function->call, Publisher::Current()});
        if (!isNew)
            return MakeError(error::kIllegalArgument,
                fmt::format("The function {} is offered by {} already.", name, known->second.publisher));
        static_cast<std::vector<std::string>*>(receiver)->push_back(std::move(name));
        return {};
    });
}

} // namespace

Result RegisterFunctions(const ReflectionProvider* providers, std::vector<std::string>& names)
{
    for (const ReflectionProvider* provider = providers; provider; provider = provider->next)
        VELTO_TRY(provider->provide(&names, &Receive));
    return {};
}

void UnregisterFunctions(const std::vector<std::string>& names)
{
    for (const std::string& name : names)
        Functions().erase(name);
}

Result CallRootFunction(std::string_view name, const MutableRoot& root)
{
    const auto found = Functions().find(fmt::format("{}{}", name, kRootFunctionHash));
    if (found == Functions().end())
        return MakeError(error::kUnresolved, fmt::format("No module offers the function {}.", name));
    FunctionDescriptor function;
    function.implementation = found->second.implementation;
    return found->second.call(&function, &root);
}

bool HasRootFunction(std::string_view name)
{
    return Functions().contains(fmt::format("{}{}", name, kRootFunctionHash));
}

std::vector<std::string> FunctionNames()
{
    std::vector<std::string> names;
    for (const auto& [name, function] : Functions())
        names.push_back(name);
    return names;
}

} // namespace velto::host
