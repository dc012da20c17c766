// Reads pictures from files. Files are not trusted: they are recognised by what they hold, only formats that are named
// here are opened, and what a header claims is checked before memory is asked for.
#pragma once

#include "filehead.h"
#include "movie.h"
#include "pyramid.h"

#include <string>

namespace velto::host
{

struct TextureFileRequest
{
    std::filesystem::path file;
    std::string layer;    // the name of a part or of a group of channels, the number of a part, or empty
    Int frame = 0;        // of a movie
    bool asFloat = false; // 32-bit texels, whatever the file has
    // Bytes that the picture may take: one that does not fit is held at the finest level that does.
    UInt memory = UInt(-1);
};

// What a file says of itself as a movie; nothing of a still picture. Throws `TextureFileError`.
Clip ReadClip(const std::filesystem::path& file);

// The picture, with a line for the user in `note` if there is something to say. Throws `TextureFileError`.
std::unique_ptr<Picture> ReadPicture(const TextureFileRequest& request, std::string& note);

} // namespace velto::host
