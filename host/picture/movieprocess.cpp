#include "movieprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

extern char** environ; // NOLINT(readability-redundant-declaration)

namespace velto::host
{

namespace
{

// Above the numbers that the decoder finds its own at, so that none is overwritten before it is passed on.
constexpr int kLowestPassed = 16;

int Raised(int descriptor)
{
    if (descriptor < 0)
        return -1;
    const int raised = fcntl(descriptor, F_DUPFD_CLOEXEC, kLowestPassed);
    close(descriptor);
    return raised;
}

void CloseIfOpen(int& descriptor)
{
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

// In a process group of its own: what a terminal sends is for the command, which ends its decoders itself.
int Spawn(pid_t& id, const std::string& program, const std::string& container, int file, int socket, int memory)
{
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, file, kMovieFile);
    posix_spawn_file_actions_adddup2(&actions, socket, kMovieSocket);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, memory, kMovieMemory);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string programName = program;
    std::string containerName = container;
    char* const arguments[] = {programName.data(), containerName.data(), nullptr};
    const int failure = posix_spawn(&id, program.c_str(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
        id = -1;
    return failure;
}

} // namespace

MovieProcess::Answer MovieProcess::Start(const std::string& program, const std::string& container, int file)
{
    Stop();
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return Answer::NotStarted;
    socket_ = ends[0];
    int theirs = Raised(ends[1]);
    shared_ = Raised(memfd_create("velto movie", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    int passed = fcntl(file, F_DUPFD_CLOEXEC, kLowestPassed);
    int failure = errno;
    if (theirs >= 0 && shared_ >= 0 && passed >= 0)
        failure = Spawn(id_, program, container, passed, theirs, shared_);
    CloseIfOpen(theirs);
    CloseIfOpen(passed);
    if (id_ >= 0)
        return Answer::Fine;
    Stop();
    errno = failure;
    return Answer::NotStarted;
}

void MovieProcess::Stop()
{
    CloseIfOpen(socket_);
    CloseIfOpen(shared_);
    if (memory_)
        munmap(const_cast<unsigned char*>(memory_), size_);
    memory_ = nullptr;
    if (id_ >= 0)
    {
        kill(id_, SIGKILL);
        while (waitpid(id_, nullptr, 0) < 0 && errno == EINTR)
        {
        }
    }
    id_ = -1;
}

MovieProcess::Answer MovieProcess::End(Answer answer)
{
    Stop();
    return answer;
}

MovieProcess::Answer MovieProcess::Send(const void* data, std::size_t count)
{
    // Requests are smaller than any socket's buffer.
    if (send(socket_, data, count, MSG_NOSIGNAL) != static_cast<ssize_t>(count))
        return End(Answer::Died);
    return Answer::Fine;
}

MovieProcess::Answer MovieProcess::Receive(void* data, std::size_t count, Patience patience)
{
    using namespace std::chrono;
    const auto end = steady_clock::now() + patience;
    auto* bytes = static_cast<char*>(data);
    while (count > 0)
    {
        const auto left = duration_cast<milliseconds>(end - steady_clock::now()).count();
        if (left <= 0)
            return End(Answer::TookTooLong);
        pollfd waiting{socket_, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(std::min<long long>(left, 1000)));
        if (ready == 0 || (ready < 0 && errno == EINTR))
            continue;
        const ssize_t received = ready < 0 ? -1 : recv(socket_, bytes, count, 0);
        if (received <= 0)
            return End(Answer::Died);
        bytes += received;
        count -= static_cast<std::size_t>(received);
    }
    return Answer::Fine;
}

// Makes room for a picture, which the decoder can neither take away nor enlarge.
MovieProcess::Answer MovieProcess::Share(std::size_t size)
{
    if (ftruncate(shared_, static_cast<off_t>(size)) != 0 ||
        fcntl(shared_, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
        return End(Answer::NotStarted);
    void* const memory = mmap(nullptr, size, PROT_READ, MAP_SHARED, shared_, 0);
    if (memory == MAP_FAILED)
        return End(Answer::NotStarted);
    memory_ = static_cast<const unsigned char*>(memory);
    size_ = size;
    return Answer::Fine;
}

} // namespace velto::host
