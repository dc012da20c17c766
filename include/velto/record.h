// The records that a module consists of at load. Static construction links them; the host walks them and calls what is
// in them. No constructor here calls a service of the host.
#pragma once

#include "velto/configuration.h"
#include "velto/registry.h"
#include "velto/url.h"

namespace velto
{

struct ModuleRecord;
struct TranslationUnitRecord;

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
// name,
// `.label`, for a kind 10 record.
struct DependencyRecord
{
    const char* header = nullptr;
    std::uint8_t flags = 0;
    Record* target = nullptr;
    Id name;
    DependencyRecord* next = nullptr;
};

struct TranslationUnitRecord : Record
{
    ModuleRecord* module = nullptr;
    Record* first = nullptr;
    Record* last = nullptr;
    DependencyRecord* dependencies = nullptr;
    Int sequence[3] = {-1, -2, -1}; // the host's

    constexpr TranslationUnitRecord() = default;
    // `path` is the source's; what stands behind the last slash and before the dot becomes the record's name.
    TranslationUnitRecord(const char* path, UInt32 unitFlags, ModuleRecord& unitModule);

    void Add(Record& record)
    {
        (last ? last->next : first) = &record;
        last = &record;
    }
    void Add(DependencyRecord& dependency)
    {
        dependency.next = dependencies;
        dependencies = &dependency;
    }
};

// Four words by which a module offers a function to whoever looks for it by name (see reflection.h).
struct ReflectionProvider
{
    UInt reserved[2] = {};
    Result (*provide)(
        void* receiver, Result (*receive)(void* receiver, const struct FunctionDescriptor* function)) = nullptr;
    ReflectionProvider* next = nullptr;
};

struct ModuleExport;

struct ModuleRecord : Record
{
    TranslationUnitRecord* units = nullptr;
    TranslationUnitRecord* lastUnit = nullptr;
    ReflectionProvider* providers = nullptr;
    DataTypeRecord* const* dataTypes = nullptr; // where the chain's head stands; null: it has none of its own
    const Id* required = nullptr;
    UInt32 requiredCount = 0;
    ModuleRecord* nextModule = nullptr;
    ModuleExport* module = nullptr;
    Bool constructed = false;

    // Chains the record to the export; a second call changes nothing.
    void ConstructModule(
        const Id& name, UInt32 moduleFlags, const Id* requiredModules, UInt32 count, ModuleExport& owner);

    void Add(TranslationUnitRecord& unit)
    {
        if (lastUnit)
            lastUnit->next = &unit;
        else
            units = &unit;
        lastUnit = &unit;
    }
};

// The one symbol of a module.
struct ModuleExport
{
    static constexpr Int kStamp = 21014;

    Int stamp = kStamp;
    ModuleRecord* moduleRecords = nullptr;
    // Written by the host.
    Id moduleId;
    Ref<UrlObject> moduleUrl;
    // [any thread, once set] The named thing of a registry, bound on demand: an `InternedId*`, a `DataType*`; or null.
    void* (*initializer)(const Id* registry, const Id* name) = nullptr;
};

static_assert(offsetof(ModuleExport, moduleRecords) == 8 && offsetof(ModuleExport, moduleId) == 16);
static_assert(offsetof(ModuleExport, moduleUrl) == 32 && offsetof(ModuleExport, initializer) == 40);

inline void ModuleRecord::ConstructModule(
    const Id& name, UInt32 moduleFlags, const Id* requiredModules, UInt32 count, ModuleExport& moduleExport)
{
    if (constructed)
        return;
    constructed = true;
    Construct(RecordKind::Module, name, nullptr, moduleFlags);
    required = requiredModules;
    requiredCount = count;
    module = &moduleExport;
    nextModule = moduleExport.moduleRecords;
    moduleExport.moduleRecords = this;
}

inline TranslationUnitRecord::TranslationUnitRecord(const char* path, UInt32 unitFlags, ModuleRecord& unitModule)
{
    std::string_view name(path);
    if (const auto slash = name.find_last_of("/\\"); slash != name.npos)
        name.remove_prefix(slash + 1);
    name = name.substr(0, name.find('.'));
    Construct(RecordKind::TranslationUnit, Id::OverStatic(name), &unitModule, unitFlags);
    module = &unitModule;
    unitModule.Add(*this);
}

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

// This library's binding of an interface.
template <class Interface>
inline constinit InterfaceBindingRecord binding{};

// A host framework that this library calls: a module record with the bindings of its interfaces.
template <FixedString Name, class... Interfaces>
class Framework
{
public:
    explicit Framework(ModuleExport& moduleExport)
    {
        static constexpr Id name = Id::OverStatic(Name.View());
        static_assert(((Interfaces::kFramework.View() == Name.View()) && ...));
        module_.ConstructModule(name, 0, nullptr, 0, moduleExport);
        unit_.Construct(RecordKind::TranslationUnit, name, &module_, 0);
        unit_.module = &module_;
        module_.Add(unit_);
        (Bind<Interfaces>(), ...);
    }

private:
    template <class Interface>
    void Bind()
    {
        InterfaceBindingRecord& record = binding<Interface>;
        record.Construct(RecordKind::InterfaceBinding, Interface::kId, &unit_, 0);
        record.interfaceId = Interface::kId;
        record.slots = reinterpret_cast<void (**)()>(&slots<Interface>);
        record.shadow = reinterpret_cast<void (*const*)()>(&kUnboundSlots<Interface>);
        record.methodNames = kMethodNames<Interface>.data();
        record.methodCount = kSlotCount<Interface>;
        record.binder = [](InterfaceBindingRecord* self, void (*const* functions)()) {
            std::memcpy(self->slots, functions, self->methodCount * sizeof(*functions));
        };
        record.framework = &module_;
        unit_.Add(record);
    }

