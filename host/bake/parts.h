// A bake that is split: each shard writes its rows to a part, an OpenEXR file of floats, and parts are put together.
#pragma once

#include "target.h"

#include <string>
#include <string_view>
#include <vector>

namespace velto::host
{

struct Shard
{
    int index = 0; // from 1; 0: the bake is whole
    int count = 0;
};

// `K/N` with K from 1 to N.
bool ParseShard(std::string_view text, Shard& shard);

// What of a window is a shard's: rows of tiles, as many as any other's or one more. Where there are fewer than shards
// it may be none.
BakeWindow ShardWindow(const BakeWindow& window, const Shard& shard);

// FILE without its suffix and with `.K-of-N.part.exr`.
std::string PartName(const std::string& file, const Shard& shard);

// The parts of a file that are there, of any count.
std::vector<std::string> FindParts(const std::string& file);

// What a part says of itself.
struct PartIdentity
{
    Shard shard;
    std::string hash;  // of all that determines the pixels
    BakeWindow window; // of the whole bake
    PictureEncoding encoding;
};

// Turns a target into the one of its part: `window` becomes the shard's, of which an empty one writes a pixel.
void MakePart(const PartIdentity& identity, BakeWindow& window, BakeTarget& target);

// Whether a file is a whole part with the attributes that one would have.
bool IsPart(const std::string& file, const PictureAttributes& attributes);

struct MergeJob
{
    std::string file;
    std::string format; // a suffix; empty: that of the file
    std::vector<std::string> parts;
    std::string hash;         // that all have; empty: any, as long as it is one
    PictureEncoding encoding; // where it is the default: as the parts say
    int threads = 0;
};

// Puts all parts together to the file that a whole bake writes. If something is wrong, nothing is written, and every
// problem is reported.
bool MergeParts(const MergeJob& job, std::vector<std::string>& problems);

} // namespace velto::host
