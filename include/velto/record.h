// The head that all records of a module share, and how a translation unit says what it needs.
#pragma once

#include "velto/id.h"

namespace velto
{

struct ModuleRecord;

enum class RecordKind : Int32
{
    None = 0,
    VirtualInterface = 1,
    ReferenceClass = 2,
    InterfaceBinding = 3,
    Declaration = 4,
    ComponentReference = 5,
    ClassReference = 6,
    TranslationUnit = 7,
    Module = 8,
    Label = 10,
    RegistryReference = 11,
    Step = 13,
};

namespace record_flags
{
inline constexpr UInt32 kPublished = 0x80;
inline constexpr UInt32 kRegisterUnit = 0x100;
inline constexpr UInt32 kNoConfiguration = 0x2000; // on a module: configuration values are not handed to the host
inline constexpr UInt32 kGeneratedUnit = 0x2000000;
inline constexpr UInt32 kForbidden = 0x98005E; // unless kAnyFlags
inline constexpr UInt32 kAnyFlags = 0x8000;
inline constexpr UInt32 kMayBeNameless = 0x4080;
} // namespace record_flags

// The head of every record.
struct Record
{
    RecordKind kind = RecordKind::None;
    Id id;
    Record* owner = nullptr; // the translation unit, or the module of a translation unit
    void* link = nullptr;    // the host's
    UInt32 flags = 0;
    Record* next = nullptr; // in the owner's chain

    constexpr Record() = default;
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    // Makes the head valid, once. Traps on what only a faulty build can ask for.
    void Construct(RecordKind newKind, const Id& newId, Record* newOwner, UInt32 newFlags)
    {
        const bool constructed = kind != RecordKind::None || owner || link;
        const bool forbidden = (newFlags & record_flags::kForbidden) != 0 && (newFlags & record_flags::kAnyFlags) == 0;
        const bool nameless = newOwner && newId.IsEmpty() && (newFlags & record_flags::kMayBeNameless) == 0;
        if (constructed || forbidden || nameless)
            __builtin_trap();
        kind = newKind;
        id = newId;
        owner = newOwner;
        flags = newFlags;
    }
};

// That a translation unit needs another record first: by address, with the header that declares it as a label, or by
// name, `.label`, for the label's record.
struct DependencyRecord
{
    const char* header = nullptr;
    std::uint8_t flags = 0;
    Record* target = nullptr;
    Id name;
    DependencyRecord* next = nullptr;
};

struct InterfaceBindingRecord : Record
{
    Id interfaceId;
    void (**slots)() = nullptr;
    void (*const* shadow)() = nullptr; // what the slots hold while they are not bound
    const char* methodNames = nullptr;
    UInt32 methodCount = 0;
    // Fills the slots from a table of functions in the order of the names.
    void (*binder)(InterfaceBindingRecord* self, void (*const* functions)()) = nullptr;
    ModuleRecord* framework = nullptr;
};

static_assert(sizeof(Record) == 56 && sizeof(DependencyRecord) == 48 && sizeof(InterfaceBindingRecord) == 120);

// This library's binding of an interface.
template <class Interface>
inline constinit InterfaceBindingRecord binding{};

} // namespace velto

// Follows an interface: the translation units of a module that include its header, `header`, depend on its
// binding. The host has no such units.
#ifdef VELTO_HOST
#define VELTO_USED_BY_INCLUDERS(header, Interface) static_assert(true)
#else
#define VELTO_USED_BY_INCLUDERS(header, Interface)                                                                     \
    static ::velto::UsedInterface uses##Interface(::velto::usedInterfaces, header, ::velto::binding<Interface>)

namespace velto
{

namespace
{
// Of this translation unit, which takes them over.
[[maybe_unused]] constinit DependencyRecord* usedInterfaces = nullptr;
} // namespace

struct UsedInterface : DependencyRecord
{
    UsedInterface(DependencyRecord*& chain, const char* declaringHeader, Record& used)
    {
        header = declaringHeader;
        target = &used;
        next = chain;
        chain = this;
    }
};

} // namespace velto
#endif
