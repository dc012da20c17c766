// The host's side: finds the library and passes calls on.
#include "library.h"

#include "host/text/url.h"

#include <dlfcn.h>
#include <fmt/format.h>

namespace velto::host
{

namespace
{

// Beside the resources, beside the executable, above it, or where the system looks.
void* OpenLibrary(std::string& reason)
{
    std::error_code ignored;
    const auto directory = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const std::filesystem::path& place :
        {ResourceDirectory().parent_path() / kPictureLibraryFile, directory / kPictureLibraryFile,
            directory.parent_path() / kPictureLibraryFile, std::filesystem::path(kPictureLibraryFile)})
    {
        if (void* const library = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL))
            return library;
        if (reason.empty() || std::filesystem::exists(place, ignored))
            reason = dlerror();
    }
    return nullptr;
}

const PictureLibrary* FindLibrary(std::string& reason)
{
    void* const library = OpenLibrary(reason);
    const auto entry = library ? reinterpret_cast<PictureLibraryEntry>(dlsym(library, kPictureLibraryEntry)) : nullptr;
    return entry ? entry(Bound<SystemInterface>(), Bound<ErrorInterface>()) : nullptr;
}

// Stays loaded until the process ends. Null, and why, when it cannot be had.
const PictureLibrary* TheLibrary(std::string& reason)
{
    static std::string failure;
    static const PictureLibrary* const library = FindLibrary(failure);
    reason = failure;
    return library;
}

const PictureLibrary& NeedLibrary()
{
    std::string reason;
    const PictureLibrary* const library = TheLibrary(reason);
    if (!library)
        throw TextureFileError(fmt::format("pictures cannot be read: {}", reason));
    return *library;
}

} // namespace

Clip ReadClip(const std::filesystem::path& file)
{
    return NeedLibrary().readClip(file);
}

std::unique_ptr<Picture> ReadPicture(const TextureFileRequest& request, std::string& note)
{
    return NeedLibrary().readPicture(request, note);
}

Result MakeLibraryEncoder(const StoredPicture& picture, NewFile& file, std::unique_ptr<PictureEncoder>& encoder)
{
    std::string reason;
    const PictureLibrary* const library = TheLibrary(reason);
    if (!library)
        return MakeError(error::kUnresolved, fmt::format("pictures cannot be written: {}", reason));
    return library->makeEncoder(picture, file, encoder);
}

} // namespace velto::host
