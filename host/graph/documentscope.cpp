#include "documentscope.h"

#include "host/system/guard.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

bool IsName(std::string_view text)
{
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    return !text.empty() && text.size() <= 256 && !isDigit(text.front()) &&
           std::all_of(text.begin(), text.end(), [&](char c) { return isLetter(c) || isDigit(c); });
}

void CheckKeys(
    DocumentScope& scope, const Json& object, const std::string& place, const std::vector<std::string>& known)
{
    for (const auto& [name, member] : object.GetMembers())
    {
        if (std::find(known.begin(), known.end(), name) == known.end())
            scope.diagnostics.Fault(
                Join(place, name), fmt::format("is not known here{}{}{}", Suggestion(name, known),
                                       known.empty() ? "" : "; expected one of ", fmt::join(known, ", ")));
    }
}

std::string Join(const std::string& place, std::string_view name)
{
    return place.empty() ? Printable(name) : fmt::format("{}.{}", place, Printable(name));
}

bool HasFewElements(DocumentScope& scope, const Json& json, const std::string& place)
{
    const std::size_t count = json.Elements().size();
    if (count > scope.limits.elements)
        scope.diagnostics.Fault(place, fmt::format("{} elements; at most {} are taken", count, scope.limits.elements));
    return count <= scope.limits.elements;
}

CoreInput Copy(const CoreInput& input)
{
    CoreInput copy;
    copy.link = input.link;
    copy.connected = input.connected;
    copy.origin = input.origin;
    ThrowIfError(copy.value.CopyFrom(input.value));
    return copy;
}

} // namespace velto::host
