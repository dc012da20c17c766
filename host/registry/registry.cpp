#include "registry.h"

#include "host/system/guard.h"

#include <algorithm>
#include <map>
#include <shared_mutex>
#include <unordered_map>

namespace velto::host
{

namespace
{

struct Registry
{
    std::unordered_map<std::string, Data> values;
    std::vector<std::string> order;
};

struct Registries
{
    std::shared_mutex mutex;
    std::map<std::string, Registry, std::less<>> byName;
};

Registries& All()
{
    static Registries registries;
    return registries;
}

Result InsertEntry(const Id& registry, const Id& entry, const Data& value)
{
    return Guarded([&]() -> Result {
        VELTO_CHECK_ARGUMENT(!registry.IsEmpty() && !entry.IsEmpty());
        std::string name(entry.View());
        Data copy;
        VELTO_TRY(copy.CopyFrom(value));
        const std::lock_guard lock(All().mutex);
        Registry& target = All().byName[std::string(registry.View())];
        if (target.values.contains(name))
            return MakeError(error::kIllegalArgument,
                "The entry " + name + " is in the registry " + std::string(registry.View()) + " already.");
        target.order.push_back(name);
        try
        {
            target.values.emplace(std::move(name), std::move(copy));
        }
        catch (...)
        {
            target.order.pop_back();
            throw;
        }
        return {};
    });
}

Result EraseEntry(const Id& registry, const Id& entry)
{
    return Guarded([&]() -> Result {
        const std::lock_guard lock(All().mutex);
        const auto target = All().byName.find(registry.View());
        const std::string name(entry.View());
        if (target == All().byName.end() || target->second.values.erase(name) == 0)
            return MakeError(error::kIllegalArgument, "There is no entry to erase.");
        std::erase(target->second.order, name);
        return {};
    });
}

Result FindEntryValue(const Id& registry, const Id& entry, Data* value)
{
    return Guarded([&]() -> Result {
        const Data* const found = FindEntry(registry.View(), entry.View());
        if (!found)
            return MakeError(error::kUnresolved, "There is no entry " + std::string(entry.View()) +
                                                     " in the registry " + std::string(registry.View()) + ".");
        return value->CopyFrom(*found);
    });
}

} // namespace

const Data* FindEntry(std::string_view registry, std::string_view entry)
{
    const std::shared_lock lock(All().mutex);
    const auto target = All().byName.find(registry);
    if (target == All().byName.end())
        return nullptr;
    const auto value = target->second.values.find(std::string(entry));
    return value == target->second.values.end() ? nullptr : &value->second;
}

std::vector<std::string> EntryNames(std::string_view registry)
{
    const std::shared_lock lock(All().mutex);
    const auto target = All().byName.find(registry);
    return target == All().byName.end() ? std::vector<std::string>() : target->second.order;
}

std::vector<std::string> RegistryNames()
{
    const std::shared_lock lock(All().mutex);
    std::vector<std::string> names;
    for (const auto& [name, registry] : All().byName)
        names.push_back(name);
    return names;
}

const RegistryInterface& RegistryService()
{
    static constexpr RegistryInterface service{
        .InsertEntry = {&InsertEntry},
        .EraseEntry = {&EraseEntry},
        .FindEntryValue = {&FindEntryValue},
    };
    return service;
}

} // namespace velto::host
