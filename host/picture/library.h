// Reading of picture files, and writing of most, lies in a library of its own, libvelto_pictures.so, which is loaded
// when the first picture is: what it links takes longer to load than most commands take to answer.
#pragma once

#include "encoder.h"
#include "reader.h"

#include "velto/system.h"

namespace velto::host
{

// What the library offers. Its entry takes the tables that it calls the host by.
struct PictureLibrary
{
    Clip (*readClip)(const std::filesystem::path& file);
    std::unique_ptr<Picture> (*readPicture)(const TextureFileRequest& request, std::string& note);
    Result (*makeEncoder)(const StoredPicture& picture, NewFile& file, std::unique_ptr<PictureEncoder>& encoder);
};

using PictureLibraryEntry = const PictureLibrary* (*)(const SystemInterface& system, const ErrorInterface& errors);

inline constexpr const char* kPictureLibraryEntry = "velto_picture_library";
inline constexpr const char* kPictureLibraryFile = "libvelto_pictures.so";

} // namespace velto::host
