// The records that a module consists of at load. Static construction links them; the host walks them and calls what is
// in them. No constructor here calls a service of the host.
#pragma once

#include "velto/configuration.h"
#include "velto/registry.h"
#include "velto/url.h"

#include <algorithm>

namespace velto
{

// Host frameworks: a host has all of them, a module requires them in this order.
inline constexpr Id kFrameworks[] = {
    "net.velto.core.framework",
    "net.velto.corenodes.framework",
    "net.velto.image.framework",
    "net.velto.math.framework",
    "net.velto.velto.framework",
    "net.velto.misc.framework",
    "net.velto.nodes.framework",
    "net.velto.render.framework",
};

struct TranslationUnitRecord : Record
{
    ModuleRecord* module = nullptr;
    Record* first = nullptr;
    Record* last = nullptr;
    DependencyRecord* dependencies = nullptr;
    Int sequence[3] = {-1, -2, -1}; // the host's

    constexpr TranslationUnitRecord() = default;
    TranslationUnitRecord(
        const Id& name, UInt32 unitFlags, ModuleRecord& unitModule, DependencyRecord* needed = nullptr);

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

// Four words by which a module offers a function that is looked up by name (see reflection.h).
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
    ReflectionProvider* providers = nullptr;
    DataTypeRecord* dataTypes = nullptr;
    const Id* required = nullptr;
    UInt32 requiredCount = 0;
    ModuleRecord* nextModule = nullptr;
    ModuleExport* module = nullptr;
    // After the part that the host reads.
    TranslationUnitRecord* lastUnit = nullptr;
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
    // [any thread, once set] The value of a registry's entry, borrowed; null when there is none.
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

inline TranslationUnitRecord::TranslationUnitRecord(
    const Id& name, UInt32 unitFlags, ModuleRecord& unitModule, DependencyRecord* needed)
{
    Construct(RecordKind::TranslationUnit, name, &unitModule, unitFlags);
    module = &unitModule;
    dependencies = needed;
    unitModule.Add(*this);
}

// The part of a path after the last slash and before the dot; NUL-terminated.
template <std::size_t N>
constexpr std::array<char, N> StemOf(const char (&path)[N])
{
    std::string_view stem(path);
    if (const auto slash = stem.find_last_of("/\\"); slash != stem.npos)
        stem.remove_prefix(slash + 1);
    stem = stem.substr(0, stem.find('.'));
    std::array<char, N> text{};
    std::copy(stem.begin(), stem.end(), text.begin());
    return text;
}

// A named object. A published one is made and put in a registry; an imported one has a slot that the host fills with
// what `registry` holds under the record's name.
struct DeclarationRecord : Record
{
    Data value;
    Result (*create)(DeclarationRecord* self, Data* value, Id* entry) = nullptr;
    Result (*registerEntry)(DeclarationRecord* self) = nullptr;
    Result (*unregisterEntry)(DeclarationRecord* self) = nullptr;
    Id registry;
    Id entry;
    void* imported = nullptr;

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

// An interface of objects of the host that have functions of their own, as the module knows and calls them. A host
// whose objects have other functions refuses the module.
struct VirtualInterfaceRecord : Record
{
    Id interfaceId;
    const char* typeName = nullptr;
    const VirtualInterfaceRecord* base = nullptr;
    const char* methodNames = nullptr; // as those of a binding
    UInt32 interfaceFlags = 0;
    UInt32 methodCount = 0;

    template <class Methods>
    VirtualInterfaceRecord(TranslationUnitRecord& unit, const Id& name, const char* type, const Methods&,
        const VirtualInterfaceRecord* baseInterface = nullptr)
        : interfaceId(name), typeName(type), base(baseInterface), methodNames(kMethodNames<Methods>.data()),
          methodCount(kSlotCount<Methods>)
    {
        Construct(RecordKind::VirtualInterface, name, &unit, 0);
        unit.Add(*this);
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
class InternedName : public DeclarationRecord
{
public:
    InternedName(TranslationUnitRecord& unit, const Id& name)
    {
        Construct(RecordKind::Declaration, name, &unit, 0);
        registry = registry::kInternedIds;
        imported = &interned_;
        unit.Add(*this);
    }
    operator const InternedId&() const { return interned_; }

private:
    mutable InternedId interned_; // names are constants but for this
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
    static constexpr auto thisUnitName = ::velto::StemOf(__BASE_FILE__);                                               \
    static constexpr ::velto::Id thisUnitId = ::velto::Id::OverStatic(thisUnitName.data());                            \
    static ::velto::TranslationUnitRecord thisUnit(thisUnitId, flags, ::velto::thisModule, ::velto::usedInterfaces)

// Declares `name` as the interned id of `text`.
#ifdef VELTO_BITCODE
#define VELTO_INTERNED_ID(name, text) extern const ::velto::InternedId name __asm__("velto.interned:" text)
#else
#define VELTO_INTERNED_ID(name, text) static const ::velto::InternedName name(thisUnit, text)
#endif

#define VELTO_PUBLISH_DATA_TYPE(...)                                                                                   \
    static ::velto::DataTypeDeclaration<__VA_ARGS__> VELTO_UNIQUE_NAME(publishedDataType)(thisUnit)

// The unit's records are walked after those of the unit that holds the label's record.
#define VELTO_DEPENDS_ON_LABEL(record, label)                                                                          \
    static ::velto::DependencyRecord VELTO_UNIQUE_NAME(dependency) = {nullptr, 0, &record, "." label, nullptr};        \
    static const bool VELTO_UNIQUE_NAME(dependencyAdded) = (thisUnit.Add(VELTO_UNIQUE_NAME(dependency)), true)

#define VELTO_CONCAT_NAMES(a, b) a##b
#define VELTO_CONCAT(a, b) VELTO_CONCAT_NAMES(a, b)
#define VELTO_UNIQUE_NAME(name) VELTO_CONCAT(name, __LINE__)
