// Reading and writing of picture files lies in a library of its own, libvelto_pictures.so, which is loaded when the
// first picture is: what it links takes longer to load than most commands take to answer.
#pragma once

#include "reader.h"
#include "writer.h"

#include "velto/system.h"

namespace velto::host
{

// What the library offers. Its entry takes the tables that it calls the host by.
struct PictureLibrary
{
    Clip (*readClip)(const std::filesystem::path& file);
    std::unique_ptr<Picture> (*readPicture)(const TextureFileRequest& request, std::string& note);
    Result (*openWriter)(const std::string& file, int width, int height, int channels, const PictureEncoding& encoding,
        std::unique_ptr<PictureWriter>& writer);
};

using PictureLibraryEntry = const PictureLibrary* (*)(const SystemInterface& system, const ErrorInterface& errors);

inline constexpr const char* kPictureLibraryEntry = "velto_picture_library";
inline constexpr const char* kPictureLibraryFile = "libvelto_pictures.so";

} // namespace velto::host
