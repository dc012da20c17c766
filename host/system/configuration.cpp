#include "configuration.h"

#include "guard.h"

namespace velto::host
{

std::vector<const ConfigurationEntry*>& Configuration()
{
    static std::vector<const ConfigurationEntry*> entries;
    return entries;
}

const ConfigurationInterface& ConfigurationService()
{
    static constexpr ConfigurationInterface service{
        .ConfigurationRegister = {+[](const ConfigurationEntry* entry) {
            return Guarded([&]() -> Result {
                VELTO_CHECK_ARGUMENT(entry && entry->name && entry->value);
                Configuration().push_back(entry);
                return {};
            });
        }},
    };
    return service;
}

} // namespace velto::host
