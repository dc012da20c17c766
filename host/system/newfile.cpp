#include "newfile.h"

#include "velto/system.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace velto::host
{

namespace
{

constexpr std::size_t kBufferBytes = 1 << 16;

// For a signal handler, which may not lock.
std::array<std::atomic<const char*>, 256> temporaryNames;

// Whether names are being taken, which a signal may not interrupt, or the process is ending.
enum Phase : int
{
    kWriting,
    kNaming,
    kEnding,
};
std::atomic<int> phase = kWriting;
std::atomic<int> heldSignal = 0;
std::mutex namingMutex;

class Naming
{
public:
    Naming()
    {
        int writing = kWriting;
        while (!phase.compare_exchange_strong(writing, kNaming))
            pause(); // the process is ending
    }
    ~Naming()
    {
        phase = kWriting;
        if (const int signal = heldSignal.exchange(0))
            raise(signal);
    }
    Naming(const Naming&) = delete;
    Naming& operator=(const Naming&) = delete;

private:
    std::lock_guard<std::mutex> lock_{namingMutex};
};

int Remember(const char* name)
{
    for (std::size_t i = 0; i < temporaryNames.size(); ++i)
    {
        const char* none = nullptr;
        if (temporaryNames[i].compare_exchange_strong(none, name))
            return static_cast<int>(i);
    }
    return -1;
}

void Forget(int& slot)
{
    if (slot >= 0)
        temporaryNames[static_cast<std::size_t>(slot)].store(nullptr);
    slot = -1;
}

std::string RandomName()
{
    std::array<unsigned char, 16> bytes;
    std::string name = ".velto-";
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return {};
    for (const unsigned char byte : bytes)
        name += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    return name + ".part";
}

std::string NameOf(int file)
{
    return "/proc/self/fd/" + std::to_string(file);
}

int OpenUnnamed(const std::string& folder)
{
    const int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    // Without the folder of descriptors it could never be named.
    if (file >= 0 && access(NameOf(file).c_str(), F_OK) != 0)
    {
        close(file);
        errno = EOPNOTSUPP;
        return -1;
    }
    return file;
}

} // namespace

NewFile::~NewFile()
{
    if (file_ >= 0)
        close(file_);
    if (!temporary_.empty())
        unlink(temporary_.c_str());
    Forget(slot_);
}

Result NewFile::Fault(int code) const
{
    return MakeError(error::kIllegalState,
        (path_.empty() ? std::string("the picture") : path_) + " cannot be written: " + std::strerror(code));
}

Result NewFile::Open(const std::string& path)
{
    path_ = path;
    buffer_.reserve(kBufferBytes);
    if (path.empty())
    {
        const char* const folder = std::getenv("TMPDIR");
        folder_ = folder && *folder ? folder : "/tmp";
    }
    else
    {
        const auto slash = path.rfind('/');
        folder_ = slash == path.npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    }
    struct stat old = {};
    isReplacing_ = !path.empty() && lstat(path.c_str(), &old) == 0;
    if (!path.empty() && !isReplacing_ && errno != ENOENT)
        return Fault(errno);
    if (isReplacing_ && !S_ISREG(old.st_mode) && !S_ISLNK(old.st_mode))
        return MakeError(error::kIllegalState, path + " cannot be written: it is not a regular file");
    if (isReplacing_ && S_ISREG(old.st_mode) && access(path.c_str(), W_OK) != 0)
        return Fault(errno);

    file_ = OpenUnnamed(folder_);
    if (file_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL))
    {
        std::string name = RandomName();
        if (name.empty())
            return Fault(errno);
        name = folder_ + '/' + name;
        file_ = open(name.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_RDWR | O_CLOEXEC, 0666);
        if (file_ >= 0)
        {
            temporary_ = std::move(name);
            slot_ = Remember(temporary_.c_str());
        }
    }
    if (file_ < 0)
        return Fault(errno);
    if (isReplacing_ && S_ISREG(old.st_mode) && fchmod(file_, old.st_mode & 0777) != 0)
        return Fault(errno);
    return {};
}

