// Decodes a movie for a host that does not trust it: `velto-decode CONTAINER`, started by the picture library.
#include "decoder.h"
#include "sandbox.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

namespace velto::host
{

namespace
{

constexpr SandboxLimits kLimits{rlim_t(4) << 30, 3600};

bool Send(const void* data, std::size_t count)
{
    const auto* bytes = static_cast<const char*>(data);
    while (count > 0)
    {
        const ssize_t written = write(kMovieSocket, bytes, count);
        if (written <= 0)
            return false;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}

bool Receive(std::int64_t& number)
{
    return read(kMovieSocket, &number, sizeof(number)) == sizeof(number);
}

void Serve(MovieDecoder& decoder)
{
    const MovieFacts& facts = decoder.Facts();
    const std::vector<double>& times = decoder.Times();
    if (!Send(&facts, sizeof(facts)) || !Send(times.data(), times.size() * sizeof(times[0])) ||
        facts.status != MovieStatus::Fine)
        return;
    std::uint8_t* pixels = nullptr;
    for (std::int64_t number = 0; Receive(number);)
    {
        if (!pixels)
        {
            const auto size = static_cast<std::size_t>(facts.rowBytes) * static_cast<std::size_t>(facts.height);
            void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, kMovieMemory, 0);
            if (memory == MAP_FAILED)
                return;
            pixels = static_cast<std::uint8_t*>(memory);
        }
        const MovieStatus status = decoder.Decode(number, pixels);
        if (!Send(&status, sizeof(status)))
            return;
    }
}

int Run(const char* container)
{
    closefrom(kMovieMemory + 1);
    MovieDecoder decoder(kMovieFile, container);
    if (!EnterSandbox(kMovieFile, kMovieSocket, kLimits))
    {
        MovieFacts facts;
        facts.status = MovieStatus::NoSandbox;
        return Send(&facts, sizeof(facts)) ? 0 : 1;
    }
    decoder.Open();
    Serve(decoder);
    return 0;
}

} // namespace

} // namespace velto::host

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fputs("velto-decode is started by velto, which gives it a movie.\n", stderr);
        return 2;
    }
    // Ends at once: nothing of what was read runs again.
    _exit(velto::host::Run(argv[1]));
}
