// Switches of a module that the host can see and set.
#pragma once

#include "velto/system.h"

namespace velto
{

struct ConfigurationEntry
{
    const char* name = nullptr;
    const char* help = nullptr;
    UInt flags = 1;
    Bool* value = nullptr;
};

struct ConfigurationInterface
{
    static constexpr Id kId{"net.velto.interface.configuration"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [one thread; loading] Makes a value of the module's known; the host may write it from then on. The entry and its
    // value must live until the module is unloaded.
    VELTO_METHOD(ConfigurationRegister, Result(const ConfigurationEntry* entry));
};
VELTO_USED_BY_INCLUDERS("velto/configuration.h", ConfigurationInterface);

// The module's values, entered during static construction.
struct ConfigurationTable
{
    static constexpr Int kMaxEntries = 256;
    ConfigurationEntry entries[kMaxEntries];
    Int count = 0;
};

inline constinit ConfigurationTable configurationTable;

// Enters a value in the table; one that no longer fits is left out.
struct ConfigurationValue
{
    ConfigurationValue(const char* name, const char* help, Bool* value)
    {
        if (configurationTable.count < ConfigurationTable::kMaxEntries)
            configurationTable.entries[configurationTable.count++] = {name, help, 1, value};
    }
};

} // namespace velto