    ModuleRecord module_;
    TranslationUnitRecord unit_;
};

// A named object. A published one is made and put in a registry; an imported one has a slot that the host fills with
// what `registry` holds under the record's name.
struct DeclarationRecord : Record
{
    Data value;
    void* imported = nullptr;
    Result (*create)(DeclarationRecord* self, Data* value, Id* entry) = nullptr;
    Result (*registerEntry)(DeclarationRecord* self) = nullptr;
    Result (*unregisterEntry)(DeclarationRecord* self) = nullptr;
    Id registry;
    Id entry;

    constexpr DeclarationRecord() = default;

    void ConstructPublished(TranslationUnitRecord& unit, const Id& name, UInt32 declarationFlags, const Id& target,
        Result (*createFunction)(DeclarationRecord*, Data*, Id*))
    {
        Construct(RecordKind::Declaration, name, &unit, declarationFlags);
        registry = target;
        create = createFunction;
        registerEntry = &RegisterEntry;
        unregisterEntry = &UnregisterEntry;
        unit.Add(*this);
    }

private:
    static Result RegisterEntry(DeclarationRecord* self)
    {
        self->entry = self->id;
        Data made;
        VELTO_TRY(self->create(self, &made, &self->entry));
        VELTO_CHECK_ARGUMENT(made.Type());
        self->value = std::move(made);
        Result inserted = Bound<RegistryInterface>().InsertEntry(self->registry, self->entry, self->value);
        if (inserted.IsError())
            self->value.Reset();
        return inserted;
    }

    static Result UnregisterEntry(DeclarationRecord* self)
    {
        Result erased = Bound<RegistryInterface>().EraseEntry(self->registry, self->entry);
        self->value.Reset();
        self->entry = Id();
        return erased;
    }
};

struct LabelRecord : Record
{
    LabelRecord(TranslationUnitRecord& unit, const Id& name)
    {
        Construct(RecordKind::Label, name, &unit, 0);
        unit.Add(*this);
    }
};

// Code to run when the module is loaded, and to undo it.
struct StepRecord : Record
{
    Result (*initialize)() = nullptr;
    void (*free)() = nullptr;

    StepRecord(TranslationUnitRecord& unit, const Id& name, Result (*initializeFunction)(), void (*freeFunction)())
        : initialize(initializeFunction), free(freeFunction)
    {
        Construct(RecordKind::Step, name, &unit, 0);
        unit.Add(*this);
    }
};

// A name that nodes compare enumeration ports with; the host fills in its unique pointer.
struct InternedName : DeclarationRecord
{
    InternedId value;

    InternedName(TranslationUnitRecord& unit, const Id& name)
    {
        Construct(RecordKind::Declaration, name, &unit, 0);
        registry = registry::kInternedIds;
        imported = &value;
        unit.Add(*this);
    }
    operator const InternedId&() const { return value; }
};

// A data type of the module that others look up by its id.
template <class T>
struct DataTypeDeclaration : DeclarationRecord
{
    explicit DataTypeDeclaration(TranslationUnitRecord& unit)
    {
        ConstructPublished(
            unit, DataTypeTraits<T>::kId, 0, registry::kDataTypes, [](DeclarationRecord*, Data* value, Id*) -> Result {
                const DataType* type = nullptr;
                VELTO_TRY(GetDataType<T>(type));
                return value->Set(Ref<const DataType>::Share(type));
            });
    }
};

// Defined by the library's VELTO_MODULE.
extern ModuleRecord thisModule;

} // namespace velto

// Every source of a module that holds records names itself once, ahead of them. Sources of nodes do it by including
// node.h.
#define VELTO_TRANSLATION_UNIT(flags)                                                                                  \
    static ::velto::TranslationUnitRecord thisUnit(__BASE_FILE__, flags, ::velto::thisModule)

// Declares `name` as the interned id of `text`.
#define VELTO_INTERNED_ID(name, text) static const ::velto::InternedName name(thisUnit, text)

#define VELTO_PUBLISH_DATA_TYPE(...)                                                                                   \
    static ::velto::DataTypeDeclaration<__VA_ARGS__> VELTO_UNIQUE_NAME(publishedDataType)(thisUnit)

// The unit's records are walked after those of the unit that holds the label.
#define VELTO_DEPENDS_ON_LABEL(label)                                                                                  \
    static ::velto::DependencyRecord VELTO_UNIQUE_NAME(dependency) = {nullptr, 0, nullptr, "." label, nullptr};        \
    static const bool VELTO_UNIQUE_NAME(dependencyAdded) = (thisUnit.Add(VELTO_UNIQUE_NAME(dependency)), true)

// The unit's records are walked after `target`, which `header` declares.
#define VELTO_DEPENDS_ON(header, target)                                                                               \
    static ::velto::DependencyRecord VELTO_UNIQUE_NAME(dependency) = {header, 0, &target, {}, nullptr};                \
    static const bool VELTO_UNIQUE_NAME(dependencyAdded) = (thisUnit.Add(VELTO_UNIQUE_NAME(dependency)), true)

#define VELTO_CONCAT_NAMES(a, b) a##b
#define VELTO_CONCAT(a, b) VELTO_CONCAT_NAMES(a, b)
#define VELTO_UNIQUE_NAME(name) VELTO_CONCAT(name, __LINE__)