Result NewFile::Write(UInt offset, const void* bytes, std::size_t count)
{
    if (count == 0)
        return {};
    if (offset != bufferStart_ + buffer_.size() || buffer_.size() + count > kBufferBytes)
        VELTO_TRY(Flush());
    const auto* from = static_cast<const std::byte*>(bytes);
    size_ = std::max(size_, offset + count);
    if (buffer_.empty())
        bufferStart_ = offset;
    if (count < kBufferBytes)
    {
        buffer_.insert(buffer_.end(), from, from + count);
        return {};
    }
    for (std::size_t done = 0; done < count;)
    {
        const ssize_t written = pwrite(file_, from + done, count - done, static_cast<off_t>(offset + done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return Fault(written < 0 ? errno : ENOSPC);
        done += static_cast<std::size_t>(written);
    }
    // The disk starts writing now, so that the wait at the end is short.
    sync_file_range(file_, static_cast<off_t>(offset), static_cast<off_t>(count), SYNC_FILE_RANGE_WRITE);
    return {};
}

Result NewFile::Flush()
{
    for (std::size_t done = 0; done < buffer_.size();)
    {
        const ssize_t written =
            pwrite(file_, buffer_.data() + done, buffer_.size() - done, static_cast<off_t>(bufferStart_ + done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return Fault(written < 0 ? errno : ENOSPC);
        done += static_cast<std::size_t>(written);
    }
    bufferStart_ += buffer_.size();
    buffer_.clear();
    return {};
}

Result NewFile::Read(UInt offset, void* bytes, std::size_t count, std::size_t& read)
{
    VELTO_TRY(Flush());
    const ssize_t got = pread(file_, bytes, count, static_cast<off_t>(offset));
    if (got < 0)
        return Fault(errno);
    read = static_cast<std::size_t>(got);
    return {};
}

Result NewFile::Complete()
{
    VELTO_TRY(Flush());
    // A pipe's copy need not survive the machine.
    if (!path_.empty() && fsync(file_) != 0 && errno != EINVAL)
        return Fault(errno);
    return {};
}

Result NewFile::CopyToOutput()
{
    std::vector<std::byte> bytes(1 << 20);
    for (UInt offset = 0; offset < size_;)
    {
        std::size_t count = 0;
        VELTO_TRY(Read(offset, bytes.data(), bytes.size(), count));
        for (std::size_t done = 0; done < count;)
        {
            const ssize_t written = write(STDOUT_FILENO, bytes.data() + done, count - done);
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                return MakeError(error::kIllegalState,
                    std::string("standard output cannot be written: ") + std::strerror(written < 0 ? errno : ENOSPC));
            done += static_cast<std::size_t>(written);
        }
        offset += count;
        if (count == 0)
            return Fault(EIO);
    }
    return {};
}

Result NewFile::GiveTemporaryName()
{
    if (!temporary_.empty())
        return {};
    const std::string name = RandomName();
    if (name.empty())
        return Fault(errno);
    temporary_ = folder_ + '/' + name;
    slot_ = Remember(temporary_.c_str());
    if (linkat(AT_FDCWD, NameOf(file_).c_str(), AT_FDCWD, temporary_.c_str(), AT_SYMLINK_FOLLOW) == 0)
        return {};
    const int code = errno;
    Forget(slot_);
    temporary_.clear();
    return Fault(code);
}

Result NewFile::TakeName(bool isOneOfSeveral)
{
    if (path_.empty())
        return CopyToOutput();
    // A file that somebody else put there meanwhile is not lost unnoticed: the last complete one stands.
    if (!isReplacing_ && temporary_.empty() &&
        linkat(AT_FDCWD, NameOf(file_).c_str(), AT_FDCWD, path_.c_str(), AT_SYMLINK_FOLLOW) == 0)
    {
        isNew_ = true;
        return {};
    }
    // An exchange would take a folder for the old one.
    struct stat old = {};
    if (lstat(path_.c_str(), &old) == 0 && S_ISDIR(old.st_mode))
        return Fault(EISDIR);
    VELTO_TRY(GiveTemporaryName());
    // The old one bears the temporary name until all have theirs.
    isExchanged_ =
        isOneOfSeveral && renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), RENAME_EXCHANGE) == 0;
    if (isExchanged_)
        return {};
    if (rename(temporary_.c_str(), path_.c_str()) != 0)
        return Fault(errno);
    temporary_.clear();
    Forget(slot_);
    return {};
}

void NewFile::GiveBackName()
{
    if (path_.empty())
        return;
    if (isExchanged_)
        rename(temporary_.c_str(), path_.c_str());
    else if (isNew_)
        unlink(path_.c_str());
    temporary_.clear();
    Forget(slot_);
}

void NewFile::ForgetReplaced()
{
    if (!temporary_.empty())
        unlink(temporary_.c_str());
    temporary_.clear();
    Forget(slot_);
    // The name, too, survives a crash of the machine.
    const int folder = path_.empty() ? -1 : open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return;
    fsync(folder);
    close(folder);
}

Result NewFile::PutInPlace(std::span<NewFile* const> files)
{
    const Naming naming;
    Result failure;
    std::size_t named = 0;
    while (named < files.size() && failure.IsOk())
    {
        failure = files[named]->TakeName(files.size() > 1);
        named += failure.IsOk() ? 1 : 0;
    }
    if (failure.IsError())
    {
        while (named > 0)
            files[--named]->GiveBackName();
        return failure;
    }
    for (NewFile* const file : files)
        file->ForgetReplaced();
    return {};
}

bool RemoveUnfinishedFiles(int signal)
{
    int writing = kWriting;
    if (!phase.compare_exchange_strong(writing, kEnding) && writing == kNaming)
    {
        heldSignal = signal;
        // The renaming may just have ended without looking at the signal.
        writing = kWriting;
        if (!phase.compare_exchange_strong(writing, kEnding) && writing == kNaming)
            return false;
    }
    for (std::atomic<const char*>& name : temporaryNames)
    {
        if (const char* const file = name.exchange(nullptr))
            unlink(file);
    }
    return true;
}

} // namespace velto::host
