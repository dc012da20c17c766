// The document that is edited: its text, and what happens to its file meanwhile.
#pragma once

#include "host/host.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace velto::editor
{

class DocumentFile
{
public:
    struct State
    {
        std::string text;
        UInt revision = 1; // counts what the file has held
    };

    enum class Saved
    {
        Yes,
        Conflict, // the file has changed since that revision
        Failed,
    };

    ~DocumentFile();

    // Reads the file, which need not be there, and watches it from now on. False and a diagnostic when there is one
    // that cannot be read.
    bool Open(const std::string& path, std::string_view textOfNew, host::Diagnostics& diagnostics);

    const std::string& Path() const { return path_; }
    bool IsNew() const { return isNew_; }

    // [any thread]
    State Current() const;

    // [any thread] Replaces the file, all of it or, on error, nothing. `state` is what the file holds afterwards.
    Saved Save(const std::string& text, UInt revision, bool force, State& state, std::string& error);

    // [any thread] Waits until the file holds something else than at that revision. False after `seconds`, or when it
    // is closed.
    bool WaitForChange(UInt revision, double seconds, State& state) const;

    // Wakes all who wait.
    void Close();

private:
    void Watch();
    void TakeChange();

    std::string path_;
    bool isNew_ = false;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    State state_;
    bool isClosed_ = false;
    int watch_ = -1;
    int wake_ = -1;
    std::thread watcher_;
};

} // namespace velto::editor
