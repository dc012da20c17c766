#include "registry.h"

#include "host/system/guard.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <shared_mutex>
#include <unordered_map>

namespace velto::host
{

namespace
{

struct Entry
{
    Data value;
    std::string publisher;
};

struct Registry
{
    std::unordered_map<std::string, Entry> values;
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

std::string& CurrentPublisher()
{
    static std::string file; // modules are loaded one after the other
    return file;
}

const Entry* Find(std::string_view registry, std::string_view entry)
{
    const auto target = All().byName.find(registry);
    if (target == All().byName.end())
        return nullptr;
    const auto found = target->second.values.find(std::string(entry));
    return found == target->second.values.end() ? nullptr : &found->second;
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
        if (const auto known = target.values.find(name); known != target.values.end())
        {
            const std::string& publisher = known->second.publisher;
            const bool isOther = !publisher.empty() && publisher != CurrentPublisher();
            return MakeError(
                error::kIllegalArgument, fmt::format("The entry {} is in the registry {} already{}.", name,
                                             registry.View(), isOther ? ", published by " + publisher : ""));
        }
        target.order.push_back(name);
        try
        {
            target.values.emplace(std::move(name), Entry{std::move(copy), CurrentPublisher()});
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
    const Entry* const found = Find(registry, entry);
    return found ? &found->value : nullptr;
}

Publisher::Publisher(std::string file)
{
    CurrentPublisher() = std::move(file);
}

Publisher::~Publisher()
{
    CurrentPublisher().clear();
}

const std::string& Publisher::Current()
{
    return CurrentPublisher();
}

std::string PublisherOf(std::string_view registry, std::string_view entry)
{
    const std::shared_lock lock(All().mutex);
    const Entry* const found = Find(registry, entry);
    return found ? found->publisher : std::string();
}

std::string ModuleName(std::string_view file)
{
    return std::filesystem::path(file).stem().string();
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
