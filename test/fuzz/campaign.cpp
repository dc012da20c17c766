// Runs a target for a stated number of inputs, without a fuzzing engine: as it is built for users, and going on after a
// crash or a hang, whose input it keeps.
//
//     document_campaign COUNT SEED DIRECTORY
//
// The directory gets the target's own seeds if it is empty; what was found lies beside them as `found-...`.
#include "targets.h"

#include "test/support/files.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

extern "C" __attribute__((weak)) std::size_t LLVMFuzzerCustomMutator(
    std::uint8_t* data, std::size_t size, std::size_t most, unsigned int)
{
    return LLVMFuzzerMutate(data, size, most);
}

namespace
{

constexpr std::size_t kMostBytes = std::size_t(1) << 18;
// Of the processor's time, and of the clock's where others are waited for, as on a busy machine.
constexpr double kPatience = 10.0;
constexpr double kLongPatience = 120.0;

// What worker and watcher share.
struct Progress
{
    std::atomic<long> begun;
    std::atomic<std::size_t> size;
    std::uint8_t input[kMostBytes];
};

std::minstd_rand bytesRandom;

// Seeds and what came of them, a bounded number.
class Pool
{
public:
    explicit Pool(const std::filesystem::path& directory)
    {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
        {
            if (!entry.path().filename().string().starts_with("found-"))
                files.push_back(entry.path());
        }
        std::sort(files.begin(), files.end());
        for (const auto& file : files)
        {
            std::string bytes = velto::test::ReadFile(file);
            if (bytes.size() <= kMostBytes)
                inputs_.push_back(std::move(bytes));
        }
        seeds_ = inputs_.size();
        if (seeds_ == 0)
            std::exit(2);
    }

    const std::string& Any(std::minstd_rand& random) const { return inputs_[random() % inputs_.size()]; }

    void Keep(std::minstd_rand& random, const Progress& progress)
    {
        std::string bytes(reinterpret_cast<const char*>(progress.input), progress.size);
        if (inputs_.size() < 4 * seeds_)
            inputs_.push_back(std::move(bytes));
        else
            inputs_[seeds_ + random() % (3 * seeds_)] = std::move(bytes);
    }

private:
    std::vector<std::string> inputs_;
    std::size_t seeds_ = 0;
};

[[noreturn]] void Work(Progress& progress, long count, unsigned seed, char** arguments, int argumentCount)
{
    LLVMFuzzerInitialize(&argumentCount, &arguments);
    Pool pool(arguments[argumentCount - 1]);
    while (progress.begun < count)
    {
        const long number = ++progress.begun;
        if (number % 5000 == 0)
            std::printf("%ld\n", number), std::fflush(stdout);
        std::minstd_rand random(static_cast<unsigned>(number * 7919 + long(seed) * 104729 + 1));
        random.discard(3);
        bytesRandom.seed(static_cast<unsigned>(random()));
        const std::string& start = pool.Any(random);
        std::memcpy(progress.input, start.data(), start.size());
        std::size_t size = start.size();
        for (auto i = random() % 2 + 1; i > 0; --i)
            size = LLVMFuzzerCustomMutator(progress.input, size, kMostBytes, static_cast<unsigned>(random()));
        progress.size = size;
        if (LLVMFuzzerTestOneInput(progress.input, size) == 0 && random() % 8 == 0)
            pool.Keep(random, progress);
    }
    _exit(0);
}

double SecondsOn(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

// How the worker ended; 0: well.
int Watch(pid_t worker, const Progress& progress, bool& hung)
{
    clockid_t itsClock = {};
    clock_getcpuclockid(worker, &itsClock);
    long seen = -1;
    double itsBegin = 0.0;
    double begin = 0.0;
    for (;;)
    {
        int status = 0;
        if (waitpid(worker, &status, WNOHANG) == worker)
            return status;
        if (const long begun = progress.begun; begun != seen)
        {
            seen = begun;
            itsBegin = SecondsOn(itsClock);
            begin = SecondsOn(CLOCK_MONOTONIC);
        }
        const bool isLate =
            SecondsOn(itsClock) - itsBegin > kPatience || SecondsOn(CLOCK_MONOTONIC) - begin > kLongPatience;
        if (isLate && !hung && seen > 0)
        {
            hung = true;
            kill(worker, SIGKILL);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

} // namespace

// Flips, copies, drops and inserts bytes.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most)
{
    static constexpr std::uint8_t kBytes[] = {0, 1, 0x7f, 0x80, 0xff, 0xfe, 4, 16, 64};
    const auto below = [](std::size_t count) { return count ? bytesRandom() % count : 0; };
    const std::size_t at = below(size);
    const std::size_t length = std::min<std::size_t>(below(8) + 1, size - at);
    switch (bytesRandom() % 6)
    {
    case 0:
        if (size)
            data[at] ^= static_cast<std::uint8_t>(1u << below(8));
        break;
    case 1:
        if (size)
            data[at] = static_cast<std::uint8_t>(below(256));
        break;
    case 2:
        for (std::size_t i = 0; i < length; ++i)
            data[at + i] = kBytes[below(std::size(kBytes))];
        break;
    case 3:
        std::memmove(data + at, data + at + length, size - at - length);
        return size - length;
    case 4:
        if (size + length <= most)
        {
            std::memmove(data + at + length, data + at, size - at);
            return size + length;
        }
        break;
    default:
        std::memmove(data + at, data + below(size - length + 1), length);
    }
    return size;
}

int main(int count, char** arguments)
{
    if (count != 4)
        return std::fprintf(stderr, "usage: %s COUNT SEED DIRECTORY\n", arguments[0]), 2;
    const long wanted = std::atol(arguments[1]);
    const auto seed = static_cast<unsigned>(std::atol(arguments[2]));
    const std::filesystem::path directory(arguments[3]);
    std::filesystem::create_directories(directory);
    void* const memory = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return 1;
    auto& progress = *new (memory) Progress;
    const auto begin = std::chrono::steady_clock::now();
    int found = 0;
    while (progress.begun < wanted)
    {
        const pid_t worker = fork();
        if (worker == 0)
            Work(progress, wanted, seed, arguments, count);
        bool hung = false;
        const int status = Watch(worker, progress, hung);
        if (status == 0)
            break;
        if (WIFEXITED(status) && WEXITSTATUS(status) == 2)
            return std::fprintf(stderr, "there is nothing to start from\n"), 1;
        ++found;
        const std::string name =
            (hung ? "found-hang-" : "found-crash-") + std::to_string(seed) + "-" + std::to_string(progress.begun);
        std::ofstream(directory / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(progress.input), static_cast<std::streamsize>(progress.size.load()));
        std::printf("%s: status %d\n", name.c_str(), status);
        std::fflush(stdout);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::printf("%ld inputs in %.0f s, %.0f a second, %d found\n", progress.begun.load(), seconds,
        double(progress.begun) / seconds, found);
    return found ? 1 : 0;
}
