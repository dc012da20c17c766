// The loops around a program's calls. What cannot be vectorised gets loops of its own, and so is in nobody's way.
#pragma once

#include "split.h"

#include <functional>

namespace velto::host::fuse
{

class Stager
{
public:
    Stager(Emitter& emitter, const FuseRequest& request)
        : emitter_(emitter), request_(request), splitter_(emitter, request)
    {
    }

    // A function for each call of the first body. They are to be flattened then.
    void EmitCalls();

    // The kernel, of these functions; see `SampleKernel::Entry`. `simplify` tidies up a function that is new.
    void EmitKernel(const std::function<void(llvm::Function&)>& simplify);

private:
    struct Stage
    {
        bool isOpaque = false;
        std::vector<std::size_t> calls;   // in order; contexts of earlier stages are made again
        std::set<UInt32> loads;           // of values from earlier stages
        std::set<UInt32> stores;          // of values for later ones
        std::vector<std::size_t> outputs; // of the request's values
    };
    // A stage's function while its calls are emitted.
    struct Loop
    {
        llvm::Function* function;
        llvm::Value* context;
        llvm::BasicBlock* fail;
        llvm::PHINode* error;
        std::vector<llvm::Value*> lanes;
        std::vector<llvm::Value*> values;
        llvm::Value* index;  // in the block
        llvm::Value* sample; // of all
    };

    bool IsOpaque(const CallCode& code) const;
    bool CanRepeat(std::size_t call) const;
    std::size_t SizeOf(UInt32 offset) const;
    void SplitCalls(const std::function<void(llvm::Function&)>& simplify);
    void MakeStages(const std::function<void(llvm::Function&)>& simplify);
    void Join(Stage& stage, std::size_t index);
    void PlaceArrays();
    llvm::Function* MakeStageFunction();
    llvm::Value* ArrayOf(llvm::Function* stage, UInt32 offset);
    llvm::Function* EmitForm(const CallCode& code);
    llvm::Function* EmitStage(const Stage& stage);
    void EmitSample(Loop& at, const Stage& stage);
    void FillContext(Loop& at);
    void RunCalls(Loop& at, const Stage& stage, std::map<UInt32, llvm::Value*>& places);
    void CopyValue(Loop& at, UInt32 offset, llvm::Value* place, bool toArray);
    void StoreOutput(const SampleShape::Value& value, llvm::Value* from, llvm::Value* to);

    Emitter& emitter_;
    const FuseRequest& request_;
    Splitter splitter_;
    std::vector<CallCode> codes_; // by call of the first body
    std::vector<bool> opaque_;
    std::map<UInt32, std::size_t> producers_; // of values, by offset
    std::vector<std::size_t> stageOf_;        // by call
    std::vector<Stage> stages_;
    std::map<UInt32, std::size_t> arrays_; // of values between stages: where they lie, by offset
    std::size_t arraysSize_ = 0;
};

} // namespace velto::host::fuse
