// What the encoders need of zlib.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace velto::host
{

// A piece of a raw deflate stream that ends at a byte, so that pieces may be made on many threads and put one after
// the other. `before` is what the stream unpacks to just ahead of it, 32 KiB of it at most.
void DeflatePiece(std::span<const std::byte> bytes, std::span<const std::byte> before, int level, bool isFiltered,
    bool isLast, std::vector<std::byte>& packed);

// A zlib stream of its own.
void DeflateWhole(std::span<const std::byte> bytes, int level, std::vector<std::byte>& packed);

} // namespace velto::host
