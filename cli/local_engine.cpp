// Runs the parts as processes of this machine, as many at once as it has cores, to try a farm out.
#include "engine.h"

#include "host/system/cores.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <map>

namespace velto::cli
{

namespace
{

class LocalEngine final : public Engine
{
public:
    ~LocalEngine() override { Cancel(); }

    std::string Describe(const FarmJob& job) const override
    {
        std::string text;
        for (const auto& command : job.parts)
            text += fmt::format("{}\n", fmt::join(command, " "));
        return text + fmt::format("{}\n", fmt::join(job.merge, " "));
    }

    bool Submit(const FarmJob& job, std::vector<std::string>&, std::string&) override
    {
        waiting_ = job.parts;
        std::reverse(waiting_.begin(), waiting_.end());
        merge_ = job.merge;
        return true;
    }

    FarmState Poll() override
    {
        Reap();
        const auto cores = static_cast<std::size_t>(host::UsableCores());
        while (!state_.isOver && !isMerging_ && !waiting_.empty() && running_.size() < cores)
        {
            // Each has a core to itself.
            Start(waiting_.back(), "1");
            waiting_.pop_back();
        }
        if (!state_.isOver && !isMerging_ && waiting_.empty() && running_.empty())
        {
            isMerging_ = true;
            Start(merge_, nullptr);
        }
        return state_;
    }

    void Cancel() override
    {
        for (const pid_t process : running_)
            kill(process, SIGTERM);
        for (const pid_t process : running_)
            waitpid(process, nullptr, 0);
        running_.clear();
    }

    bool OutlivesUs() const override { return false; }

private:
    void Start(const std::vector<std::string>& command, const char* threads)
    {
        const std::vector<char*> arguments = ArgumentList(command);
        const pid_t process = fork();
        if (process == 0)
        {
            sigset_t none;
            sigemptyset(&none);
            sigprocmask(SIG_SETMASK, &none, nullptr);
            if (threads)
                setenv("VELTO_THREADS", threads, 0);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        if (process > 0)
            running_.push_back(process);
        else
            state_.isOver = true;
    }

    void Reap()
    {
        for (std::size_t i = 0; i < running_.size();)
        {
            int status = 0;
            if (waitpid(running_[i], &status, WNOHANG) == 0)
            {
                ++i;
                continue;
            }
            running_.erase(running_.begin() + static_cast<std::ptrdiff_t>(i));
            const bool isGood = WIFEXITED(status) && WEXITSTATUS(status) == 0;
            if (isMerging_)
                state_ = {state_.partsDone, true, isGood};
            else if (isGood)
                ++state_.partsDone;
            else
                state_.isOver = true;
        }
    }

    std::vector<std::vector<std::string>> waiting_; // the next one last
    std::vector<std::string> merge_;
    std::vector<pid_t> running_;
    bool isMerging_ = false;
    FarmState state_;
};

} // namespace

std::unique_ptr<Engine> MakeLocalEngine()
{
    return std::make_unique<LocalEngine>();
}

} // namespace velto::cli
