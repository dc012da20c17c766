// Memory, errors and the host's last-resort output.
#pragma once

#include "velto/interface.h"

#include <csignal>

namespace velto
{

struct SystemInterface
{
    static constexpr Id kId{"net.velto.interface.system"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [any thread] `size` bytes aligned to 16, or null. The caller owns them.
    VELTO_METHOD(Alloc, void*(UInt size, const SourceLocation* where));
    // [any thread] Grows or shrinks `memory` (null: allocates). On null `memory` is left as it was.
    VELTO_METHOD(Realloc, void*(void* memory, UInt size, const SourceLocation* where));
    // [any thread] Frees `memory`; null does nothing.
    VELTO_METHOD(Free, void(void* memory));
    // [any thread] Runs `destructor` on `memory`, then frees it; null does nothing.
    VELTO_METHOD(FreeWithDestructorI, void(void* memory, void (*destructor)(void*)));
};
VELTO_USED_BY_INCLUDERS("velto/system.h", SystemInterface);

struct ErrorInterface
{
    static constexpr Id kId{"net.velto.interface.error"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [any thread] An error with copies of its texts; the caller owns the reference. Never null: without memory it is
    // the host's one out-of-memory error. `appendPlace` puts file and line at the end of the text.
    VELTO_METHOD(Create, ErrorObject*(const char* kind, UInt kindLength, const char* message, UInt messageLength,
                             const SourceLocation* where, Bool appendPlace));
    // [any thread] Writes a line that begins "Stop: " to the host's output, `argument` standing in the place of `@`.
    // True: a debugger is attached.
    VELTO_METHOD(Stop, Bool(const char* text, const char* argument, UInt argumentLength, const SourceLocation* where));
};
VELTO_USED_BY_INCLUDERS("velto/system.h", ErrorInterface);

inline void* Allocate(UInt size, SourceLocation where = SourceLocation::Current())
{
    return Bound<SystemInterface>().Alloc(size, &where);
}

// Makes a `T` on the host's allocator; null without memory.
template <class T, class... A>
T* New(A&&... arguments)
{
    void* const memory = Allocate(sizeof(T));
    return memory ? ::new (memory) T{std::forward<A>(arguments)...} : nullptr;
}

template <class T>
void Delete(T* object)
{
    Bound<SystemInterface>().FreeWithDestructorI(object, [](void* memory) { static_cast<T*>(memory)->~T(); });
}

// A new shared object, or null without memory.
template <class T>
Ref<T> MakeShared()
{
    T* const object = New<T>();
    if (object)
        object->destroy = [](Object* self) { Delete(static_cast<T*>(self)); };
    return Ref<T>::Adopt(object);
}

inline Result MakeError(const Id& kind, std::string_view message, SourceLocation where)
{
    return Result::Adopt(
        Bound<ErrorInterface>().Create(kind.CString(), kind.Length(), message.data(), message.size(), &where, false));
}

inline Result MakeLocatedError(const Id& kind, std::string_view message, SourceLocation where)
{
    return Result::Adopt(
        Bound<ErrorInterface>().Create(kind.CString(), kind.Length(), message.data(), message.size(), &where, true));
}

inline Result OutOfMemory(SourceLocation where)
{
    return MakeError(error::kOutOfMemory, "Out of memory.", where);
}

inline Result NullptrError(SourceLocation where)
{
    return MakeError(error::kNullptr, "Nothing there to call or to read.", where);
}

inline constinit Bool g_enableDebugBreak = true;

// Reports a state that should not be, and breaks into a debugger if there is one; then things go on.
inline void Stop(const char* text, std::string_view argument = {}, SourceLocation where = SourceLocation::Current())
{
    const Bool isDebugged = Bound<ErrorInterface>().Stop(text, argument.data(), argument.size(), &where);
    if (isDebugged && g_enableDebugBreak)
        std::raise(SIGTRAP);
}

namespace detail
{
struct OwnedText
{
    std::atomic<Int> references{1};
};
} // namespace detail

inline Result Id::Create(std::string_view text, Id& id)
{
    VELTO_CHECK_ARGUMENT(text.size() <= kMaxLength);
    if (text.empty())
    {
        id = Id();
        return {};
    }
    void* const memory = Allocate(sizeof(detail::OwnedText) + text.size() + 1);
    if (!memory)
        return OutOfMemory();
    char* const copy = reinterpret_cast<char*>(::new (memory) detail::OwnedText + 1);
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    Id made{std::string_view(copy, text.size())};
    made.word_ |= kOwnedBit;
    id = std::move(made);
    return {};
}

inline void Id::AddReference() const
{
    auto* const head = reinterpret_cast<detail::OwnedText*>(const_cast<char*>(text_)) - 1;
    head->references.fetch_add(1, std::memory_order_relaxed);
}

inline void Id::Release()
{
    auto* const head = reinterpret_cast<detail::OwnedText*>(const_cast<char*>(text_)) - 1;
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): an owned text is never null
    if (head->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        Bound<SystemInterface>().Free(head);
}

} // namespace velto
