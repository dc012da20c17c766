// Slurm: a job array for the parts, and a merge that depends on all of it.
#include "engine.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace velto::cli
{

namespace
{

std::string Quoted(const std::string& word)
{
    std::string quoted = "'";
    for (const char c : word)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string Quoted(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + Quoted(word);
    return line;
}

// Runs a command with `input` as its standard input, and takes its output and errors.
int Run(const std::vector<std::string>& command, const std::string& input, std::string& output)
{
    FILE* const script = std::tmpfile();
    if (!script)
        return -1;
    std::fwrite(input.data(), 1, input.size(), script);
    std::rewind(script);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
    {
        std::fclose(script);
        return -1;
    }
    const std::vector<char*> arguments = ArgumentList(command);
    const pid_t process = fork();
    if (process == 0)
    {
        dup2(fileno(script), STDIN_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    std::fclose(script);
    char buffer[4096];
    for (ssize_t count = 0; process > 0 && (count = read(ends[0], buffer, sizeof buffer)) > 0;)
        output.append(buffer, static_cast<std::size_t>(count));
    close(ends[0]);
    int status = -1;
    if (process <= 0 || waitpid(process, &status, 0) < 0 || !WIFEXITED(status))
        return -1;
    while (output.ends_with('\n'))
        output.pop_back();
    return WEXITSTATUS(status);
}

class SlurmEngine : public Engine
{
public:
    std::string Describe(const FarmJob& job) const override
    {
        return fmt::format("{} <<'END'\n{}END\n{} <<'END'\n{}END\n", Quoted(PartsCommand(job)), PartsScript(job),
            Quoted(MergeCommand(job, "PARTS")), MergeScript(job));
    }

    bool Submit(const FarmJob& job, std::vector<std::string>& ids, std::string& reason) override
    {
        if (!SubmitOne(PartsCommand(job), PartsScript(job), parts_, reason))
            return false;
        if (!SubmitOne(MergeCommand(job, parts_), MergeScript(job), merge_, reason))
        {
            Cancel();
            return false;
        }
        count_ = static_cast<int>(job.parts.size());
        ids = {parts_, merge_};
        return true;
    }

    FarmState Poll() override
    {
        // A line for each job that is not over, and for those that were until a few minutes ago.
        std::string states;
        if (Run({"squeue", "--noheader", "--array", "--states=all", "--format=%A %F %T",
                    "--jobs=" + parts_ + "," + merge_},
                {}, states) != 0)
            return ++failures_ > kMostFailures ? FarmState{0, true, false} : FarmState{};
        failures_ = 0;
        FarmState state;
        for (std::size_t at = 0; at < states.size();)
        {
            const std::size_t end = std::min(states.find('\n', at), states.size());
            const std::string line = states.substr(at, end - at);
            at = end + 1;
            const bool isMerge = line.find(' ' + merge_ + ' ') != line.npos;
            const std::string name = line.substr(line.rfind(' ') + 1);
            if (!isMerge && name == "COMPLETED")
                ++state.partsDone;
            if (isMerge && name != "PENDING" && name != "RUNNING" && name != "COMPLETING" && name != "CONFIGURING" &&
                name != "SUSPENDED" && name != "REQUEUED")
            {
                state.isOver = true;
                state.isGood = name == "COMPLETED";
            }
        }
        state.partsDone = state.isGood ? count_ : state.partsDone;
        return state;
    }

    void Cancel() override
    {
        std::string ignored;
        Run({"scancel", parts_, merge_}, {}, ignored);
    }

    bool OutlivesUs() const override { return true; }

private:
    static std::vector<std::string> PartsCommand(const FarmJob& job)
    {
        std::vector<std::string> command{"sbatch", "--parsable", "--job-name=velto-parts", "--requeue",
            fmt::format("--array=1-{}", job.parts.size())};
        command.insert(command.end(), job.options.begin(), job.options.end());
        return command;
    }

    // The array's number takes the place of the first part's. What ends otherwise than by itself, killed for its
    // memory say, is tried again; when the node goes, Slurm does so.
    static std::string PartsScript(const FarmJob& job)
    {
        std::string line;
        const std::string first = fmt::format("1/{}", job.parts.size());
        for (const std::string& word : job.parts.front())
            line += word == first ? fmt::format(" \"$SLURM_ARRAY_TASK_ID/{}\"", job.parts.size()) : " " + Quoted(word);
        return fmt::format("#!/bin/sh\nfor try in 1 2 3; do\n   {}\n    status=$?\n    [ $status -le 2 ] && exit "
                           "$status\ndone\nexit $status\n",
            line);
    }

    static std::vector<std::string> MergeCommand(const FarmJob& job, const std::string& parts)
    {
        std::vector<std::string> command{"sbatch", "--parsable", "--job-name=velto-merge", "--requeue",
            "--dependency=afterok:" + parts, "--kill-on-invalid-dep=yes"};
        command.insert(command.end(), job.options.begin(), job.options.end());
        return command;
    }

    static std::string MergeScript(const FarmJob& job) { return "#!/bin/sh\nexec " + Quoted(job.merge) + "\n"; }

    static bool SubmitOne(
        const std::vector<std::string>& command, const std::string& script, std::string& id, std::string& reason)
    {
        std::string output;
        const int status = Run(command, script, output);
        if (status != 0)
        {
            reason = status == 127 ? "there is no sbatch" : output;
            return false;
        }
        id = output.substr(0, output.find(';')); // the cluster's name may follow
        return true;
    }

    static constexpr int kMostFailures = 20; // of questions in a row

    std::string parts_;
    std::string merge_;
    int count_ = 0;
    int failures_ = 0;
};

} // namespace

std::unique_ptr<Engine> MakeSlurmEngine()
{
    return std::make_unique<SlurmEngine>();
}

} // namespace velto::cli
