// Writes a string to the log and passes it on.
#include "text.h"
#include "velto/logger.h"
#include "velto/node.h"

namespace velto::pattern
{

static constexpr Int32 kUserLine = 1; // what kind of line it is, for the logger

static void Print(In<"string", String> string, Optional<"passthrough", String> passthrough)
{
    if (Length(*string) == 0)
        return;
    const SourceLocation here = SourceLocation::Current();
    Bound<LoggerInterface>()
        .Write(kDefaultLogger, static_cast<Int32>(LogTarget::Default), string->Get(), &here, kUserLine)
        .Ignore();
    passthrough = *string;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.string.print", Print, .hasSideEffect = true);

} // namespace velto::pattern
