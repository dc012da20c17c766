// What a picture file is, and whether its header can be believed, before a reader of its format gets to see it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace velto::host
{

// Why there is no picture; the text names the file.
struct TextureFileError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// Pixels along a side.
inline constexpr int kLargestPicture = 32768;

struct FileHead
{
    std::string_view format; // the name of its reader; of a movie's container
    bool isMovie = false;
    std::uintmax_t fileSize = 0;
};

// Recognises the file and checks what its reader would not. Throws `TextureFileError`.
FileHead ReadHead(const std::filesystem::path& file);

[[noreturn]] void FailReading(const std::filesystem::path& file, std::string_view reason);

// Sides and bytes of pixels that a file claims.
void CheckSize(const std::filesystem::path& file, std::int64_t width, std::int64_t height);
void CheckBytes(const std::filesystem::path& file, std::uintmax_t bytes, const FileHead& head);

} // namespace velto::host
