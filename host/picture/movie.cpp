#include "movie.h"

#include "movieprocess.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <list>

namespace velto::host
{

namespace
{

constexpr const char* kProgram = "velto-decode";

// Beside the library or program that this code lies in, or above it.
std::string DecoderProgram()
{
    Dl_info info = {};
    dladdr(reinterpret_cast<const void*>(&DecoderProgram), &info);
    const std::filesystem::path folder = std::filesystem::path(info.dli_fname ? info.dli_fname : "").parent_path();
    std::error_code ignored;
    if (const auto above = folder.parent_path() / kProgram;
        !std::filesystem::exists(folder / kProgram, ignored) && std::filesystem::exists(above, ignored))
        return above.string();
    return (folder / kProgram).string();
}

// Large files may take long to look through.
MovieProcess::Patience PatienceFor(std::uintmax_t fileSize)
{
    return std::chrono::seconds(10 + fileSize / 2'000'000);
}

// Whether the numbers are consistent. They come from the decoder, which is not trusted.
bool IsPlausible(const MovieFacts& facts)
{
    const std::int64_t packed = std::int64_t(facts.width) * facts.channels * facts.bytesPerChannel;
    return (facts.channels == 3 || facts.channels == 4) && (facts.bytesPerChannel == 1 || facts.bytesPerChannel == 2) &&
           facts.rowBytes >= packed && facts.rowBytes <= packed + 256 && facts.pictures >= 1 &&
           facts.pictures <= kMostMoviePictures && facts.picturesPerSecond > 0.0 && facts.picturesPerSecond < 1e6 &&
           facts.seconds >= 0.0 && facts.seconds < 1e9;
}

} // namespace

class OpenMovies
{
public:
    std::shared_ptr<Movie> Open(const std::filesystem::path& file, const FileHead& head)
    {
        std::error_code ignored;
        const auto changed = std::filesystem::last_write_time(file, ignored);
        const std::lock_guard lock(mutex_);
        const auto known = std::find_if(movies_.begin(), movies_.end(),
            [&](const auto& movie) { return movie->path_ == file && movie->changed_ == changed; });
        if (known != movies_.end())
        {
            movies_.splice(movies_.begin(), movies_, known);
            return movies_.front();
        }
        auto movie = std::make_shared<Movie>(file, head);
        movie->changed_ = changed;
        movies_.push_front(movie);
        if (movies_.size() > kMostOpen)
            movies_.pop_back();
        return movie;
    }

private:
    static constexpr std::size_t kMostOpen = 4;

    std::mutex mutex_;
    std::list<std::shared_ptr<Movie>> movies_;
};

std::shared_ptr<Movie> Movie::Open(const std::filesystem::path& file, const FileHead& head)
{
    static OpenMovies movies;
    return movies.Open(file, head);
}

Movie::Movie(std::filesystem::path file, const FileHead& head) : path_(std::move(file)), head_(head)
{
    file_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file_ < 0)
        FailReading(path_, "cannot be opened");
    try
    {
        facts_ = Start(clip_);
    }
    catch (...)
    {
        close(file_);
        throw;
    }
}

Movie::~Movie()
{
    close(file_);
}

void Movie::Fail(MovieStatus status) const
{
    switch (status)
    {
    case MovieStatus::NoPictures:
        FailReading(path_, "is a movie without pictures");
    case MovieStatus::UnknownCodec:
        FailReading(path_, "is a movie in an encoding that cannot be read");
    case MovieStatus::TooManyPictures:
        FailReading(path_, fmt::format("has more than {} pictures", kMostMoviePictures));
    case MovieStatus::OutOfMemory:
        FailReading(path_, "is a movie that takes too much memory");
    case MovieStatus::NoSandbox:
        FailReading(path_, "is not read: this system has no sandbox (seccomp) for movies");
    default:
        FailReading(path_, "is a movie that cannot be read");
    }
}

namespace
{

void Expect(MovieProcess::Answer answer, const std::filesystem::path& file)
{
    switch (answer)
    {
    case MovieProcess::Answer::Fine:
        return;
    case MovieProcess::Answer::TookTooLong:
        FailReading(file, "is a movie that takes too long to read");
    case MovieProcess::Answer::NotStarted:
        FailReading(file, fmt::format("is not read: {}: {}", DecoderProgram(), std::strerror(errno)));
    case MovieProcess::Answer::Died:
        FailReading(file, "is a movie that cannot be read: its decoder crashed");
    }
}

} // namespace

// A new decoder, and what it says of the movie.
MovieFacts Movie::Start(Clip& clip)
{
    const auto patience = PatienceFor(head_.fileSize);
    auto process = std::make_unique<MovieProcess>();
    Expect(process->Start(DecoderProgram(), std::string(head_.format), file_), path_);
    MovieFacts facts;
    Expect(process->Receive(&facts, sizeof(facts), patience), path_);
    if (facts.status != MovieStatus::Fine)
        Fail(facts.status);
    CheckSize(path_, facts.width, facts.height);
    if (!IsPlausible(facts))
        Fail(MovieStatus::Unreadable);
    std::vector<double> times(facts.hasTimes ? static_cast<std::size_t>(facts.pictures) : 0);
    Expect(process->Receive(times.data(), times.size() * sizeof(times[0]), patience), path_);
    if (!std::all_of(times.begin(), times.end(), [](double time) { return time >= 0.0 && time < 1e9; }) ||
        !std::is_sorted(times.begin(), times.end()))
        Fail(MovieStatus::Unreadable);
    Expect(process->Share(static_cast<std::size_t>(facts.rowBytes) * static_cast<std::size_t>(facts.height)), path_);
    process_ = std::move(process);
    if (facts.pictures > 1)
        clip = {facts.pictures, facts.picturesPerSecond, facts.seconds, std::move(times)};
    return facts;
}

MoviePicture Movie::Decode(Int frame)
{
    const std::int64_t number = std::clamp<Int>(frame, 0, facts_.pictures - 1);
    // A decoder that reached its time limit, or crashed on an earlier picture, is replaced.
    for (bool isFresh = false;; isFresh = true)
    {
        if (!process_)
        {
            Clip known;
            const MovieFacts facts = Start(known);
            if (facts.rowBytes != facts_.rowBytes || facts.height != facts_.height)
                Fail(MovieStatus::Unreadable);
            isFresh = true;
        }
        MovieStatus status = MovieStatus::Unreadable;
        auto answer = process_->Send(&number, sizeof(number));
        if (answer == MovieProcess::Answer::Fine)
            answer = process_->Receive(&status, sizeof(status), PatienceFor(head_.fileSize));
        if (answer == MovieProcess::Answer::Fine && status == MovieStatus::Fine)
            break;
        if (answer == MovieProcess::Answer::Fine)
            Fail(status);
        process_.reset();
        if (isFresh || answer != MovieProcess::Answer::Died)
            Expect(answer, path_);
    }
    return {facts_.width, facts_.height, facts_.channels, facts_.bytesPerChannel,
        static_cast<std::size_t>(facts_.rowBytes), process_->Memory()};
}

} // namespace velto::host
