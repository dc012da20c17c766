// Description databases: directories with a JSON file a node.
#pragma once

#include "json.h"

#include "velto/descriptions.h"

#include <filesystem>

namespace velto::host
{

// Read once for all databases over one directory.
struct DescriptionFile
{
    std::filesystem::path path;
    Json json;
};

const DescriptionFile& FileOf(const DescriptionObject& description);

// Warns of what is wrong with a file, though several databases hold it.
void WarnOnce(const DescriptionFile& file, const Diagnostics& diagnostics);

} // namespace velto::host
