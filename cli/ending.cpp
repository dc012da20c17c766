#include "ending.h"

#include "session.h"

#include "host/system/newfile.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <exception>
#include <new>
#include <string_view>
#include <system_error>

namespace velto::cli
{

namespace
{

// Calls only what a signal handler may call.
void Say(std::string_view text)
{
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
}

// Clears the line of a progress bar.
void ClearLine()
{
    if (isatty(STDERR_FILENO) != 0)
        Say("\r\x1b[K");
}

void OnSignal(int signal)
{
    if (!host::RemoveUnfinishedFiles(signal))
        return; // raised again in a moment
    ClearLine();
    Say("velto: error: interrupted\n");
    std::signal(signal, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    raise(signal);
}

void OnTime(int signal)
{
    if (!host::RemoveUnfinishedFiles(signal))
        return;
    ClearLine();
    Say("velto: error: the time limit is over\n");
    _exit(kFailed);
}

[[noreturn]] void OnTermination()
{
    const char* text = "velto: error: ended by an error that nobody expected\n";
    try
    {
        if (std::current_exception())
            std::rethrow_exception(std::current_exception());
    }
    catch (const std::bad_alloc&)
    {
        text = "velto: error: out of memory\n";
    }
    catch (const std::system_error&)
    {
        text = "velto: error: out of memory: no thread can be started\n";
    }
    catch (...)
    {
    }
    host::RemoveUnfinishedFiles(0);
    Say(text);
    _exit(kFailed);
}

} // namespace

void EndBySignals()
{
    std::signal(SIGXFSZ, SIG_IGN); // writing beyond the limit is an error like any other
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
    {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN)
            continue;
        action.sa_handler = &OnSignal;
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
}

void EndAfter(double seconds)
{
    std::signal(SIGALRM, &OnTime);
    itimerval timer = {};
    timer.it_value.tv_sec = static_cast<time_t>(seconds);
    timer.it_value.tv_usec = std::max<suseconds_t>(static_cast<suseconds_t>((seconds - std::floor(seconds)) * 1e6), 1);
    setitimer(ITIMER_REAL, &timer, nullptr);
}

void EndWithoutAbort()
{
    std::set_terminate(&OnTermination);
}

} // namespace velto::cli
