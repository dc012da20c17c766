// Places of files: host objects behind a shared reference. A null `Url` is empty.
#pragma once

#include "velto/system.h"

namespace velto
{

struct UrlObject : Object
{
    static Bool Equal(const Ref<UrlObject>& a, const Ref<UrlObject>& b);
};

using Url = Ref<UrlObject>;

// The application's places that a module asks for, by number.
enum class UrlKind : Int32
{
    Resource = 4,         // the directory above all resource directories
    ModuleDirectory = 13, // the directory of the asking module's own file
};

struct UrlInterface
{
    static constexpr Id kId{"net.velto.interface.url"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // All: [any thread] an out parameter receives a reference of its own and is left alone on error.

    // One of the application's places; unresolved for an unknown kind.
    VELTO_METHOD(GetApplicationUrl, Result(Int32 kind, UrlObject** url));
    // A place from a path, absolute or relative.
    VELTO_METHOD(Create, Result(const char* path, UInt length, UrlObject** url));
    // The path, valid as long as the url is held.
    VELTO_METHOD(GetPath, const char*(const UrlObject* url, UInt* length));
    // Appends `component` to the place in `url`, in a new object. On error `url` is as it was.
    VELTO_METHOD(Append, Result(UrlObject** url, const char* component, UInt length));
    // The place without its last component.
    VELTO_METHOD(GetDirectory, Result(const UrlObject* url, UrlObject** directory));
    // Whether there is a file or a directory.
    VELTO_METHOD(Exists, Bool(const UrlObject* url));
};
VELTO_USED_BY_INCLUDERS("velto/url.h", UrlInterface);

inline std::string_view Path(const Url& url)
{
    UInt length = 0;
    const char* const path = Bound<UrlInterface>().GetPath(url.Get(), &length);
    return {path, length};
}

inline Bool UrlObject::Equal(const Url& a, const Url& b)
{
    return Path(a) == Path(b);
}

} // namespace velto
