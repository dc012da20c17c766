// What the host says to its user while nodes run: log lines, render messages and "Stop: " diagnostics.
#pragma once

#include "velto/logger.h"

#include <functional>
#include <string_view>

namespace velto::host
{

enum class OutputChannel
{
    Log,
    Message,
    Stop,
};

// [any thread] Receives every line. Lines of many threads arrive one at a time.
using OutputHandler = std::function<void(OutputChannel channel, LogTarget target, std::string_view line)>;

// Replaces the handler and returns the one before it. An empty handler restores the default, which writes to stderr.
OutputHandler SetOutputHandler(OutputHandler handler);

void WriteOutput(OutputChannel channel, LogTarget target, std::string_view line);

// While this lives, the output of this thread is dropped, except for render messages, which always appear once.
class OutputSilence
{
public:
    OutputSilence();
    ~OutputSilence();
    OutputSilence(const OutputSilence&) = delete;
    OutputSilence& operator=(const OutputSilence&) = delete;
};

const LoggerInterface& LoggerService();

} // namespace velto::host
