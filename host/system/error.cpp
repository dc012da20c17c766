#include "error.h"

#include "output.h"

#include <fmt/format.h>

#include <fstream>
#include <string>

namespace velto::host
{

namespace
{

// The error that stands in where there is no memory for one. Outlives every reference.
ErrorObject outOfMemory{{kImmortal, nullptr}, "net.velto.error.outofmemory", "Out of memory.", {}};

// One block: the object, then its texts.
ErrorObject* CreateError(const char* kind, UInt kindLength, const char* message, UInt messageLength,
    const SourceLocation* where, Bool appendPlace)
{
    char place[256] = "";
    UInt placeLength = 0;
    const UInt fileLength = std::strlen(where->file);
    if (appendPlace)
    {
        const auto end = fmt::format_to_n(place, sizeof(place) - 1, "{}({})", where->file, where->line);
        placeLength = Min<UInt>(end.size, sizeof(place) - 1);
    }
    void* const memory =
        Allocate(sizeof(ErrorObject) + kindLength + 1 + messageLength + placeLength + 1 + fileLength + 1);
    if (!memory)
    {
        outOfMemory.references.fetch_add(1, std::memory_order_relaxed);
        return &outOfMemory;
    }
    auto* const error = ::new (memory) ErrorObject;
    error->destroy = [](Object* self) { Bound<SystemInterface>().Free(static_cast<ErrorObject*>(self)); };
    char* text = reinterpret_cast<char*>(error + 1);
    const auto append = [&text](const char* from, UInt length) {
        std::memcpy(text, from, length);
        text += length;
    };
    error->kind = text;
    append(kind, kindLength);
    *text++ = '\0';
    error->message = text;
    append(message, messageLength);
    append(place, placeLength);
    *text++ = '\0';
    error->where = {text, where->line};
    append(where->file, fileLength);
    *text = '\0';
    return error;
}

bool IsDebugged()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
    {
        if (line.starts_with("TracerPid:"))
            return line.find_first_of("123456789") != line.npos;
    }
    return false;
}

Bool StopWith(const char* text, const char* argument, UInt argumentLength, const SourceLocation* where)
{
    try
    {
        std::string line(text);
        if (const auto place = line.find('@'); place != line.npos)
            line.replace(place, 1, argument, argumentLength);
        WriteOutput(
            OutputChannel::Stop, LogTarget::Critical, fmt::format("{} [{}({})]", line, where->file, where->line));
        return IsDebugged();
    }
    catch (const std::exception&)
    {
        return false;
    }
}

} // namespace

const ErrorInterface& ErrorService()
{
    static constexpr ErrorInterface service{.Create = {&CreateError}, .Stop = {&StopWith}};
    return service;
}

} // namespace velto::host
