#include "deflate.h"

#include <zlib.h>

#include <memory>
#include <new>

namespace velto::host
{

namespace
{

class Stream
{
public:
    Stream(int level, int windowBits, int strategy)
    {
        if (deflateInit2(&stream_, level, Z_DEFLATED, windowBits, 8, strategy) != Z_OK)
            throw std::bad_alloc();
    }
    ~Stream() { deflateEnd(&stream_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void SetDictionary(std::span<const std::byte> bytes)
    {
        deflateSetDictionary(&stream_, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size()));
    }

    void Run(std::span<const std::byte> bytes, int flush, std::vector<std::byte>& packed)
    {
        // What a flush adds to the most that packing may add.
        constexpr std::size_t kFlush = 16;
        packed.resize(deflateBound(&stream_, bytes.size()) + kFlush);
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<std::byte*>(bytes.data()));
        stream_.avail_in = static_cast<uInt>(bytes.size());
        stream_.next_out = reinterpret_cast<Bytef*>(packed.data());
        stream_.avail_out = static_cast<uInt>(packed.size());
        deflate(&stream_, flush);
        packed.resize(packed.size() - stream_.avail_out);
    }

private:
    z_stream stream_ = {};
};

} // namespace

void DeflatePiece(std::span<const std::byte> bytes, std::span<const std::byte> before, int level, bool isFiltered,
    bool isLast, std::vector<std::byte>& packed)
{
    Stream stream(level, -MAX_WBITS, isFiltered ? Z_FILTERED : Z_DEFAULT_STRATEGY);
    stream.SetDictionary(before);
    stream.Run(bytes, isLast ? Z_FINISH : Z_SYNC_FLUSH, packed);
}

void DeflateWhole(std::span<const std::byte> bytes, int level, std::vector<std::byte>& packed)
{
    Stream(level, MAX_WBITS, Z_DEFAULT_STRATEGY).Run(bytes, Z_FINISH, packed);
}

} // namespace velto::host
