// The records of a module that has just been opened, looked at before any of them is believed.
#pragma once

#include "velto/unit.h"

#include <cstdint>
#include <string>
#include <vector>

namespace velto::host
{

// Memory that can be read, and what else can be done with it.
struct MappedRange
{
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    bool writable = false;
    bool executable = false;
};

// What the libraries of this process have mapped.
std::vector<MappedRange> MappedLibraries();

// Whether everything that a host follows from `moduleExport` lies in `mapped`, is of a kind that there is, and ends.
// Calls nothing of the module. An error names the file and the record.
Result CheckRecords(const std::string& file, const ModuleExport& moduleExport, const std::vector<MappedRange>& mapped);

} // namespace velto::host
