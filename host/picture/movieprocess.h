// A running decoder, as the host sees it.
#pragma once

#include "movieprotocol.h"

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace velto::host
{

class MovieProcess
{
public:
    // How a conversation ended; a decoder that did not answer well is gone.
    enum class Answer
    {
        Fine,
        Died,
        TookTooLong,
        NotStarted, // `errno` says why
    };

    MovieProcess() = default;
    ~MovieProcess() { Stop(); }
    MovieProcess(const MovieProcess&) = delete;
    MovieProcess& operator=(const MovieProcess&) = delete;

    using Patience = std::chrono::steady_clock::duration;

    // Borrows `file`.
    Answer Start(const std::string& program, const std::string& container, int file);
    Answer Receive(void* data, std::size_t count, Patience patience);
    Answer Share(std::size_t size);
    Answer Send(const void* data, std::size_t count);

    const unsigned char* Memory() const { return memory_; }

private:
    void Stop();
    Answer End(Answer answer);

    pid_t id_ = -1;
    int socket_ = -1;
    int shared_ = -1;
    const unsigned char* memory_ = nullptr;
    std::size_t size_ = 0;
};

} // namespace velto::host
