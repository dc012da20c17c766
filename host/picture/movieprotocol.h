// What the host and `velto-decode` say to each other. Over a socket the decoder first tells `MovieFacts`, and the times
// of the pictures where they are not evenly spaced; then for each number of a picture that it is sent, a `MovieStatus`,
// the picture lying in the memory that both share. The host believes none of it unchecked.
#pragma once

#include <cstdint>

namespace velto::host
{

enum class MovieStatus : std::uint32_t
{
    Fine,
    Unreadable,
    NoPictures,
    UnknownCodec,
    TooManyPictures,
    OutOfMemory,
    NoSandbox,
};

// Some ten hours.
inline constexpr std::int64_t kMostMoviePictures = 1 << 20;

struct MovieFacts
{
    MovieStatus status = MovieStatus::Unreadable;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t channels = 3;        // or 4
    std::int32_t bytesPerChannel = 1; // or 2
    std::uint32_t hasTimes = 0;       // seconds follow, a double a picture
    std::int64_t rowBytes = 0;
    std::int64_t pictures = 0;
    double picturesPerSecond = 0.0;
    double seconds = 0.0;
};

// Where the decoder finds what it is given.
inline constexpr int kMovieFile = 0;
inline constexpr int kMovieSocket = 1;
inline constexpr int kMovieMemory = 3;

} // namespace velto::host
