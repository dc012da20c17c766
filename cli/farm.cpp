#include "farm.h"

#include <fmt/format.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <ostream>

namespace velto::cli
{

namespace
{

FarmJob MakeJob(const FarmArguments& arguments)
{
    std::error_code ignored;
    const std::string velto = std::filesystem::read_symlink("/proc/self/exe", ignored).string();
    FarmJob job;
    job.options = arguments.engineOptions;
    for (int i = 1; i <= arguments.shards; ++i)
    {
        std::vector<std::string> command{velto, "bake"};
        command.insert(command.end(), arguments.bakeArguments.begin(), arguments.bakeArguments.end());
        // A job that is run again keeps what it finished before.
        command.insert(command.end(), {"--shard", fmt::format("{}/{}", i, arguments.shards), "--skip-existing"});
        job.parts.push_back(std::move(command));
    }
    job.merge = {velto, "merge"};
    job.merge.insert(job.merge.end(), arguments.bakeArguments.begin(), arguments.bakeArguments.end());
    job.merge.emplace_back("--remove-parts");
    return job;
}

void ShowBar(const Streams& streams, const FarmArguments& arguments, const FarmState& state)
{
    if (!streams.isErrTerminal)
        return;
    constexpr int kWidth = 30;
    const int filled = kWidth * state.partsDone / arguments.shards;
    streams.err << fmt::format("\r\x1b[K{} [{}{}] {} of {} parts", arguments.file,
                       std::string(static_cast<std::size_t>(filled), '='),
                       std::string(static_cast<std::size_t>(kWidth - filled), ' '), state.partsDone, arguments.shards)
                << std::flush;
}

// Signals are handled between the steps of the wait, so that a cancellation is complete.
int Wait(const FarmArguments& arguments, const Streams& streams, Engine& engine)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&signals, signal);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    FarmState state;
    int signal = 0;
    while (signal <= 0)
    {
        state = engine.Poll();
        ShowBar(streams, arguments, state);
        if (state.isOver)
            break;
        const timespec pause{0, 500'000'000};
        signal = sigtimedwait(&signals, nullptr, &pause);
    }
    if (streams.isErrTerminal)
        streams.err << "\r\x1b[K" << std::flush;
    if (signal > 0 && (arguments.cancelOnInterrupt || !engine.OutlivesUs()))
        engine.Cancel();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (signal > 0)
        std::raise(signal);
    if (!state.isGood)
        PrintError(streams,
            fmt::format("{}: a part or the merge failed; the same command does what is missing", arguments.file));
    return state.isGood ? kSuccess : kFailed;
}

} // namespace

std::unique_ptr<Engine> MakeEngine(const std::string& name)
{
    if (name == "slurm")
        return MakeSlurmEngine();
    if (name == "local")
        return MakeLocalEngine();
    return nullptr;
}

int Farm(const FarmArguments& arguments, const Streams& streams)
{
    const std::unique_ptr<Engine> engine = MakeEngine(arguments.engine);
    if (!engine)
    {
        PrintError(streams, fmt::format("--engine {}: expected slurm or local", arguments.engine));
        return kWrongInput;
    }
    const FarmJob job = MakeJob(arguments);
    if (arguments.dryRun)
    {
        streams.out << engine->Describe(job);
        return kSuccess;
    }
    std::vector<std::string> ids;
    std::string reason;
    if (!engine->Submit(job, ids, reason))
    {
        PrintError(streams, fmt::format("{}: {}", arguments.engine, reason));
        return kFailed;
    }
    for (const std::string& id : ids)
        streams.out << id << '\n';
    streams.out.flush();
    if (!arguments.wait && engine->OutlivesUs())
        return kSuccess;
    return Wait(arguments, streams, *engine);
}

} // namespace velto::cli
