#include "module.h"

#include "host/loader/services.h"
#include "host/registry/registry.h"
#include "host/system/configuration.h"

#include <fmt/format.h>

#include <filesystem>
#include <ostream>
#include <set>

namespace velto::cli
{

using host::Json;

namespace
{

template <class Visit>
void ForEachUnit(const ModuleExport& module, Visit&& visit)
{
    for (const ModuleRecord* record = module.moduleRecords; record; record = record->nextModule)
    {
        for (const Record* unit = record->units; unit; unit = unit->next)
            visit(*record, *static_cast<const TranslationUnitRecord*>(unit));
    }
}

Json DescribeInterfaces(const ModuleExport& module)
{
    Json interfaces = Json::Array();
    ForEachUnit(module, [&](const ModuleRecord&, const TranslationUnitRecord& unit) {
        for (const Record* record = unit.first; record; record = record->next)
        {
            if (record->kind != RecordKind::InterfaceBinding)
                continue;
            const auto& binding = *static_cast<const InterfaceBindingRecord*>(record);
            Int bound = 0;
            for (UInt32 i = 0; i < binding.methodCount; ++i)
                bound += binding.slots[i] != binding.shadow[i];
            Json json = Json::Object();
            json.Add("id", binding.interfaceId.View());
            json.Add("slots", Int(binding.methodCount));
            json.Add("bound", bound);
            interfaces.Append(std::move(json));
        }
    });
    return interfaces;
}

// What a module published, and with the first of them what the host did.
Json DescribeRegistries(const host::Module& module, bool withHost)
{
    Json registries = Json::Object();
    for (const std::string& name : host::RegistryNames())
    {
        Json entries = Json::Array();
        for (const std::string& entry : host::EntryNames(name))
        {
            const std::string publisher = host::PublisherOf(name, entry);
            if (publisher == module.File() || (withHost && publisher.empty()))
                entries.Append(entry);
        }
        if (withHost || !entries.Elements().empty())
            registries.Add(name, std::move(entries));
    }
    return registries;
}

// Modules share the names of switches.
Json DescribeConfiguration()
{
    Json configuration = Json::Array();
    std::set<std::string_view> known;
    for (const ConfigurationEntry* const value : host::Configuration())
    {
        if (!known.insert(value->name).second)
            continue;
        Json entry = Json::Object();
        entry.Add("name", value->name);
        entry.Add("help", value->help);
        entry.Add("value", *value->value);
        configuration.Append(std::move(entry));
    }
    return configuration;
}

Json Describe(const host::Module& loaded, bool isFirst)
{
    const ModuleExport& module = loaded.Export();
    Json json = Json::Object();
    if (!isFirst)
        json.Add("file", loaded.File().string());
    json.Add("stamp", module.stamp);
    Json modules = Json::Array();
    for (const ModuleRecord* record = module.moduleRecords; record; record = record->nextModule)
        modules.Append(record->id.View());
    json.Add("moduleRecords", std::move(modules));
    Json units = Json::Array();
    ForEachUnit(module, [&](const ModuleRecord& owner, const TranslationUnitRecord& unit) {
        if (owner.requiredCount == 0)
            return; // a framework's bindings are listed below
        Json entry = Json::Object();
        entry.Add("id", unit.id.View());
        entry.Add("flags", Int(unit.flags));
        units.Append(std::move(entry));
    });
    json.Add("translationUnits", std::move(units));
    json.Add("registries", DescribeRegistries(loaded, isFirst));
    json.Add("interfaces", DescribeInterfaces(module));
    return json;
}

// The module that is asked about: the first that the command line names, or that of the shader nodes, or any.
const host::Module& Asked(const ModuleArguments& arguments, const host::Modules& modules)
{
    for (const auto& module : modules.All())
    {
        std::error_code ignored;
        const std::vector<std::string>& files = arguments.modules.files;
        if (files.empty() ? module->File().stem() == "shadernodes"
                          : std::filesystem::equivalent(module->File(), files.front(), ignored))
            return *module;
    }
    return *modules.All().front();
}

// One of them as a whole, the others below `modules`.
Json DescribeAll(const ModuleArguments& arguments, const host::Modules& modules)
{
    const host::Module& asked = Asked(arguments, modules);
    Json json = Describe(asked, true);
    json.Add("configuration", DescribeConfiguration());
    Json others = Json::Array();
    for (const auto& module : modules.All())
    {
        if (module.get() != &asked)
            others.Append(Describe(*module, false));
    }
    if (!others.Elements().empty())
        json.Add("modules", std::move(others));
    return json;
}

void PrintModule(const Json& description, std::ostream& out)
{
    for (const auto& [name, value] : description.GetMembers())
    {
        if (value.IsArray())
        {
            out << fmt::format("{} ({})\n", name, value.Elements().size());
            for (const Json& element : value.Elements())
                out << "  " << (element.IsString() ? element.AsString() : element.Write()) << '\n';
        }
        else if (value.IsObject())
        {
            out << name << '\n';
            for (const auto& [registry, entries] : value.GetMembers())
            {
                out << fmt::format("  {} ({})\n", registry, entries.Elements().size());
                for (const Json& entry : entries.Elements())
                    out << "    " << entry.AsString() << '\n';
            }
        }
        else
            out << name << ": " << value.Write() << '\n';
    }
}

void Print(const Json& description, std::ostream& out)
{
    Json first = Json::Object();
    for (const auto& [name, value] : description.GetMembers())
    {
        if (name != "modules")
            first.Add(name, value);
    }
    PrintModule(first, out);
    const Json* const others = description.Find("modules");
    for (std::size_t i = 0; others && i < others->Elements().size(); ++i)
    {
        out << '\n';
        PrintModule(others->Elements()[i], out);
    }
}

} // namespace

int Module(const ModuleArguments& arguments, const Streams& streams)
{
    std::shared_ptr<host::Modules> modules;
    if (!LoadModules(arguments.modules, streams, modules))
        return kFailed;
    const Json description = DescribeAll(arguments, *modules);
    if (arguments.json)
        streams.out << description.Write(true) << '\n';
    else
        Print(description, streams.out);
    return kSuccess;
}

} // namespace velto::cli
