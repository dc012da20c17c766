#include "decoder.h"

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace velto::host
{

namespace
{

constexpr std::int64_t kMostPixels = std::int64_t(1) << 29;

// Each of them is compared with the command of the same libraries.
constexpr AVCodecID kCodecs[] = {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_MPEG4, AV_CODEC_ID_MJPEG,
    AV_CODEC_ID_VP8, AV_CODEC_ID_VP9, AV_CODEC_ID_AV1, AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO,
    AV_CODEC_ID_PRORES, AV_CODEC_ID_FFV1, AV_CODEC_ID_PNG, AV_CODEC_ID_QTRLE, AV_CODEC_ID_RAWVIDEO, AV_CODEC_ID_GIF};

template <class T, void (*Free)(T**)>
struct FreeBy
{
    void operator()(T* thing) const { Free(&thing); }
};

using Frame = std::unique_ptr<AVFrame, FreeBy<AVFrame, av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, FreeBy<AVPacket, av_packet_free>>;
using Codec = std::unique_ptr<AVCodecContext, FreeBy<AVCodecContext, avcodec_free_context>>;
using Format = std::unique_ptr<AVFormatContext, FreeBy<AVFormatContext, avformat_close_input>>;
struct FreeScaler
{
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using Scaler = std::unique_ptr<SwsContext, FreeScaler>;

// The file as the demuxer sees it: nothing but its bytes.
class Bytes
{
public:
    explicit Bytes(int file) : file_(file)
    {
        struct stat status = {};
        size_ = fstat(file, &status) == 0 ? status.st_size : 0;
    }
    ~Bytes() { Close(); }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    AVIOContext* Rewind()
    {
        Close();
        at_ = 0;
        constexpr int kBuffer = 1 << 16;
        auto* const buffer = static_cast<unsigned char*>(av_malloc(kBuffer));
        io_ = buffer ? avio_alloc_context(buffer, kBuffer, 0, this, &Read, nullptr, &Seek) : nullptr;
        if (buffer && !io_)
            av_free(buffer);
        return io_;
    }

private:
    void Close()
    {
        if (io_)
            av_freep(&io_->buffer);
        avio_context_free(&io_);
    }

    static int Read(void* self, std::uint8_t* buffer, int count)
    {
        auto& bytes = *static_cast<Bytes*>(self);
        const ssize_t read = pread(bytes.file_, buffer, static_cast<std::size_t>(count), bytes.at_);
        if (read <= 0)
            return read == 0 ? AVERROR_EOF : AVERROR(EIO);
        bytes.at_ += read;
        return static_cast<int>(read);
    }

    static std::int64_t Seek(void* self, std::int64_t offset, int whence)
    {
        auto& bytes = *static_cast<Bytes*>(self);
        switch (whence & ~AVSEEK_FORCE)
        {
        case AVSEEK_SIZE:
            return bytes.size_;
        case SEEK_SET:
            break;
        case SEEK_CUR:
            offset += bytes.at_;
            break;
        case SEEK_END:
            offset += bytes.size_;
            break;
        default:
            return AVERROR(EINVAL);
        }
        return offset < 0 ? AVERROR(EINVAL) : bytes.at_ = offset;
    }

    int file_;
    std::int64_t size_ = 0;
    std::int64_t at_ = 0;
    AVIOContext* io_ = nullptr;
};

// How a picture that was taken with a turned camera is to be held: where its axes point, by quarter turns.
struct Turn
{
    int xToX = 1, xToY = 0, yToX = 0, yToY = 1;

    explicit Turn(const AVStream& stream)
    {
        const auto* const matrix =
            reinterpret_cast<const std::int32_t*>(av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
        if (!matrix)
            return;
        const auto sign = [](std::int32_t number) { return number > 0 ? 1 : number < 0 ? -1 : 0; };
        const bool isUpright = matrix[0] != 0 && matrix[1] == 0 && matrix[3] == 0 && matrix[4] != 0;
        const bool isSideways = matrix[0] == 0 && matrix[1] != 0 && matrix[3] != 0 && matrix[4] == 0;
        if (!isUpright && !isSideways)
            return;
        xToX = sign(matrix[0]);
        xToY = sign(matrix[1]);
        yToX = sign(matrix[3]);
        yToY = sign(matrix[4]);
    }
    bool IsNone() const { return xToX == 1 && yToY == 1; }
    bool IsSideways() const { return xToX == 0; }
};

// Copies pixels of `size` bytes from a picture to where they stand in the turned one.
void TurnPixels(const Turn& turn, const std::uint8_t* from, int width, int height, std::int64_t fromRow,
    std::uint8_t* to, std::int64_t toRow, int size)
{
    const int left = (turn.xToX < 0 ? width - 1 : 0) + (turn.yToX < 0 ? height - 1 : 0);
    const int top = (turn.xToY < 0 ? width - 1 : 0) + (turn.yToY < 0 ? height - 1 : 0);
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
        {
            const std::int64_t column = left + turn.xToX * x + turn.yToX * y;
            const std::int64_t row = top + turn.xToY * x + turn.yToY * y;
            std::copy_n(from + fromRow * y + std::int64_t(size) * x, size, to + toRow * row + size * column);
        }
    }
}

// The scaler writes whole vectors.
std::int64_t RowBytes(int width, int pixelBytes)
{
    return (std::int64_t(width) * pixelBytes + 127) / 64 * 64;
}

// A picture that was decoded, and its place in the order of pictures.
struct Decoded
{
    Frame frame{av_frame_alloc()};
    bool isThere = false;
    std::int64_t place = 0;
};

} // namespace

struct MovieDecoder::Stream
{
    Stream(int file, const char* name) : bytes(file), container(name) {}

    // Before `format`, which reads it until it is closed.
    Bytes bytes;
    const char* container;
    Format format;
    Codec codec;
    int index = -1;

    // Where every packet tells when it is shown, a picture's place is that time; else pictures are counted.
    bool hasTimes = false;
    std::vector<std::int64_t> places; // of the pictures, ascending
    std::int64_t lastTicks = 0;       // how long the last one is shown
    struct Entry
    {
        std::int64_t shown;
        std::int64_t decoded;
    };
    std::vector<Entry> entries; // key frames that decoding can start at, ascending

    Packet packet{av_packet_alloc()};
    bool isPacketPending = false;
    bool isDraining = false;
    std::int64_t counted = 0;
    Decoded held;
    Decoded next;

    Scaler scaler;
    struct Scales
    {
        int width, height, format, range, matrix;
        friend bool operator==(const Scales&, const Scales&) = default;
    };
    Scales scales{};
    // What pictures are brought to, whatever size they have later in the movie.
    AVPixelFormat target = AV_PIX_FMT_NONE;
    int width = 0;
    int height = 0;

    MovieStatus Restart();
    MovieStatus OpenCodec();
    bool ReadPacket();
    bool Fetch();
    void Forget();
    void Advance(std::int64_t place);
    bool SeekTo(const Entry& entry);
    bool EnterAt(const Entry& entry);
    bool MakeScaler();
    AVStream& Video() const { return *format->streams[index]; }
};

// Everything anew: what a demuxer or a decoder keeps of an earlier reading cannot show.
MovieStatus MovieDecoder::Stream::Restart()
{
    Forget();
    codec.reset();
    format.reset();
    if (!packet || !held.frame || !next.frame)
        return MovieStatus::OutOfMemory;
    const AVInputFormat* const demuxer = av_find_input_format(container);
    AVIOContext* const io = bytes.Rewind();
    AVFormatContext* context = io ? avformat_alloc_context() : nullptr;
    if (!context)
        return MovieStatus::OutOfMemory;
    context->pb = io;
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    if (!demuxer || avformat_open_input(&context, "", demuxer, nullptr) < 0) // frees what it fails to open
        return MovieStatus::Unreadable;
    format.reset(context);
    if (avformat_find_stream_info(context, nullptr) < 0)
        return MovieStatus::Unreadable;
    index = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0)
        return MovieStatus::NoPictures;
    for (unsigned i = 0; i < context->nb_streams; ++i)
        context->streams[i]->discard = static_cast<int>(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    return OpenCodec();
}

MovieStatus MovieDecoder::Stream::OpenCodec()
{
    const AVCodecParameters& parameters = *Video().codecpar;
    const AVCodec* const decoder =
        std::find(std::begin(kCodecs), std::end(kCodecs), parameters.codec_id) != std::end(kCodecs)
            ? avcodec_find_decoder(parameters.codec_id)
            : nullptr;
    if (!decoder)
        return MovieStatus::UnknownCodec;
    codec.reset(avcodec_alloc_context3(decoder));
    if (!codec || avcodec_parameters_to_context(codec.get(), &parameters) < 0)
        return MovieStatus::OutOfMemory;
    codec->pkt_timebase = Video().time_base;
    codec->max_pixels = kMostPixels;
    codec->thread_count = 1;
    return avcodec_open2(codec.get(), decoder, nullptr) < 0 ? MovieStatus::Unreadable : MovieStatus::Fine;
}

void MovieDecoder::Stream::Forget()
{
    if (packet)
        av_packet_unref(packet.get());
    isPacketPending = isDraining = false;
    held.isThere = next.isThere = false;
    counted = 0;
}

// The next packet of the pictures.
bool MovieDecoder::Stream::ReadPacket()
{
    do
    {
        av_packet_unref(packet.get());
        if (av_read_frame(format.get(), packet.get()) < 0)
            return false;
    }
    while (packet->stream_index != index);
    return true;
}

// Decodes the next picture, skipping broken ones. False after the last one.
bool MovieDecoder::Stream::Fetch()
{
    for (;;)
    {
        const int received = avcodec_receive_frame(codec.get(), next.frame.get());
        if (received == 0)
        {
            const AVFrame& frame = *next.frame;
            next.place = !hasTimes ? counted++ : frame.pts != AV_NOPTS_VALUE ? frame.pts : frame.best_effort_timestamp;
            if (held.isThere && next.place <= held.place)
                continue;
            return next.isThere = true;
        }
        if (received == AVERROR_EOF || isDraining)
            return false;
        if (!isPacketPending && !ReadPacket())
        {
            isDraining = true;
            avcodec_send_packet(codec.get(), nullptr);
            continue;
        }
        isPacketPending = avcodec_send_packet(codec.get(), packet.get()) == AVERROR(EAGAIN);
    }
}

// Decodes until the last picture up to `place` is held.
void MovieDecoder::Stream::Advance(std::int64_t place)
{
    while (!held.isThere || held.place < place)
    {
        if (!next.isThere && !Fetch())
            return;
        if (held.isThere && next.place > place)
            return;
        std::swap(held, next);
        next.isThere = false;
    }
}

bool MovieDecoder::Stream::SeekTo(const Entry& entry)
{
    // Demuxers go by the one time or the other.
    for (const std::int64_t time : {entry.shown, entry.decoded})
    {
        if (time == AV_NOPTS_VALUE || av_seek_frame(format.get(), index, time, AVSEEK_FLAG_BACKWARD) < 0)
            continue;
        if (ReadPacket() && packet->pts == entry.shown && (packet->flags & AV_PKT_FLAG_KEY))
            return true;
    }
    return false;
}

// Whether decoding from the key frame on gives its picture. Those shown before it are not whole, and some decoders lose
// whole ones after it unless they give all.
bool MovieDecoder::Stream::EnterAt(const Entry& entry)
{
    Forget();
    avcodec_flush_buffers(codec.get());
    codec->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
    if (!SeekTo(entry))
        return false;
    isPacketPending = true;
    do
    {
        if (!Fetch())
            return false;
    }
    while (next.place < entry.shown);
    return next.place == entry.shown && next.frame->key_frame && !(next.frame->flags & AV_FRAME_FLAG_CORRUPT);
}

MovieDecoder::MovieDecoder(int file, const char* container) : stream_(std::make_unique<Stream>(file, container))
{
    av_log_set_level(AV_LOG_QUIET);
}

MovieDecoder::~MovieDecoder() = default;

MovieStatus MovieDecoder::Open()
{
    Stream& stream = *stream_;
    MovieStatus status = stream.Restart();
    if (status == MovieStatus::Fine)
        status = ListPictures();
    if (status == MovieStatus::Fine)
        status = MoveTo(0);
    if (status != MovieStatus::Fine)
        return facts_.status = status;
    SpacePictures();

    const AVFrame& frame = *stream.held.frame;
    const AVPixFmtDescriptor* const pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    if (!pixels || frame.width < 1 || frame.height < 1)
        return facts_.status = MovieStatus::NoPictures;
    const bool hasAlpha = pixels->flags & AV_PIX_FMT_FLAG_ALPHA;
    const bool isDeep = pixels->comp[0].depth > 8;
    stream.target = isDeep     ? hasAlpha ? AV_PIX_FMT_RGBA64 : AV_PIX_FMT_RGB48
                    : hasAlpha ? AV_PIX_FMT_RGBA
                               : AV_PIX_FMT_RGB24;
    stream.width = facts_.width = frame.width;
    stream.height = facts_.height = frame.height;
    if (Turn(stream.Video()).IsSideways())
        std::swap(facts_.width, facts_.height);
    facts_.channels = hasAlpha ? 4 : 3;
    facts_.bytesPerChannel = isDeep ? 2 : 1;
    facts_.rowBytes = RowBytes(facts_.width, facts_.channels * facts_.bytesPerChannel);
    facts_.hasTimes = !times_.empty();
    return facts_.status = MovieStatus::Fine;
}

MovieStatus MovieDecoder::ListPictures()
{
    Stream& stream = *stream_;
    stream.hasTimes = true;
    std::int64_t lastShown = 0;
    while (stream.ReadPacket())
    {
        const AVPacket& packet = *stream.packet;
        if (stream.places.size() >= kMostMoviePictures || stream.entries.size() >= kMostMoviePictures)
            return MovieStatus::TooManyPictures;
        if (packet.pts == AV_NOPTS_VALUE)
            stream.hasTimes = false;
        else if (packet.flags & AV_PKT_FLAG_KEY)
            stream.entries.push_back({packet.pts, packet.dts});
        if ((packet.flags & AV_PKT_FLAG_DISCARD) || packet.size == 0)
            continue;
        if (stream.places.empty() || packet.pts >= lastShown)
        {
            lastShown = packet.pts;
            stream.lastTicks = packet.duration;
        }
        stream.places.push_back(packet.pts);
    }
    std::vector<std::int64_t>& places = stream.places;
    std::sort(places.begin(), places.end());
    stream.hasTimes = stream.hasTimes && std::adjacent_find(places.begin(), places.end()) == places.end();
    std::sort(stream.entries.begin(), stream.entries.end(), [](auto a, auto b) { return a.shown < b.shown; });
    if (!stream.entries.empty())
        stream.entries.erase(stream.entries.begin()); // that is the beginning
    if (!stream.hasTimes)
    {
        stream.entries.clear();
        for (std::size_t i = 0; i < places.size(); ++i)
            places[i] = static_cast<std::int64_t>(i);
    }
    if (places.empty())
        return MovieStatus::NoPictures;
    return stream.Restart();
}

// Says how the pictures lie in time.
void MovieDecoder::SpacePictures()
{
    const Stream& stream = *stream_;
    const std::vector<std::int64_t>& places = stream.places;
    AVStream& video = stream.Video();
    const auto count = static_cast<double>(places.size());
    const double rate = av_q2d(av_guess_frame_rate(stream.format.get(), &video, nullptr));
    const bool hasRate = rate > 0.0 && std::isfinite(rate);
    facts_.pictures = static_cast<std::int64_t>(places.size());
    facts_.picturesPerSecond = hasRate ? rate : 25.0;
    facts_.seconds = count / facts_.picturesPerSecond;
    if (!stream.hasTimes)
        return;

    const double tick = av_q2d(video.time_base);
    const auto secondsOf = [&](std::size_t i) { return double(places[i] - places[0]) * tick; };
    // A coarse clock rounds the times, that of whole pictures does not.
    const double tolerance = tick * rate > 0.25 ? 0.1 * tick : 1.01 * tick;
    bool isEven = hasRate;
    for (std::size_t i = 0; i < places.size() && isEven; ++i)
        isEven = std::abs(secondsOf(i) - double(i) / rate) <= tolerance;
    if (isEven)
        return;
    times_.reserve(places.size());
    for (std::size_t i = 0; i < places.size(); ++i)
        times_.push_back(secondsOf(i));
    const double last = double(stream.lastTicks) * tick;
    facts_.seconds = times_.back() + (last > 0.0 ? last : 1.0 / facts_.picturesPerSecond);
    facts_.picturesPerSecond = count / facts_.seconds;
}

MovieStatus MovieDecoder::MoveTo(std::int64_t number)
{
    Stream& stream = *stream_;
    const auto last = static_cast<std::int64_t>(stream.places.size()) - 1;
    const std::int64_t place = stream.places[static_cast<std::size_t>(std::clamp<std::int64_t>(number, 0, last))];
    const auto behind = std::upper_bound(stream.entries.begin(), stream.entries.end(), place,
        [](std::int64_t time, const Stream::Entry& entry) { return time < entry.shown; });
    const Stream::Entry* const entry = behind == stream.entries.begin() ? nullptr : &*(behind - 1);
    // What lies a little ahead is decoded sooner than looked for.
    constexpr std::int64_t kNear = 16;
    const bool isAhead = stream.held.isThere && stream.held.place <= place;
    const bool canGoOn = isAhead && (!entry || entry->shown <= stream.held.place || number - number_ <= kNear);
    number_ = number;
    if (!canGoOn && !(entry && stream.EnterAt(*entry)))
    {
        if (const MovieStatus status = stream.Restart(); status != MovieStatus::Fine)
            return status;
    }
    stream.Advance(place);
    return stream.held.isThere ? MovieStatus::Fine : MovieStatus::Unreadable;
}

// As the command of these libraries converts: the picture's own matrix and range, and the usual place of the chroma.
bool MovieDecoder::Stream::MakeScaler()
{
    const AVFrame& frame = *held.frame;
    const Scales wanted{frame.width, frame.height, frame.format, frame.color_range, frame.colorspace};
    if (scaler && wanted == scales)
        return true;
    scales = wanted;
    scaler.reset(sws_alloc_context());
    if (!scaler)
        return false;
    SwsContext* const context = scaler.get();
    const auto set = [&](const char* name, std::int64_t value) { av_opt_set_int(context, name, value, 0); };
    set("srcw", frame.width);
    set("srch", frame.height);
    set("src_format", frame.format);
    set("dstw", width);
    set("dsth", height);
    set("dst_format", target);
    set("sws_flags", SWS_BICUBIC);
    if (frame.format == AV_PIX_FMT_YUV420P)
        set("src_v_chr_pos", 128);
    if (sws_init_context(context, nullptr, nullptr) < 0)
        return false;
    int* inverse = nullptr;
    int* table = nullptr;
    int isFull = 0;
    int isTargetFull = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    if (sws_getColorspaceDetails(
            context, &inverse, &isFull, &table, &isTargetFull, &brightness, &contrast, &saturation) < 0)
        return true; // there is nothing to convert
    const bool isKnown = frame.colorspace > 0 && frame.colorspace <= 10 && frame.colorspace != AVCOL_SPC_YCGCO;
    const int* const matrix = sws_getCoefficients(isKnown ? int(frame.colorspace) : SWS_CS_DEFAULT);
    if (frame.color_range != AVCOL_RANGE_UNSPECIFIED)
        isFull = frame.color_range == AVCOL_RANGE_JPEG;
    sws_setColorspaceDetails(context, matrix, isFull, matrix, isTargetFull, brightness, contrast, saturation);
    return true;
}

MovieStatus MovieDecoder::Decode(std::int64_t number, std::uint8_t* pixels)
{
    if (const MovieStatus status = MoveTo(number); status != MovieStatus::Fine)
        return status;
    Stream& stream = *stream_;
    if (!stream.MakeScaler())
        return MovieStatus::OutOfMemory;
    const AVFrame& frame = *stream.held.frame;
    const Turn turn(stream.Video());
    const int pixelBytes = facts_.channels * facts_.bytesPerChannel;
    const std::int64_t rowBytes = RowBytes(stream.width, pixelBytes);
    std::vector<std::uint8_t> upright;
    if (!turn.IsNone())
        upright.resize(static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(stream.height));
    std::uint8_t* const rows[] = {turn.IsNone() ? pixels : upright.data()};
    const int strides[] = {static_cast<int>(rowBytes)};
    if (sws_scale(stream.scaler.get(), frame.data, frame.linesize, 0, frame.height, rows, strides) < stream.height)
        return MovieStatus::Unreadable;
    if (!turn.IsNone())
        TurnPixels(turn, upright.data(), stream.width, stream.height, rowBytes, pixels, facts_.rowBytes, pixelBytes);
    if (stream.codec->codec_id == AV_CODEC_ID_GIF)
        BlackenTransparent(pixels);
    return MovieStatus::Fine;
}

// This decoder gives white.
void MovieDecoder::BlackenTransparent(std::uint8_t* pixels) const
{
    for (int y = 0; facts_.channels == 4 && y < facts_.height; ++y)
    {
        std::uint8_t* pixel = pixels + facts_.rowBytes * y;
        for (int x = 0; x < facts_.width; ++x, pixel += 4)
        {
            if (pixel[3] == 0)
                std::fill_n(pixel, 3, std::uint8_t(0));
        }
    }
}

} // namespace velto::host
