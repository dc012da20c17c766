// Takes the function of a call apart where it calls what is better called for many samples at once: into what comes
// before and tells the arguments, the calls themselves, and what comes after and knows the results.
#pragma once

#include "emit.h"

namespace velto::host::fuse
{

class Splitter
{
public:
    Splitter(Emitter& emitter, const FuseRequest& request) : emitter_(emitter), request_(request) {}

    // The parts of a flattened function in order; only the function itself where there is nothing to take apart.
    std::vector<CallCode> Split(const CallCode& code);

    // Of the values that pass from part to part, which have offsets beyond those of the frame.
    std::size_t SizeOf(UInt32 offset) const { return sizes_.at(offset - kFirstOffset); }
    static bool IsOwn(UInt32 offset) { return offset >= kFirstOffset; }

private:
    static constexpr UInt32 kFirstOffset = 0x80000000;

    // A call that is made for many samples, and what passes to it and from it.
    struct Cut
    {
        llvm::CallInst* call;
        const FuseBlockForm* form = nullptr; // null: a function of the mathematical library
        std::vector<UInt32> arguments;       // offsets; 0: a constant
        UInt32 isReached = 0;                // offset
        UInt32 result = 0;                   // offset
    };

    const FuseBlockForm* FormOf(const llvm::CallInst& call) const;
    bool IsCandidate(const llvm::CallInst& call) const;
    std::vector<llvm::CallInst*> FindCandidates(llvm::Function& function) const;
    static std::vector<llvm::CallInst*> FirstOf(
        llvm::Function& function, const std::vector<llvm::CallInst*>& candidates);
    UInt32 NewValue(llvm::Type* type);
    UInt32 NewValue(std::size_t size);
    static void EndAfter(llvm::Function& function, const std::set<llvm::BasicBlock*>& blocks);
    CallCode Before(const CallCode& code, const std::vector<Cut>& cuts);
    CallCode Alone(const Cut& cut);
    CallCode After(const CallCode& code, const std::vector<Cut>& cuts);
    CallCode Clone(const CallCode& code, const std::vector<UInt32>& inputs, const std::vector<UInt32>& outputs,
        std::map<llvm::CallInst*, llvm::CallInst*>& calls);

    Emitter& emitter_;
    const FuseRequest& request_;
    std::vector<std::size_t> sizes_;
};

} // namespace velto::host::fuse
