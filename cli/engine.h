// What `velto farm` asks of a scheduler: three verbs.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace velto::cli
{

// Commands to run: the parts in any order, the merge once all of them went well.
struct FarmJob
{
    std::vector<std::vector<std::string>> parts;
    std::vector<std::string> merge;
    std::vector<std::string> options; // the engine's own, as the user gave them
};

struct FarmState
{
    int partsDone = 0;
    bool isOver = false;
    bool isGood = false; // the merge went well
};

class Engine
{
public:
    virtual ~Engine() = default;

    // The commands that `Submit` would run, as text.
    virtual std::string Describe(const FarmJob& job) const = 0;

    // Returns at once, with the ids that the scheduler's own commands take; false and why when it takes no jobs.
    virtual bool Submit(const FarmJob& job, std::vector<std::string>& ids, std::string& reason) = 0;

    // Called a few times a second, or less often.
    virtual FarmState Poll() = 0;

    virtual void Cancel() = 0;

    // Whether jobs go on when this process ends.
    virtual bool OutlivesUs() const = 0;
};

// What `execvp` takes; it points into `command`.
inline std::vector<char*> ArgumentList(const std::vector<std::string>& command)
{
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    return arguments;
}

// Null where there is no engine of the name.
std::unique_ptr<Engine> MakeEngine(const std::string& name);
std::unique_ptr<Engine> MakeSlurmEngine();
std::unique_ptr<Engine> MakeLocalEngine();

} // namespace velto::cli
