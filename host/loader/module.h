// A loaded module: opened, bound, walked and published; all of it undone in reverse when the last holder goes.
#pragma once

#include "velto/unit.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace velto::host
{

class Module
{
public:
    // Loads the module in `file`. On error nothing of it is left, and the error names what is wrong with it.
    static Result Load(const std::filesystem::path& file, std::shared_ptr<Module>& module);

    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    const ModuleExport& Export() const { return *export_; }
    const std::filesystem::path& File() const { return file_; }

private:
    Module() = default;

    Result Open(const std::filesystem::path& file);
    Result BindFrameworks();
    Result BindInterface(InterfaceBindingRecord& record);
    Result WalkUnits();
    Result WalkUnit(TranslationUnitRecord& unit);
    Result WalkRecord(Record& record);
    void Unload();

    std::filesystem::path file_;
    void* library_ = nullptr;
    ModuleExport* export_ = nullptr;
    std::vector<TranslationUnitRecord*> walking_; // from the outermost
    std::vector<std::string> functions_;          // that it offers by name
    std::vector<Record*> done_;                   // what is undone at unload, in order of doing
};

// Modules that are loaded together, in their order; they go in reverse.
class Modules
{
public:
    // Loads each file with the descriptions that lie at `../resource/modules/` beside its folder. A file that is named
    // twice is loaded once. On error nothing of them is left.
    static Result Load(const std::vector<std::filesystem::path>& files, std::shared_ptr<Modules>& modules);

    ~Modules();
    Modules(const Modules&) = delete;
    Modules& operator=(const Modules&) = delete;

    const std::vector<std::shared_ptr<Module>>& All() const { return all_; }

private:
    Modules() = default;

    std::vector<std::shared_ptr<Module>> all_;
};

// The files `*.module` of a directory in order of their names; none where there is no such directory.
std::vector<std::filesystem::path> ModuleFiles(const std::filesystem::path& directory);

} // namespace velto::host
