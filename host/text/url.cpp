#include "url.h"

#include "host/system/guard.h"

#include <string>

namespace velto::host
{

namespace
{

struct HostUrl : UrlObject
{
    explicit HostUrl(std::string text, std::string from = {}) : path(std::move(text)), place(std::move(from)) {}
    std::string path;
    std::string place; // in a document
};

std::string& TheResourceDirectory()
{
    static std::string directory;
    return directory;
}

std::string_view View(const UrlObject* url)
{
    return url ? std::string_view(static_cast<const HostUrl*>(url)->path) : std::string_view();
}

Result Give(std::string path, UrlObject** url, std::string place = {})
{
    HostUrl* const made = NewObject<HostUrl>(std::move(path), std::move(place));
    if (!made)
        return OutOfMemory();
    *url = made;
    return {};
}

Result GetApplicationUrl(Int32 kind, UrlObject** url)
{
    return Guarded([&]() -> Result {
        if (kind != static_cast<Int32>(UrlKind::Resource))
            return MakeError(error::kUnresolved, "There is no application URL of this kind.");
        return Give(TheResourceDirectory(), url);
    });
}

Result Append(UrlObject** url, const char* component, UInt length)
{
    return Guarded([&]() -> Result {
        std::string path(View(*url));
        if (!path.empty() && !path.ends_with('/'))
            path += '/';
        UrlObject* made = nullptr;
        VELTO_TRY(Give(path.append(component, length), &made));
        Url::Adopt(std::exchange(*url, made)) = {};
        return {};
    });
}

} // namespace

Result MakeUrl(std::string_view path, Url& url)
{
    return UrlService().Create(path.data(), path.size(), url.Receive());
}

Result MakeUrlAt(std::string_view path, std::string_view place, Url& url)
{
    return Guarded([&] { return Give(std::string(path), url.Receive(), std::string(place)); });
}

std::string_view PlaceOf(const UrlObject* url)
{
    return url ? std::string_view(static_cast<const HostUrl*>(url)->place) : std::string_view();
}

void SetResourceDirectory(const std::filesystem::path& directory)
{
    TheResourceDirectory() = std::filesystem::absolute(directory).string();
}

std::filesystem::path ResourceDirectory()
{
    return TheResourceDirectory();
}

const UrlInterface& UrlService()
{
    static constexpr UrlInterface service{
        .GetApplicationUrl = {&GetApplicationUrl},
        .Create = {+[](const char* path, UInt length, UrlObject** url) {
            return Guarded([&] { return Give(std::string(path, length), url); });
        }},
        .GetPath = {+[](const UrlObject* url, UInt* length) {
            const std::string_view view = View(url);
            *length = view.size();
            return url ? view.data() : "";
        }},
        .Append = {&Append},
        .GetDirectory = {+[](const UrlObject* url, UrlObject** directory) {
            return Guarded([&] { return Give(std::filesystem::path(View(url)).parent_path().string(), directory); });
        }},
        .Exists = {+[](const UrlObject* url) -> Bool {
            std::error_code ignored;
            return std::filesystem::exists(std::filesystem::path(View(url)), ignored);
        }},
    };
    return service;
}

} // namespace velto::host
