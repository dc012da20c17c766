// Textures: pictures that are decoded once and shared by all graphs, threads and frames that show them.
#pragma once

#include "velto/texture.h"

#include <string_view>

namespace velto::host
{

// Bytes that one picture may take, and that pictures may take in all while nobody shows them. Holds for what is loaded
// from now on.
void SetTextureMemory(UInt bytes);

// Drops the pictures that nobody shows.
void DropIdleTextures();

// What a `LayerSet` port holds: the name of a layer.
Result MakeLayerSet(std::string_view name, LayerSet& layers);

const TextureManagementInterface& TextureManagementService();
const TextureInterface& TextureService();
const ThreadedTextureInterface& ThreadedTextureService();

} // namespace velto::host
