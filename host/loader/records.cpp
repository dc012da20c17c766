#include "records.h"

#include <fmt/format.h>
#include <link.h>

#include <algorithm>
#include <unordered_set>

namespace velto::host
{

namespace
{

// More than any module has.
constexpr std::size_t kMostRecords = 1'000'000;
constexpr UInt32 kMostMethods = 1'000;
constexpr UInt32 kMostRequired = 1'000;

bool IsUnitRecord(RecordKind kind)
{
    switch (kind)
    {
    case RecordKind::VirtualInterface:
    case RecordKind::ReferenceClass:
    case RecordKind::InterfaceBinding:
    case RecordKind::Declaration:
    case RecordKind::ComponentReference:
    case RecordKind::ClassReference:
    case RecordKind::Label:
    case RecordKind::RegistryReference:
    case RecordKind::Step:
        return true;
    default:
        return false;
    }
}

class RecordCheck
{
public:
    RecordCheck(const std::string& file, const std::vector<MappedRange>& mapped) : file_(file), mapped_(mapped) {}

    Result Run(const ModuleExport& moduleExport)
    {
        if (!moduleExport.moduleRecords)
            return Refuse("it has no records");
        for (const ModuleRecord* module = moduleExport.moduleRecords; module; module = module->nextModule)
        {
            VELTO_TRY(Enter(module, "a module record"));
            VELTO_TRY(CheckModule(*module, moduleExport));
        }
        // What a dependency points at may stand anywhere in the chains, or be a binding that nobody made a record.
        for (const DependencyRecord* dependency : dependencies_)
        {
            const Record* const target = dependency->target;
            const bool isLoose = target && target->kind == RecordKind::None && !target->owner;
            if (target && !isLoose && !entered_.contains(target))
                return Refuse("a dependency points at a record that is in no chain");
        }
        return {};
    }

private:
    Result Refuse(std::string_view why) const
    {
        return MakeError(error::kIllegalArgument, fmt::format("The records of {} are broken: {}.", file_, why));
    }

    const MappedRange* RangeOf(const void* begin, std::size_t bytes) const
    {
        const auto first = reinterpret_cast<std::uintptr_t>(begin);
        for (const MappedRange& range : mapped_)
        {
            if (first >= range.begin && first <= range.end && bytes <= range.end - first)
                return &range;
        }
        return nullptr;
    }

    template <class T>
    bool IsReadable(const T* object, std::size_t count = 1) const
    {
        return count == 0 ||
               (reinterpret_cast<std::uintptr_t>(object) % alignof(T) == 0 && RangeOf(object, count * sizeof(T)));
    }
    template <class T>
    bool IsWritable(const T* object, std::size_t count = 1) const
    {
        return count == 0 || (IsReadable(object, count) && RangeOf(object, count * sizeof(T))->writable);
    }
    template <class R, class... A>
    bool IsCallable(R (*function)(A...)) const
    {
        const MappedRange* const range = RangeOf(reinterpret_cast<const void*>(function), 1);
        return range && range->executable;
    }

    // A text that ends before its memory does; its length, or -1.
    Int LengthOf(const char* text) const
    {
        const MappedRange* const range = RangeOf(text, 1);
        if (!range)
            return -1;
        const auto room = range->end - reinterpret_cast<std::uintptr_t>(text);
        const std::size_t length = strnlen(text, room);
        return length < room ? static_cast<Int>(length) : -1;
    }
    bool IsText(const char* text) const { return LengthOf(text) >= 0; }

    // An id over a literal, whose word is that of its text.
    bool IsId(const Id& id) const
    {
        if (id.Word() == 0)
            return true;
        const char* const text = id.CString();
        const Int length = id.IsOwned() || !RangeOf(text, id.Length() + 1) ? -1 : LengthOf(text);
        return length == static_cast<Int>(id.Length()) && Id::OverStatic({text, id.Length()}).Word() == id.Word();
    }

    // Once for each record: chains neither loop nor meet.
    template <class T>
    Result Enter(const T* record, const char* what)
    {
        if (!IsWritable(record))
            return Refuse(fmt::format("{} lies outside of the module", what));
        if (entered_.size() >= kMostRecords)
            return Refuse(fmt::format("there are more than {}", kMostRecords));
        if (!entered_.insert(record).second)
            return Refuse(fmt::format("{} stands in a chain twice", what));
        return {};
    }

    Result CheckHead(const Record& record, const Record* owner) const
    {
        if (!IsId(record.id))
            return Refuse("the word of an id is not that of its text");
        if (record.owner != owner)
            return Refuse(fmt::format("{} belongs to another", record.id.View()));
        return {};
    }

