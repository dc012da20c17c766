// Files that a command reads, and whether one of them has changed.
#pragma once

#include "session.h"

#include <map>
#include <optional>

namespace velto::cli
{

class WatchedFiles
{
public:
    explicit WatchedFiles(const std::string& file) { Add(file); }
    ~WatchedFiles();
    WatchedFiles(const WatchedFiles&) = delete;
    WatchedFiles& operator=(const WatchedFiles&) = delete;

    // Watches a file as it is now, whether it is there or not. Once; it is watched as long as the object lives.
    void Add(const std::filesystem::path& file);

    // A missing one also where it would be looked for.
    void AddPicture(const std::filesystem::path& file, const SearchPathsType* searchPaths);

    std::size_t Count() const { return stamps_.size(); }

    // Waits until a file is another than it was at the call before, or when it was added, and nothing more happens for
    // a moment.
    void WaitForChange();

private:
    // What tells two states of a file apart; null: there is none.
    struct Stamp
    {
        UInt device = 0;
        UInt node = 0;
        Int size = 0;
        Int seconds = 0;
        Int nanoseconds = 0;

        friend bool operator==(const Stamp&, const Stamp&) = default;
    };
    using FileStamp = std::optional<Stamp>;

    static FileStamp StampOf(const std::filesystem::path& file);
    void WatchFolderOf(const std::filesystem::path& file) const;
    bool HaveChanged();

    int events_ = -1;
    std::map<std::filesystem::path, FileStamp> stamps_;
};

} // namespace velto::cli
