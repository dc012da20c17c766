// Pictures of a movie, by number: each is the one that decoding from the beginning gives, whatever was asked for
// before.
#pragma once

#include "host/picture/movieprotocol.h"

#include <memory>
#include <vector>

namespace velto::host
{

class MovieDecoder
{
public:
    // `container` is the name of a demuxer; nothing else is tried. The file is borrowed.
    MovieDecoder(int file, const char* container);
    ~MovieDecoder();
    MovieDecoder(const MovieDecoder&) = delete;
    MovieDecoder& operator=(const MovieDecoder&) = delete;

    // Looks through the whole file, and decodes its first picture.
    MovieStatus Open();

    const MovieFacts& Facts() const { return facts_; }
    // Seconds from the first picture; empty where they are evenly spaced.
    const std::vector<double>& Times() const { return times_; }

    // Decodes to rows of `Facts().rowBytes`. Beyond the end lies the last picture.
    MovieStatus Decode(std::int64_t number, std::uint8_t* pixels);

private:
    struct Stream;

    MovieStatus ListPictures();
    void SpacePictures();
    MovieStatus MoveTo(std::int64_t number);
    void BlackenTransparent(std::uint8_t* pixels) const;

    std::unique_ptr<Stream> stream_;
    MovieFacts facts_;
    std::vector<double> times_;
    std::int64_t number_ = 0; // of the picture that was asked for last
};

} // namespace velto::host
