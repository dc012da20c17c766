// From a kernel's intermediate code to machine code.
#pragma once

#include "emit.h"

#include <llvm/ExecutionEngine/Orc/LLJIT.h>
#include <llvm/Target/TargetMachine.h>

namespace velto::host::fuse
{

// What the code is made for.
struct Target
{
    llvm::orc::JITTargetMachineBuilder builder;
    std::unique_ptr<llvm::TargetMachine> machine;

    // `processor` as in `FuseRequest`.
    static llvm::Expected<Target> Make(const std::string& processor);
};

// Puts what is called where it is called, and makes values of memory. Gives the offsets of what nodes would change
// though they own something: the kernel must be emitted anew.
llvm::Expected<std::set<UInt32>> Flatten(llvm::Module& module, Target& target, const FuseRequest& request);

// The same for one function in which nothing is called that can be inlined.
void Simplify(llvm::Function& function, Target& target);

// What is left to be known: the thread's frame, the counts. After `Flatten`.
void Lower(llvm::Module& module, const FuseRequest& request);

// Vectorises, and all else that makes it fast.
void Optimize(llvm::Module& module, Target& target, const std::atomic<bool>* stop);

} // namespace velto::host::fuse
