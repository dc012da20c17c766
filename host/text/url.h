// Places of files.
#pragma once

#include "velto/url.h"

#include <filesystem>

namespace velto::host
{

Result MakeUrl(std::string_view path, Url& url);

// The URL that a document gives at `place`, so that messages about the file can name that place.
Result MakeUrlAt(std::string_view path, std::string_view place, Url& url);
std::string_view PlaceOf(const UrlObject* url); // empty where it comes from elsewhere

// The directory above all resource directories, which modules ask for. Set before a module is loaded.
void SetResourceDirectory(const std::filesystem::path& directory);
std::filesystem::path ResourceDirectory();

const UrlInterface& UrlService();

} // namespace velto::host
