// What every call from Python goes through: the module of nodes, the interpreter's lock, signals, messages, forks.
#pragma once

#include "host/host.h"

#include <pybind11/pybind11.h>

#include <atomic>
#include <functional>
#include <shared_mutex>

namespace velto::python
{

namespace py = pybind11;

// The modules of this installation, loaded on the first call; throws where that fails.
std::shared_ptr<host::Modules> TheModules();

// One call at work: refused in a process that was forked while another was.
class Work
{
public:
    Work();
    ~Work();
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
};

// Hands over to Python what the host has said since the last time. Throws what a handler of warnings raises.
void FlushLines();

// How many threads a call may start: all that are asked for, or all cores; one in a forked process, whose pool of
// threads stayed behind.
int ThreadsFor(int asked);

// Runs `work`, which does not throw, on a thread of its own and without the interpreter's lock. Meanwhile this thread
// listens for signals and calls `report` at most ten times a second. What these raise sets `stop`, and is thrown once
// the work is done.
void RunInterruptibly(
    std::atomic<bool>& stop, const std::function<void()>& work, const std::function<void()>& report = {});

// Throws what a signal's handler raised. [the interpreter's lock held]
void CheckSignals();

// Who samples a graph shares it; who bakes or changes it has it alone. A thread that has it already, in a callback or
// in the handler of a signal, is refused.
class GraphLock
{
public:
    class Shared
    {
    public:
        explicit Shared(GraphLock& lock);
        ~Shared();
        Shared(const Shared&) = delete;
        Shared& operator=(const Shared&) = delete;

    private:
        GraphLock& lock_;
    };

    class Alone
    {
    public:
        explicit Alone(GraphLock& lock);
        ~Alone();
        Alone(const Alone&) = delete;
        Alone& operator=(const Alone&) = delete;

    private:
        GraphLock& lock_;
    };

private:
    std::shared_timed_mutex mutex_;
};

[[noreturn]] void ThrowDocumentError(const std::string& file, const host::Diagnostics& diagnostics);

// Hands the warnings among them to Python.
void Warn(const std::string& file, const host::Diagnostics& diagnostics);

// Where an evaluation failed; -1: at no sample in particular.
struct FailedPlace
{
    std::string node;
    Int sample = -1;
    Int x = -1;
    Int y = -1;
};

[[noreturn]] void ThrowEvaluationError(const Result& error, const FailedPlace& place);

} // namespace velto::python
