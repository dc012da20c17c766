// How an operation says that it failed, and why.
#pragma once

#include "velto/id.h"
#include "velto/object.h"

namespace velto
{

// The kinds of error that a module makes itself; a host may add its own.
namespace error
{
inline constexpr Id kOutOfMemory{"net.velto.error.outofmemory"};
inline constexpr Id kNullptr{"net.velto.error.nullptr"};
inline constexpr Id kIllegalArgument{"net.velto.error.illegalargument"};
inline constexpr Id kIllegalState{"net.velto.error.illegalstate"};
inline constexpr Id kFunctionNotImplemented{"net.velto.error.functionnotimplemented"};
inline constexpr Id kUnresolved{"net.velto.error.unresolved"};
} // namespace error

struct SourceLocation
{
    const char* file = "";
    Int32 line = 0;

    static constexpr SourceLocation Current(const char* file = __builtin_FILE(), Int32 line = __builtin_LINE())
    {
        return {file, line};
    }
};

// What went wrong. Made by the host (see `ErrorInterface`), which owns the texts.
struct ErrorObject : Object
{
    const char* kind = "";
    const char* message = "";
    SourceLocation where;
};

// One word: null is success, anything else a shared error. An error is made once, where it happens, and passed up.
class [[nodiscard]] Result
{
public:
    constexpr Result() = default;
    static Result Adopt(ErrorObject* error) { return Result(Ref<ErrorObject>::Adopt(error)); }
    static Result Share(ErrorObject* error) { return Result(Ref<ErrorObject>::Share(error)); }

    constexpr bool IsOk() const { return !error_; }
    constexpr bool IsError() const { return static_cast<bool>(error_); }
    constexpr const ErrorObject* Error() const { return error_.Get(); }
    std::string_view Kind() const { return error_ ? error_->kind : std::string_view(); }
    std::string_view Message() const { return error_ ? error_->message : std::string_view(); }

    // States that the result is ignored on purpose.
    void Ignore() const {}

private:
    constexpr explicit Result(Ref<ErrorObject> error) : error_(std::move(error)) {}

    Ref<ErrorObject> error_;
};

static_assert(sizeof(Result) == 8);

// [any thread] Makes an error of `kind` with a copy of `message`. Never fails: without memory it is out of memory.
Result MakeError(const Id& kind, std::string_view message, SourceLocation where = SourceLocation::Current());

// The same with the place of the error at the end of its text.
Result MakeLocatedError(const Id& kind, std::string_view message, SourceLocation where = SourceLocation::Current());

Result OutOfMemory(SourceLocation where = SourceLocation::Current());
Result NullptrError(SourceLocation where = SourceLocation::Current());

} // namespace velto

// Passes an error up unchanged.
#define VELTO_TRY(...)                                                                                                 \
    do                                                                                                                 \
    {                                                                                                                  \
        if (::velto::Result veltoTried = (__VA_ARGS__); veltoTried.IsError())                                          \
            return veltoTried;                                                                                         \
    }                                                                                                                  \
    while (false)

// A failed condition becomes an error that names the condition as written, or as `text`.
#define VELTO_CHECK_AS(kind, prefix, condition, text)                                                                  \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!(condition)) [[unlikely]]                                                                                 \
            return ::velto::MakeLocatedError(kind, prefix ": Condition " text " not fulfilled. ");                     \
    }                                                                                                                  \
    while (false)

#define VELTO_CHECK_STATE_AS(condition, text)                                                                          \
    VELTO_CHECK_AS(::velto::error::kIllegalState, "Illegal state", condition, text)
#define VELTO_CHECK_STATE(condition) VELTO_CHECK_STATE_AS(condition, #condition)

#define VELTO_CHECK_ARGUMENT_AS(condition, text)                                                                       \
    VELTO_CHECK_AS(::velto::error::kIllegalArgument, "Illegal argument", condition, text)
#define VELTO_CHECK_ARGUMENT(condition) VELTO_CHECK_ARGUMENT_AS(condition, #condition)
