// Movies. Their decoders are much code that this system does not control, and files are not trusted: each movie is
// decoded by a process of its own that can do nothing else (`host/decode`). One that dies or takes too long is a movie
// that cannot be read.
#pragma once

#include "filehead.h"
#include "movieprotocol.h"

#include "velto/types.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

namespace velto::host
{

// What a movie is besides its pictures.
struct Clip
{
    Int frames = 0;
    double framesPerSecond = 0.0; // the mean, where the frames' times vary
    double seconds = 0.0;
    std::vector<double> times; // of the frames from the first one on; empty where they follow from the rate

    Int FrameAt(double time) const
    {
        // Files state times in steps of a millisecond or a hundredth of a second, if not finer.
        if (!times.empty())
            return std::max<Int>(std::upper_bound(times.begin(), times.end(), time + 0.0005) - times.begin() - 1, 0);
        const double frame = time * framesPerSecond + 0.001;
        return frame >= 0.0 && frame < 1e9 ? static_cast<Int>(frame) : 0;
    }
};

// One picture: rows from the top, valid as long as the movie is locked and nothing else is asked for.
struct MoviePicture
{
    int width = 0;
    int height = 0;
    int channels = 0;        // red, green, blue and, if there are four, alpha
    int bytesPerChannel = 0; // 1 or 2
    std::size_t rowBytes = 0;
    const unsigned char* pixels = nullptr;
};

class MovieProcess;

class Movie
{
public:
    // Movies that were read last stay open, since their pictures are asked for one after the other. Throws
    // `TextureFileError`.
    static std::shared_ptr<Movie> Open(const std::filesystem::path& file, const FileHead& head);

    Movie(std::filesystem::path file, const FileHead& head);
    ~Movie();
    Movie(const Movie&) = delete;
    Movie& operator=(const Movie&) = delete;

    // Of a file with a single picture: none.
    const Clip& GetClip() const { return clip_; }

    // [any thread] Calls `use` with the picture. Throws `TextureFileError`.
    template <class Use>
    auto Read(Int frame, const Use& use)
    {
        const std::lock_guard lock(mutex_);
        return use(Decode(frame));
    }

private:
    friend class OpenMovies;

    MoviePicture Decode(Int frame);
    MovieFacts Start(Clip& clip);
    [[noreturn]] void Fail(MovieStatus status) const;

    std::mutex mutex_;
    std::filesystem::path path_;
    std::filesystem::file_time_type changed_;
    FileHead head_;
    int file_ = -1;
    MovieFacts facts_;
    Clip clip_;
    std::unique_ptr<MovieProcess> process_;
};

} // namespace velto::host
