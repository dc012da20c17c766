// Lines for the user.
#pragma once

#include "velto/string.h"

namespace velto
{

// Where a line goes; flags that can be joined.
enum class LogTarget : Int32
{
    Diagnostic = 1,
    Warning = 2,
    Critical = 4,
    Default = 8,
};

struct LoggerInterface
{
    static constexpr Id kId{"net.velto.interface.logger"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [any thread] Writes `text` to the logger of that name; unresolved when there is none.
    VELTO_METHOD(Write,
        Result(const Id& logger, Int32 targets, const StringObject* text, const SourceLocation* where, Int32 meta));
    // [any thread] The same for plain bytes and the default logger; never fails.
    VELTO_METHOD(WriteBytes, void(Int32 targets, const char* bytes, UInt count));
};
VELTO_USED_BY_INCLUDERS("velto/logger.h", LoggerInterface);

inline constexpr Id kDefaultLogger{"net.velto.core.logger.default"};

inline void Log(LogTarget target, std::string_view text)
{
    Bound<LoggerInterface>().WriteBytes(static_cast<Int32>(target), text.data(), text.size());
}

} // namespace velto
