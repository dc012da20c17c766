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

} // namespace velto::host
