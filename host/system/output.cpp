#include "output.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <mutex>

namespace velto::host
{

namespace
{

std::mutex outputMutex;
OutputHandler outputHandler;
thread_local int silences = 0;

spdlog::logger& Stderr()
{
    static const std::shared_ptr<spdlog::logger> logger = [] {
        auto made = std::make_shared<spdlog::logger>("velto", std::make_shared<spdlog::sinks::stderr_sink_st>());
        made->set_pattern("%v");
        return made;
    }();
    return *logger;
}

Result Write(const Id& logger, Int32 targets, const StringObject* text, const SourceLocation*, Int32)
{
    if (!(logger == kDefaultLogger))
        return MakeError(error::kUnresolved, "There is no such logger.");
    UInt count = 0;
    const char* const bytes = Bound<StringInterface>().GetBytes(text, &count);
    WriteOutput(OutputChannel::Log, static_cast<LogTarget>(targets), {bytes, count});
    return {};
}

void WriteBytes(Int32 targets, const char* bytes, UInt count)
{
    WriteOutput(OutputChannel::Log, static_cast<LogTarget>(targets), {bytes, count});
}

} // namespace

OutputHandler SetOutputHandler(OutputHandler handler)
{
    const std::lock_guard lock(outputMutex);
    std::swap(outputHandler, handler);
    return handler;
}

void WriteOutput(OutputChannel channel, LogTarget target, std::string_view line)
{
    if (silences > 0 && channel != OutputChannel::Message)
        return;
    try
    {
        const std::lock_guard lock(outputMutex);
        if (outputHandler)
            outputHandler(channel, target, line);
        else
            Stderr().info("{}{}", channel == OutputChannel::Message ? "velto: warning: " : "", line);
    }
    catch (const std::exception&)
    {
        // A line that cannot be written is lost. Its writer must not fail for that.
    }
}

OutputSilence::OutputSilence()
{
    ++silences;
}

OutputSilence::~OutputSilence()
{
    --silences;
}

const LoggerInterface& LoggerService()
{
    static constexpr LoggerInterface service{.Write = {&Write}, .WriteBytes = {&WriteBytes}};
    return service;
}

} // namespace velto::host
