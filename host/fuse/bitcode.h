// The nodes' compute functions as bitcode, and the names in it as what they are in this process.
#pragma once

#include "request.h"

#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>

#include <memory>
#include <set>

namespace velto::host::fuse
{

// A node's function, and the words behind its record.
struct NodeCode
{
    llvm::Function* compute = nullptr;
    UInt32 words = 0;
};

class Bitcode
{
public:
    // Of the module at `moduleFile`: `shadernodes.bc` beside `shadernodes.module`. Null, and why, where there is none
    // that belongs to this build of the module.
    static std::unique_ptr<Bitcode> Open(
        llvm::LLVMContext& context, const std::string& moduleFile, std::string& reason);

    llvm::Module& Module() { return *module_; }
    std::unique_ptr<llvm::Module> Release() { return std::move(module_); }

    // Without a function where the node is not known here, or reaches what has no place in this process.
    NodeCode Find(std::string_view nodeId, const FuseRequest& request);

    // Drops what is not reached from the functions that were found.
    llvm::Error KeepReached(const std::set<llvm::Function*>& roots);

private:
    explicit Bitcode(std::unique_ptr<llvm::Module> module) : module_(std::move(module)) {}

    bool Reach(llvm::Function& from, const FuseRequest& request);
    bool Settle(llvm::GlobalValue& value, const FuseRequest& request);
    bool SettleVariable(llvm::GlobalVariable& variable, const FuseRequest& request);

    std::unique_ptr<llvm::Module> module_;
    std::set<llvm::GlobalValue*> reached_;
};

// What the host does a sample, as the build ships it (see system/shipped.h).
llvm::StringRef HostBitcode();

// The name of a function of a table in it.
inline std::string ShippedName(std::string_view table, std::size_t index)
{
    return "velto.host:" + std::string(table) + ":" + std::to_string(index);
}

// The C library's mathematical functions: of the same value for the same argument, and known by name.
using UnaryFunction = double (*)(double);
using BinaryFunction = double (*)(double, double);
UnaryFunction FindUnary(llvm::StringRef name);
BinaryFunction FindBinary(llvm::StringRef name);

} // namespace velto::host::fuse
