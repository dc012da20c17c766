// Places of files.
#pragma once

#include "velto/url.h"

#include <filesystem>

namespace velto::host
{

Result MakeUrl(std::string_view path, Url& url);

// The directory above all resource directories, which modules ask for. Set before a module is loaded.
void SetResourceDirectory(const std::filesystem::path& directory);
std::filesystem::path ResourceDirectory();

const UrlInterface& UrlService();

} // namespace velto::host
