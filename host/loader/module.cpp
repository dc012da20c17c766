#include "module.h"

#include "libraryfile.h"
#include "records.h"
#include "services.h"

#include "host/registry/reflection.h"
#include "host/registry/registry.h"
#include "host/system/configuration.h"
#include "host/system/guard.h"
#include "host/text/interned.h"
#include "host/text/url.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <unordered_map>

namespace velto::host
{

namespace
{

// What the host writes into the link of a record that it has dealt with.
char walkedMark = 0;

Result Refuse(const Id& kind, std::string_view text)
{
    return MakeError(kind, text);
}

void* Initialize(const Id* registry, const Id* name)
{
    const Data* const found = FindEntry(registry->View(), name->View());
    return found ? const_cast<void*>(found->Value()) : nullptr;
}

// Objects of the host have the functions that the module expects, in its order.
Result CheckVirtualInterface(const VirtualInterfaceRecord& record)
{
    const VirtualInterface* const offered = FindVirtualInterface(record.interfaceId.View());
    if (!offered)
        return Refuse(error::kUnresolved,
            fmt::format("The module calls objects of {}, which this host does not have.", record.interfaceId.View()));
    const char* wanted = record.methodNames;
    const char* name = offered->methodNames;
    for (UInt32 i = 0; i < record.methodCount; ++i, wanted += std::strlen(wanted) + 1, name += std::strlen(name) + 1)
    {
        if (i >= offered->methodCount || std::strcmp(wanted, name) != 0)
            return Refuse(
                error::kUnresolved, fmt::format("The module calls {} of objects of {}, which this host's do not have.",
                                        wanted, record.interfaceId.View()));
    }
    return {};
}

} // namespace

Result Module::Load(const std::filesystem::path& file, std::shared_ptr<Module>& module)
{
    Services();
    return Guarded([&]() -> Result {
        const Publisher publisher(std::filesystem::absolute(file).string());
        std::shared_ptr<Module> loading(new Module);
        VELTO_TRY(loading->Open(file));
        VELTO_TRY(loading->BindFrameworks());
        for (const ModuleRecord* record = loading->export_->moduleRecords; record; record = record->nextModule)
            VELTO_TRY(RegisterFunctions(record->providers, loading->functions_));
        VELTO_TRY(loading->WalkUnits());
        module = std::move(loading);
        return {};
    });
}

Module::~Module()
{
    Unload();
}

Result Module::Open(const std::filesystem::path& file)
{
    file_ = std::filesystem::absolute(file);
    if (!std::filesystem::exists(file_))
        return Refuse(error::kUnresolved, fmt::format("There is no module file {}.", file.string()));
    VELTO_TRY(CheckLibraryFile(file_));
    library_ = dlopen(file_.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library_)
        return Refuse(error::kIllegalArgument, fmt::format("{} cannot be loaded: {}", file.string(), dlerror()));
    auto* const found = static_cast<ModuleExport*>(dlsym(library_, "g_velto"));
    if (!found)
        return Refuse(error::kIllegalArgument, fmt::format("{} has no symbol g_velto.", file.string()));
    if (found->stamp != ModuleExport::kStamp)
        return Refuse(error::kIllegalArgument,
            fmt::format("{} has the stamp {}, this host takes {}.", file.string(), found->stamp, ModuleExport::kStamp));
    if (found->initializer)
        return Refuse(error::kIllegalState, fmt::format("{} is loaded already.", file.string()));
    VELTO_TRY(CheckRecords(file.string(), *found, MappedLibraries()));
    export_ = found;
    VELTO_TRY(Id::Create(file_.stem().string(), export_->moduleId));
    VELTO_TRY(MakeUrl(file_.string(), export_->moduleUrl));
    export_->initializer = &Initialize;
    return {};
}

Result Module::BindFrameworks()
{
    for (ModuleRecord* record = export_->moduleRecords; record; record = record->nextModule)
    {
        for (UInt32 i = 0; i < record->requiredCount; ++i)
        {
            if (std::find(std::begin(kFrameworks), std::end(kFrameworks), record->required[i]) == std::end(kFrameworks))
                return Refuse(error::kUnresolved, fmt::format("{} requires {}, which this host does not have.",
                                                      record->id.View(), record->required[i].View()));
        }
        for (Record* unit = record->units; unit; unit = unit->next)
        {
            for (Record* inner = static_cast<TranslationUnitRecord*>(unit)->first; inner; inner = inner->next)
            {
                if (inner->kind == RecordKind::InterfaceBinding)
                    VELTO_TRY(BindInterface(*static_cast<InterfaceBindingRecord*>(inner)));
                if (inner->kind == RecordKind::VirtualInterface)
                    VELTO_TRY(CheckVirtualInterface(*static_cast<VirtualInterfaceRecord*>(inner)));
            }
        }
    }
    return {};
}

Result Module::BindInterface(InterfaceBindingRecord& record)
{
    const Service* const service = FindService(record.interfaceId.View());
    if (!service)
        return Refuse(
            error::kUnresolved, fmt::format("The module calls the interface {}, which this host does not have.",
                                    record.interfaceId.View()));
    std::unordered_map<std::string_view, void (*)()> offered;
    const char* name = service->methodNames;
    for (UInt32 i = 0; i < service->methodCount; ++i, name += std::strlen(name) + 1)
        offered.emplace(name, service->functions[i]);
    std::vector<void (*)()> functions(record.methodCount);
    name = record.methodNames;
    for (UInt32 i = 0; i < record.methodCount; ++i, name += std::strlen(name) + 1)
    {
        const auto found = offered.find(name);
        if (found == offered.end())
            return Refuse(error::kUnresolved,
                fmt::format("The module calls {} of the interface {}, which this host does not have.", name,
                    record.interfaceId.View()));
        functions[i] = found->second;
    }
    record.binder(&record, functions.data());
    record.link = &walkedMark;
    return {};
}

Result Module::WalkUnits()
{
    for (ModuleRecord* record = export_->moduleRecords; record; record = record->nextModule)
    {
        for (Record* unit = record->units; unit; unit = unit->next)
            VELTO_TRY(WalkUnit(*static_cast<TranslationUnitRecord*>(unit)));
    }
    return {};
}

// A unit's dependencies come before its own records.
Result Module::WalkUnit(TranslationUnitRecord& unit)
{
    if (unit.link == &walkedMark)
        return {};
    if (std::find(walking_.begin(), walking_.end(), &unit) != walking_.end())
    {
        std::string circle;
        for (const TranslationUnitRecord* const open : walking_)
            circle += fmt::format("{} -> ", open->id.View());
        return Refuse(
            error::kIllegalState, fmt::format("The module's translation units depend on each other in a circle: {}{}.",
                                      circle, unit.id.View()));
    }
    walking_.push_back(&unit);
    for (const DependencyRecord* dependency = unit.dependencies; dependency; dependency = dependency->next)
    {
        if (!dependency->target)
            return Refuse(error::kUnresolved,
                fmt::format("{} depends on the label {}, which no unit has.", unit.id.View(), dependency->name.View()));
        auto* const needed = static_cast<TranslationUnitRecord*>(dependency->target->owner);
        if (needed && needed != &unit)
            VELTO_TRY(WalkUnit(*needed));
    }
    for (Record* record = unit.first; record; record = record->next)
        VELTO_TRY(WalkRecord(*record));
    unit.link = &walkedMark;
    walking_.pop_back();
    return {};
}

Result Module::WalkRecord(Record& record)
{
    switch (record.kind)
    {
    case RecordKind::Declaration:
    {
        auto& declaration = static_cast<DeclarationRecord&>(record);
        if (declaration.imported)
        {
            if (!(declaration.registry == registry::kInternedIds))
                return Refuse(
                    error::kUnresolved, fmt::format("Nothing can be imported from {}.", declaration.registry.View()));
            *static_cast<InternedId*>(declaration.imported) = Intern(record.id.View());
            break;
        }
        done_.push_back(&record); // ahead, so that nothing is published that cannot be withdrawn
        if (Result registered = declaration.registerEntry(&declaration); registered.IsError())
        {
            done_.pop_back();
            return registered;
        }
        break;
    }
    case RecordKind::Step:
    {
        // Undone also when it fails half-way: its free function knows what there is to free.
        done_.push_back(&record);
        VELTO_TRY(static_cast<StepRecord&>(record).initialize());
        break;
    }
    default:
        break;
    }
    record.link = &walkedMark;
    return {};
}

void Module::Unload()
{
    for (auto record = done_.rbegin(); record != done_.rend(); ++record)
    {
        if ((*record)->kind == RecordKind::Step)
            static_cast<StepRecord*>(*record)->free();
        else
        {
            auto* const declaration = static_cast<DeclarationRecord*>(*record);
            declaration->unregisterEntry(declaration).Ignore(); // what is gone already need not go again
        }
    }
    done_.clear();
    UnregisterFunctions(functions_);
    functions_.clear();
    if (export_)
    {
        // Switches that lie in the module go with it.
        std::erase_if(Configuration(), [this](const ConfigurationEntry* entry) {
            Dl_info info{};
            return dladdr(entry, &info) != 0 && info.dli_fname && file_ == info.dli_fname;
        });
        // What it holds of the host's goes while the host still is asked; what it was told is forgotten, should the
        // system keep the library.
        export_->moduleId = Id();
        export_->moduleUrl = Url();
        export_->initializer = nullptr;
        for (ModuleRecord* module = export_->moduleRecords; module; module = module->nextModule)
        {
            for (Record* unit = module->units; unit; unit = unit->next)
            {
                unit->link = nullptr;
                for (Record* record = static_cast<TranslationUnitRecord*>(unit)->first; record; record = record->next)
                    record->link = nullptr;
            }
        }
        export_ = nullptr;
    }
    if (library_)
        dlclose(library_);
    library_ = nullptr;
}

// The same error, with the file in it.
static Result NameFile(const std::filesystem::path& file, const Result& failed)
{
    if (failed.Kind() == error::kOutOfMemory.View() || failed.Message().find(file.string()) != std::string_view::npos)
        return failed;
    return Guarded([&]() -> Result {
        Id kind;
        VELTO_TRY(Id::Create(failed.Kind(), kind));
        return MakeError(kind, fmt::format("{}: {}", file.string(), failed.Message()));
    });
}

Result Modules::Load(const std::vector<std::filesystem::path>& files, std::shared_ptr<Modules>& modules)
{
    return Guarded([&]() -> Result {
        std::shared_ptr<Modules> loading(new Modules);
        std::set<std::filesystem::path> known;
        for (const std::filesystem::path& file : files)
        {
            std::error_code ignored;
            if (!known.insert(std::filesystem::weakly_canonical(file, ignored)).second)
                continue;
            SetResourceDirectory(std::filesystem::absolute(file).parent_path().parent_path() / "resource");
            std::shared_ptr<Module> module;
            if (const Result loaded = Module::Load(file, module); loaded.IsError())
                return NameFile(file, loaded);
            loading->all_.push_back(std::move(module));
        }
        modules = std::move(loading);
        return {};
    });
}

Modules::~Modules()
{
    while (!all_.empty())
        all_.pop_back();
}

std::vector<std::filesystem::path> ModuleFiles(const std::filesystem::path& directory)
{
    std::vector<std::filesystem::path> files;
    std::error_code failure;
    for (std::filesystem::directory_iterator at(directory, failure), end; !failure && at != end; at.increment(failure))
    {
        if (at->path().extension() == ".module")
            files.push_back(at->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace velto::host
