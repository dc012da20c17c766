// Textures: pictures that are decoded once and shared by all graphs, threads and frames that show them.
#pragma once

#include "velto/texture.h"

#include <optional>
#include <string>
#include <string_view>

namespace velto::host
{

// Bytes that one picture may take, and that pictures may take in all while nobody shows them. Holds for what is loaded
// from now on.
void SetTextureMemory(UInt bytes);

// Drops the pictures that nobody shows.
void DropIdleTextures();

// What there is to know of a picture before it is shown.
struct PictureFacts
{
    std::string file;
    bool isMovie = false;
    Int32 width = 0;
    Int32 height = 0;
    UInt bytes = 0; // that it takes at most
};

// Reads the picture that `url` names, or the file of that frame of a sequence. The error's text is the one that showing
// it would give.
Result LookIntoPicture(
    const Url& url, const SearchPathsType* searchPaths, std::optional<Int> frame, PictureFacts& facts);

// The same by no more than the file's header. `isThere` tells whether there is a file.
Result LookIntoHeader(const Url& url, const SearchPathsType* searchPaths, Int frame, bool& isThere);

// The name of the file that would be shown, whether it is there or not.
Result FindPictureFile(const Url& url, const SearchPathsType* searchPaths, std::optional<Int> frame, std::string& file);

// What a `LayerSet` port holds: the name of a layer.
Result MakeLayerSet(std::string_view name, LayerSet& layers);

const TextureManagementInterface& TextureManagementService();
const TextureInterface& TextureService();
const ThreadedTextureInterface& ThreadedTextureService();

} // namespace velto::host
