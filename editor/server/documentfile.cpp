#include "documentfile.h"

#include "host/system/newfile.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

namespace velto::editor
{

namespace
{

bool ReadText(const std::string& path, std::string& text, host::Diagnostics& diagnostics)
{
    return host::ReadFile(path, host::JsonLimits().bytes, text, diagnostics);
}

} // namespace

DocumentFile::~DocumentFile()
{
    Close();
    if (watcher_.joinable())
        watcher_.join();
    for (const int file : {watch_, wake_})
    {
        if (file >= 0)
            ::close(file);
    }
}

bool DocumentFile::Open(const std::string& path, std::string_view textOfNew, host::Diagnostics& diagnostics)
{
    path_ = std::filesystem::absolute(path).lexically_normal().string();
    std::error_code ignored;
    isNew_ = !std::filesystem::exists(path_, ignored);
    if (isNew_)
        state_.text = textOfNew;
    else if (!ReadText(path_, state_.text, diagnostics))
        return false;

    watch_ = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    wake_ = ::eventfd(0, EFD_CLOEXEC);
    const std::string folder = std::filesystem::path(path_).parent_path().string();
    // The folder, not the file: most programs save by putting another file in its place.
    if (watch_ < 0 || wake_ < 0 ||
        ::inotify_add_watch(watch_, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE) < 0)
    {
        diagnostics.Fault("", "its folder cannot be watched for changes");
        return false;
    }
    watcher_ = std::thread([this] { Watch(); });
    return true;
}

DocumentFile::State DocumentFile::Current() const
{
    const std::lock_guard lock(mutex_);
    return state_;
}

DocumentFile::Saved DocumentFile::Save(
    const std::string& text, UInt revision, bool force, State& state, std::string& error)
{
    TakeChange(); // what the watcher has not come to yet
    const std::lock_guard lock(mutex_);
    state = state_;
    if (revision != state_.revision && !force)
        return Saved::Conflict;
    host::NewFile file;
    Result written = file.Open(path_);
    if (written.IsOk())
        written = file.Write(0, text.data(), text.size());
    if (written.IsOk())
        written = file.Complete();
    host::NewFile* const files[] = {&file};
    if (written.IsOk())
        written = host::NewFile::PutInPlace(files);
    if (written.IsError())
    {
        error = written.Message();
        return Saved::Failed;
    }
    isNew_ = false;
    state_ = {text, state_.revision + 1};
    state = state_;
    changed_.notify_all();
    return Saved::Yes;
}

bool DocumentFile::WaitForChange(UInt revision, double seconds, State& state) const
{
    std::unique_lock lock(mutex_);
    changed_.wait_for(
        lock, std::chrono::duration<double>(seconds), [&] { return isClosed_ || state_.revision != revision; });
    state = state_;
    return !isClosed_ && state_.revision != revision;
}

void DocumentFile::Close()
{
    {
        const std::lock_guard lock(mutex_);
        isClosed_ = true;
    }
    changed_.notify_all();
    if (wake_ >= 0)
        ::eventfd_write(wake_, 1);
}

void DocumentFile::Watch()
{
    pollfd files[] = {{watch_, POLLIN, 0}, {wake_, POLLIN, 0}};
    while (::poll(files, 2, -1) >= 0 || errno == EINTR)
    {
        if (files[1].revents != 0)
            return;
        alignas(inotify_event) char events[4096];
        while (::read(watch_, events, sizeof events) > 0)
        {
        }
        TakeChange();
    }
}

// Whatever was changed in the folder: only other bytes in this file count.
void DocumentFile::TakeChange()
{
    std::string text;
    host::Diagnostics ignored;
    std::error_code gone;
    if (!std::filesystem::exists(path_, gone) || !ReadText(path_, text, ignored))
        return;
    const std::lock_guard lock(mutex_);
    if (text == state_.text && !isNew_)
        return;
    isNew_ = false;
    state_ = {std::move(text), state_.revision + 1};
    changed_.notify_all();
}

} // namespace velto::editor
