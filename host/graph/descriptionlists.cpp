#include "descriptionlists.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

namespace
{

class Includer
{
public:
    Includer(const std::filesystem::path& directory, Diagnostics& diagnostics)
        : directory_(directory), diagnostics_(diagnostics)
    {
    }

    Json Ports(const Json& ports, const std::string& place) const
    {
        Json all = Json::Array();
        for (std::size_t i = 0; i < ports.Elements().size(); ++i)
        {
            const Json& port = ports.Elements()[i];
            const std::string at = fmt::format("{}[{}]", place, i);
            if (const Json* const name = port.Find("include"))
                AppendIncluded(*name, port, at, all);
            else
                all.Append(WithValues(port, at));
        }
        return all;
    }

private:
    // An array; null and a fault when there is none of that name.
    Json List(const Json& name, const std::string& place) const
    {
        Json list;
        std::string text;
        Diagnostics diagnostics;
        const bool isName = name.IsString() && std::all_of(name.AsString().begin(), name.AsString().end(),
                                                   [](char c) { return c >= 'a' && c <= 'z'; });
        if (isName &&
            ReadFile((directory_ / (name.AsString() + ".json")).string(), JsonLimits().bytes, text, diagnostics) &&
            ReadJson(text, list, diagnostics) && list.IsArray())
            return list;
        diagnostics_.Fault(place, fmt::format("there is no list {}", name.Write()));
        return {};
    }

    // The ports of a list go to the inner node's ports of their names.
    void AppendIncluded(const Json& name, const Json& entry, const std::string& place, Json& all) const
    {
        const Json* const to = entry.Find("to");
        const Json* const defaults = entry.Find("defaults");
        if (!to || !to->IsString())
        {
            diagnostics_.Fault(place, "expected \"to\", one of the nodes");
            return;
        }
        const Json list = List(name, place);
        for (const Json& port : list.Elements())
        {
            const Json* const portName = port.Find("name");
            if (!portName || !portName->IsString())
            {
                diagnostics_.Fault(place, fmt::format("the list {} has a port without a name", name.Write()));
                continue;
            }
            Json targets = Json::Array();
            targets.Append(Json(to->AsString() + "." + portName->AsString()));
            const Json* const value = defaults ? defaults->Find(portName->AsString()) : nullptr;
            Json included = port;
            included.Set("to", std::move(targets));
            if (value)
                included.Set("default", *value);
            all.Append(std::move(included));
        }
    }

    Json WithValues(const Json& port, const std::string& place) const
    {
        Json whole = port;
        if (const Json* const values = port.Find("values"); values && values->IsString())
            whole.Set("values", List(*values, place + ".values"));
        if (const Json* const bundle = port.Find("bundle"); bundle && bundle->IsArray())
            whole.Set("bundle", Ports(*bundle, place + ".bundle"));
        return whole;
    }

    const std::filesystem::path& directory_;
    Diagnostics& diagnostics_;
};

} // namespace

void IncludeLists(const std::filesystem::path& directory, Json& description, Diagnostics& diagnostics)
{
    if (const Json* const inputs = description.Find("inputs"); inputs && inputs->IsArray())
        description.Set("inputs", Includer(directory, diagnostics).Ports(*inputs, "inputs"));
}

} // namespace velto::host
