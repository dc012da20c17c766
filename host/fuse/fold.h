// What is known once a setup has run becomes part of the code: memory that no sample changes, the functions behind
// pointers, mathematics of constants.
#pragma once

#include "bitcode.h"

namespace velto::host::fuse
{

// The address that a constant is; 0 where it is none.
std::uint64_t AddressIn(const llvm::Value* pointer, const llvm::DataLayout& layout);

class Folder
{
public:
    Folder(const FuseRequest& request, llvm::Module& module);

    // Whether anything was folded. Fails where a function of the host's bitcode has no place in this process.
    llvm::Expected<bool> Run();

private:
    bool FoldLoads(llvm::Function& function);
    bool FoldCalls(llvm::Function& function);
    bool FoldMathematics();
    llvm::Error Import();

    const FuseRequest& request_;
    llvm::Module& module_;
    std::map<std::uint64_t, std::string> shipped_; // names of the host's functions in bitcode, by address
    std::set<std::string> wanted_;                 // of these, what is called and not yet here
};

} // namespace velto::host::fuse
