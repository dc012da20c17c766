#include "documentscope.h"

#include "host/system/guard.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

bool IsName(std::string_view text, std::string_view extra)
{
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto isExtra = [extra](char c) { return extra.find(c) != extra.npos; };
    return !text.empty() && text.size() <= 256 && !isDigit(text.front()) && !isExtra(text.front()) &&
           !isExtra(text.back()) &&
           std::all_of(text.begin(), text.end(), [&](char c) { return isLetter(c) || isDigit(c) || isExtra(c); });
}

bool IsComment(const std::string& name, const Json& json)
{
    return name == "comment" && !json.IsObject();
}

void CheckKeys(
    DocumentScope& scope, const Json& object, const std::string& place, const std::vector<std::string>& known)
{
    const auto isText = [](const Json& json) { return json.IsString(); };
    for (const auto& [name, member] : object.GetMembers())
    {
        if (IsComment(name, member))
        {
            const auto& lines = member.Elements();
            if (!member.IsString() && !(member.IsArray() && std::all_of(lines.begin(), lines.end(), isText)))
                scope.diagnostics.Fault(Join(place, name),
                    fmt::format("expected a string or an array of strings, got {}", member.Description()));
        }
        else if (std::find(known.begin(), known.end(), name) == known.end())
            scope.diagnostics.Fault(
                Join(place, name), fmt::format("is not known here{}{}{}", Suggestion(name, known),
                                       known.empty() ? "" : "; expected one of ", fmt::join(known, ", ")));
    }
}

std::string Join(const std::string& place, std::string_view name)
{
    return place.empty() ? Printable(name) : fmt::format("{}.{}", place, Printable(name));
}

void CheckInterface(DocumentScope& scope, const Json& json, const std::string& place)
{
    if (const Json* const interface = json.Find("ui"); interface && !interface->IsObject())
        scope.diagnostics.Fault(Join(place, "ui"), fmt::format("expected an object, got {}", interface->Description()));
}

bool HasFewElements(DocumentScope& scope, const Json& json, const std::string& place)
{
    const std::size_t count = json.IsObject() ? json.GetMembers().size() : json.Elements().size();
    if (count > scope.options.limits.elements)
        scope.diagnostics.Fault(place, fmt::format("{} {}; at most {} are taken", count,
                                           place == "outputs" ? "outputs" : "elements", scope.options.limits.elements));
    return count <= scope.options.limits.elements;
}

CoreInput Copy(const CoreInput& input)
{
    CoreInput copy;
    copy.link = input.link;
    copy.connected = input.connected;
    copy.origin = input.origin;
    copy.values = input.values;
    ThrowIfError(copy.value.CopyFrom(input.value));
    return copy;
}

} // namespace velto::host
