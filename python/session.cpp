#include "session.h"

#include "host/system/cores.h"

#include <fmt/format.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include <dlfcn.h>
#include <pthread.h>

namespace velto::python
{

namespace
{

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr const char* kForkedAtWork =
    "this process was forked while velto was at work in it: start processes with the method \"spawn\"";

std::atomic<int> callsAtWork = 0;
std::atomic<bool> isForked = false;
std::atomic<bool> isForkedAtWork = false;

// What the host said, until a call ends.
class Lines
{
public:
    void Add(host::OutputChannel channel, std::string_view text)
    {
        const std::lock_guard lock(mutex_);
        if (lines_.size() < kMost)
            lines_.emplace_back(channel, text);
        else
            ++dropped_;
        hasAny_ = true;
    }

    py::list Take()
    {
        py::list taken;
        const std::lock_guard lock(mutex_);
        for (const auto& [channel, text] : lines_)
            taken.append(py::make_tuple(channel == host::OutputChannel::Message, text));
        if (dropped_ > 0)
            taken.append(py::make_tuple(false, fmt::format("{} more lines are left out", dropped_)));
        lines_.clear();
        dropped_ = 0;
        hasAny_ = false;
        return taken;
    }

    bool HasAny() const { return hasAny_.load(std::memory_order_relaxed); }

private:
    static constexpr std::size_t kMost = 1000;

