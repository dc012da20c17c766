#include "watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velto::cli
{

namespace
{

constexpr int kSettleMilliseconds = 50; // programs write a file in several steps
constexpr int kMostSettles = 20;
constexpr int kGlanceMilliseconds = 2000; // file systems of networks tell nothing

} // namespace

WatchedFiles::~WatchedFiles()
{
    if (events_ >= 0)
        close(events_);
}

WatchedFiles::FileStamp WatchedFiles::StampOf(const std::filesystem::path& file)
{
    struct stat facts = {};
    if (stat(file.c_str(), &facts) != 0)
        return {};
    return Stamp{facts.st_dev, facts.st_ino, facts.st_size, facts.st_mtim.tv_sec, facts.st_mtim.tv_nsec};
}

// The folder, since most programs put another file in a file's place.
void WatchedFiles::WatchFolderOf(const std::filesystem::path& file) const
{
    const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : ".";
    inotify_add_watch(
        events_, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE | IN_ATTRIB);
}

void WatchedFiles::Add(const std::filesystem::path& file)
{
    if (events_ < 0)
        events_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    const auto [added, isNew] = stamps_.try_emplace(file);
    if (!isNew)
        return;
    WatchFolderOf(file);
    std::error_code failed;
    if (const std::filesystem::path target = std::filesystem::canonical(file, failed); !failed)
        WatchFolderOf(target); // behind links
    added->second = StampOf(file);
}

void WatchedFiles::AddPicture(const std::filesystem::path& file, const SearchPathsType* searchPaths)
{
    Add(file);
    if (!searchPaths || file.is_absolute() || stamps_[file])
        return;
    for (const Url& folder : *searchPaths)
        Add(std::filesystem::path(Path(folder)) / file);
}

bool WatchedFiles::HaveChanged()
{
    bool haveChanged = false;
    for (auto& [file, stamp] : stamps_)
    {
        if (FileStamp now = StampOf(file); now != stamp)
        {
            stamp = now;
            haveChanged = true;
        }
    }
    return haveChanged;
}

void WatchedFiles::WaitForChange()
{
    const auto drain = [this](int milliseconds) {
        pollfd ready{events_, POLLIN, 0};
        const bool isReady = poll(&ready, 1, milliseconds) > 0;
        alignas(inotify_event) char events[4096];
        while (isReady && read(events_, events, sizeof events) > 0)
        {
        }
        return isReady;
    };
    while (!HaveChanged())
        drain(kGlanceMilliseconds);
    // Until it is quiet, or somebody writes without end.
    int settles = 0;
    do
    {
        HaveChanged();
    }
    while (drain(kSettleMilliseconds) && ++settles < kMostSettles);
}

} // namespace velto::cli