    Result CheckModule(const ModuleRecord& module, const ModuleExport& moduleExport)
    {
        VELTO_TRY(CheckHead(module, nullptr));
        if (module.kind != RecordKind::Module || module.module != &moduleExport)
            return Refuse("a module record is of another kind or module");
        if (module.requiredCount > kMostRequired || !IsReadable(module.required, module.requiredCount) ||
            !std::all_of(
                module.required, module.required + module.requiredCount, [&](const Id& id) { return IsId(id); }))
            return Refuse(fmt::format("the required modules of {} cannot be read", module.id.View()));
        for (const ReflectionProvider* provider = module.providers; provider; provider = provider->next)
        {
            VELTO_TRY(Enter(provider, "a provider of functions"));
            if (!IsCallable(provider->provide))
                return Refuse("a provider of functions has none");
        }
        for (const DataTypeRecord* type = module.dataTypes; type; type = type->next)
        {
            VELTO_TRY(Enter(type, "a data type"));
            if (!IsCallable(type->getter))
                return Refuse("a data type has no getter");
        }
        // Nothing is asked of an address before it is checked, as another cast might.
        const auto next = [](const Record* unit) { return reinterpret_cast<const TranslationUnitRecord*>(unit); };
        for (const TranslationUnitRecord* unit = module.units; unit; unit = next(unit->next))
        {
            VELTO_TRY(Enter(unit, "a translation unit"));
            VELTO_TRY(CheckUnit(*unit, module));
        }
        return {};
    }

    Result CheckUnit(const TranslationUnitRecord& unit, const ModuleRecord& module)
    {
        VELTO_TRY(CheckHead(unit, &module));
        if (unit.kind != RecordKind::TranslationUnit)
            return Refuse(fmt::format("{} is no translation unit", unit.id.View()));
        for (const DependencyRecord* dependency = unit.dependencies; dependency; dependency = dependency->next)
        {
            VELTO_TRY(Enter(dependency, "a dependency"));
            if ((dependency->header && !IsText(dependency->header)) || !IsId(dependency->name) ||
                (dependency->target && !IsReadable(dependency->target)))
                return Refuse(fmt::format("a dependency of {} cannot be read", unit.id.View()));
            dependencies_.push_back(dependency);
        }
        for (const Record* record = unit.first; record; record = record->next)
        {
            VELTO_TRY(Enter(record, "a record"));
            VELTO_TRY(CheckHead(*record, &unit));
            if (!IsSound(*record))
                return Refuse(fmt::format("{} of {} is not what its kind, {}, asks for", record->id.View(),
                    unit.id.View(), static_cast<Int32>(record->kind)));
        }
        return {};
    }

    bool IsSound(const Record& record) const
    {
        switch (record.kind)
        {
        case RecordKind::VirtualInterface:
            return IsSoundAs<VirtualInterfaceRecord>(record);
        case RecordKind::InterfaceBinding:
            return IsSoundAs<InterfaceBindingRecord>(record);
        case RecordKind::Declaration:
            return IsSoundAs<DeclarationRecord>(record);
        case RecordKind::Step:
            return IsSoundAs<StepRecord>(record);
        default:
            return IsUnitRecord(record.kind);
        }
    }
    template <class T>
    bool IsSoundAs(const Record& record) const
    {
        const auto* const whole = static_cast<const T*>(&record);
        return IsWritable(whole) && IsSound(*whole);
    }

    bool IsSound(const VirtualInterfaceRecord& record) const
    {
        return IsId(record.interfaceId) && IsText(record.typeName) && AreNames(record.methodNames, record.methodCount);
    }
    bool IsSound(const InterfaceBindingRecord& record) const
    {
        return IsId(record.interfaceId) && AreNames(record.methodNames, record.methodCount) &&
               IsWritable(record.slots, record.methodCount) && IsReadable(record.shadow, record.methodCount) &&
               IsCallable(record.binder);
    }
    bool IsSound(const DeclarationRecord& record) const
    {
        if (!IsId(record.registry))
            return false;
        if (record.imported)
            return IsWritable(static_cast<const InternedId*>(record.imported));
        return IsCallable(record.create) && IsCallable(record.registerEntry) && IsCallable(record.unregisterEntry);
    }
    bool IsSound(const StepRecord& record) const { return IsCallable(record.initialize) && IsCallable(record.free); }

    bool AreNames(const char* names, UInt32 count) const
    {
        for (UInt32 i = 0; i < count; ++i)
        {
            const Int length = LengthOf(names);
            if (length <= 0 || count > kMostMethods)
                return false;
            names += length + 1;
        }
        return true;
    }

    const std::string& file_;
    const std::vector<MappedRange>& mapped_;
    std::unordered_set<const void*> entered_;
    std::vector<const DependencyRecord*> dependencies_;
};

} // namespace

std::vector<MappedRange> MappedLibraries()
{
    std::vector<MappedRange> mapped;
    const auto add = [](dl_phdr_info* library, std::size_t, void* to) {
        for (int i = 0; i < library->dlpi_phnum; ++i)
        {
            const ElfW(Phdr)& part = library->dlpi_phdr[i];
            if (part.p_type != PT_LOAD || (part.p_flags & PF_R) == 0)
                continue;
            const std::uintptr_t begin = library->dlpi_addr + part.p_vaddr;
            static_cast<std::vector<MappedRange>*>(to)->push_back(
                {begin, begin + part.p_memsz, (part.p_flags & PF_W) != 0, (part.p_flags & PF_X) != 0});
        }
        return 0;
    };
    dl_iterate_phdr(add, &mapped);
    return mapped;
}

Result CheckRecords(const std::string& file, const ModuleExport& moduleExport, const std::vector<MappedRange>& mapped)
{
    return RecordCheck(file, mapped).Run(moduleExport);
}

} // namespace velto::host