    std::mutex mutex_;
    std::vector<std::pair<host::OutputChannel, std::string>> lines_;
    std::size_t dropped_ = 0;
    std::atomic<bool> hasAny_ = false;
};

// Never ends: threads may speak until the process does.
Lines& TheLines()
{
    static Lines& lines = *new Lines;
    return lines;
}

// Where the modules are, seen from this library: in the build tree, or installed.
std::filesystem::path ModuleFolder()
{
    Dl_info info = {};
    dladdr(reinterpret_cast<const void*>(&ModuleFolder), &info);
    const std::filesystem::path here = std::filesystem::absolute(info.dli_fname).parent_path();
    const std::filesystem::path installed = (here / VELTO_INSTALLED_DIRECTORY / "modules").lexically_normal();
    std::error_code ignored;
    return std::filesystem::exists(installed, ignored) ? installed : (here / "../../modules").lexically_normal();
}

std::shared_ptr<host::Modules> LoadTheModules()
{
    host::SetOutputHandler(
        [](host::OutputChannel channel, LogTarget, std::string_view line) { TheLines().Add(channel, line); });
    const std::filesystem::path folder = ModuleFolder();
    const std::vector<std::filesystem::path> files = host::ModuleFiles(folder);
    if (files.empty())
        throw std::runtime_error(fmt::format("there is no module in {}", folder.string()));
    std::shared_ptr<host::Modules> modules;
    if (const Result loaded = host::Modules::Load(files, modules); loaded.IsError())
        throw std::runtime_error(std::string(loaded.Message()));
    pthread_atfork(nullptr, nullptr, [] {
        isForked = true;
        isForkedAtWork = callsAtWork > 0;
    });
    return modules;
}

// The graphs that this thread has in use.
thread_local std::vector<const GraphLock*> inUse;

template <class Lock>
void Await(const GraphLock& graph, Lock& lock)
{
    if (std::find(inUse.begin(), inUse.end(), &graph) != inUse.end())
        throw std::runtime_error("the graph is at work: what it calls cannot use it");
    while (!lock.try_lock())
    {
        {
            const py::gil_scoped_release unlocked;
            if (lock.try_lock_for(20ms))
                break;
        }
        CheckSignals();
    }
    inUse.push_back(&graph);
    lock.release(); // the owner unlocks
}

void Forget(const GraphLock& graph)
{
    inUse.erase(std::find(inUse.begin(), inUse.end(), &graph));
}

py::object Attribute(const char* module, const char* name)
{
    return py::module_::import(module).attr(name);
}

[[noreturn]] void Raise(const py::object& error)
{
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

py::object DiagnosticOf(const std::string& file, const host::Diagnostic& diagnostic)
{
    return Attribute("velto.errors", "Diagnostic")(diagnostic.place, diagnostic.text,
        diagnostic.isWarning ? "warning" : "error", diagnostic.file.empty() ? file : diagnostic.file);
}

std::string LineOf(const std::string& file, const host::Diagnostic& diagnostic)
{
    std::string line = diagnostic.file.empty() ? file : diagnostic.file;
    for (const std::string& part : {diagnostic.place, diagnostic.text})
        line += (line.empty() || part.empty() ? "" : ": ") + part;
    return diagnostic.usedBy.empty() ? line : fmt::format("{} (used by {})", line, diagnostic.usedBy);
}

} // namespace

std::shared_ptr<host::Modules> TheModules()
{
    // With the interpreter's lock, which makes one thread do it. Never unloaded: graphs may go late.
    static std::shared_ptr<host::Modules>& modules = *new std::shared_ptr<host::Modules>;
    if (!modules)
        modules = LoadTheModules();
    return modules;
}

Work::Work()
{
    if (isForkedAtWork)
        throw std::runtime_error(kForkedAtWork);
    ++callsAtWork;
}

Work::~Work()
{
    --callsAtWork;
}

void FlushLines()
{
    if (TheLines().HasAny())
        Attribute("velto.messages", "emit")(TheLines().Take());
}

int ThreadsFor(int asked)
{
    if (isForked)
        return 1;
    return asked > 0 ? asked : host::UsableCores();
}

void CheckSignals()
{
    if (PyErr_CheckSignals() != 0)
        throw py::error_already_set();
}

void RunInterruptibly(std::atomic<bool>& stop, const std::function<void()>& work, const std::function<void()>& report)
{
    std::mutex mutex;
    std::condition_variable ended;
    bool isDone = false;
    std::optional<py::error_already_set> raised;
    {
        const py::gil_scoped_release unlocked;
        std::thread thread([&] {
            work();
            const std::lock_guard lock(mutex);
            isDone = true;
            ended.notify_one();
        });
        Clock::time_point reported = Clock::now();
        std::unique_lock lock(mutex);
        while (!ended.wait_for(lock, 20ms, [&] { return isDone; }))
        {
            if (raised)
                continue;
            lock.unlock();
            if (isForkedAtWork) // in a handler, which came back here in the child: the thread is the parent's
            {
                thread.detach();
                throw std::runtime_error(kForkedAtWork);
            }
            try
            {
                const py::gil_scoped_acquire locked;
                try
                {
                    CheckSignals();
                    if (report && Clock::now() - reported >= 100ms)
                    {
                        reported = Clock::now();
                        report();
                    }
                }
                catch (py::error_already_set& error)
                {
                    raised.emplace(std::move(error));
                    stop = true;
                }
            }
            catch (...)
            {
                stop = true;
                thread.join();
                throw;
            }
            lock.lock();
        }
        lock.unlock();
        thread.join();
    }
    if (raised)
        throw py::error_already_set(std::move(*raised));
}

GraphLock::Shared::Shared(GraphLock& lock) : lock_(lock)
{
    std::shared_lock held(lock.mutex_, std::defer_lock);
    Await(lock, held);
}

GraphLock::Shared::~Shared()
{
    Forget(lock_);
    lock_.mutex_.unlock_shared();
}

GraphLock::Alone::Alone(GraphLock& lock) : lock_(lock)
{
    std::unique_lock held(lock.mutex_, std::defer_lock);
    Await(lock, held);
}

GraphLock::Alone::~Alone()
{
    Forget(lock_);
    lock_.mutex_.unlock();
}

void ThrowDocumentError(const std::string& file, const host::Diagnostics& diagnostics)
{
    py::list list;
    std::string text;
    for (const host::Diagnostic& diagnostic : diagnostics.All())
    {
        list.append(DiagnosticOf(file, diagnostic));
        if (!diagnostic.isWarning && text.empty())
            text = LineOf(file, diagnostic);
    }
    if (diagnostics.FaultCount() > 1)
        text += fmt::format(" (and {} more)", diagnostics.FaultCount() - 1);
    Raise(Attribute("velto.errors", "DocumentError")(text, list));
}

void Warn(const std::string& file, const host::Diagnostics& diagnostics)
{
    for (const host::Diagnostic& diagnostic : diagnostics.All())
    {
        if (diagnostic.isWarning)
            TheLines().Add(host::OutputChannel::Message, LineOf(file, diagnostic));
    }
}

void ThrowEvaluationError(const Result& error, const FailedPlace& place)
{
    std::string text(error.Message());
    if (!place.node.empty() && !text.starts_with("nodes."))
        text = fmt::format("nodes.{}: {}", place.node, text);
    if (place.sample >= 0 && place.x < 0)
        text += fmt::format(" (at sample {})", place.sample);
    const auto orNone = [](Int number) { return number < 0 ? py::object(py::none()) : py::object(py::int_(number)); };
    const py::object pixel = place.x < 0 ? py::object(py::none()) : py::object(py::make_tuple(place.x, place.y));
    Raise(Attribute("velto.errors", "EvaluationError")(text, std::string(error.Kind()),
        place.node.empty() ? py::object(py::none()) : py::object(py::str(place.node)), orNone(place.sample), pixel));
}

} // namespace velto::python
