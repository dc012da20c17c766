#include "module.h"

#include "host/loader/services.h"
#include "host/registry/registry.h"
#include "host/system/configuration.h"

#include <fmt/format.h>

#include <ostream>

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

Json Describe(const ModuleExport& module)
{
    Json json = Json::Object();
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
    Json registries = Json::Object();
    for (const std::string& name : host::RegistryNames())
    {
        Json entries = Json::Array();
        for (const std::string& entry : host::EntryNames(name))
            entries.Append(entry);
        registries.Add(name, std::move(entries));
    }
    json.Add("registries", std::move(registries));
    json.Add("interfaces", DescribeInterfaces(module));
    Json configuration = Json::Array();
    for (const ConfigurationEntry* const value : host::Configuration())
    {
        Json entry = Json::Object();
        entry.Add("name", value->name);
        entry.Add("help", value->help);
        entry.Add("value", *value->value);
        configuration.Append(std::move(entry));
    }
    json.Add("configuration", std::move(configuration));
    return json;
}

void Print(const Json& description, std::ostream& out)
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

} // namespace

int Module(const ModuleArguments& arguments, const Streams& streams)
{
    std::shared_ptr<host::Module> module;
    if (!LoadModule(arguments.module, streams, module))
        return kFailed;
    const Json description = Describe(module->Export());
    if (arguments.json)
        streams.out << description.Write(true) << '\n';
    else
        Print(description, streams.out);
    return kSuccess;
}

} // namespace velto::cli
