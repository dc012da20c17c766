// From a program's plans to functions in which each node's own function is called.
#pragma once

#include "bitcode.h"

#include <llvm/IR/IRBuilder.h>

#include <map>

namespace velto::host::fuse
{

// The names of what is replaced or defined later.
inline constexpr const char* kKernelName = "velto.kernel";
inline constexpr const char* kStageName = "velto.stage"; // and a number
inline constexpr unsigned kStageFrame = 2;               // among its arguments, as `Stager::EmitStage` has them
inline constexpr unsigned kStageRuns = 6;
inline constexpr const char* kFrameMark = "velto.frame";         // ptr (): the thread's frame
inline constexpr const char* kCountMark = "velto.count";         // void (i64 body): a function ran
inline constexpr const char* kStateMark = "velto.state.changed"; // void (i64 offset): a node changed what it keeps

inline constexpr const char* kValueMark = "velto.value"; // on stores of the kernel's values

// A call as a function of its own.
struct CallCode
{
    llvm::Function* function = nullptr;
    std::vector<UInt32> inputs;  // offsets of its arguments
    std::vector<UInt32> outputs; // and of those behind them
    bool sharesFrame = false;    // reads or writes what lies in the thread's frame

    // In place of a function: one call for many samples, for an object, of arguments that are values or constants.
    struct Argument
    {
        UInt32 offset;
        llvm::Constant* constant;
    };
    const FuseBlockForm* form = nullptr;
    llvm::Constant* self = nullptr;
    std::vector<Argument> arguments;
};

class Emitter
{
public:
    // What nodes keep at the offsets `inFrame` is read and changed in the thread's frame. All else that nodes keep is
    // taken to be as in the request's frame; where a node would change it, there is a call of `kStateMark`.
    Emitter(
        const FuseRequest& request, Bitcode& bitcode, const std::string& moduleFile, const std::set<UInt32>& inFrame);

    CallCode EmitCallFunction(const CallPlan& call);

    // For who emits what is around the calls.
    llvm::IRBuilder<>& Builder() { return builder_; }
    llvm::Module& Module() { return module_; }
    llvm::Value* Alloca(llvm::Function* function, std::size_t size);
    llvm::Function* MakeCallFunction(std::size_t values); // empty
    llvm::GlobalVariable* Constant(llvm::Constant* value, const char* name);
    llvm::Constant* SetupValue(UInt32 offset);
    void ForgetConstants() { setupConstants_.clear(); } // flattening drops those that nothing reads
    std::size_t SizeOf(UInt32 offset) const { return frameValues_.at(offset)->type->operations.size; }

    const std::set<llvm::Function*>& Roots() const { return roots_; }
    UInt DirectCalls() const { return directCalls_; }
    UInt ForeignCalls() const { return foreignCalls_; }

private:
    using Places = std::map<UInt32, llvm::Value*>; // of the frame's values, by offset

    // A body while its calls are emitted.
    struct Run
    {
        llvm::Function* function;
        const BodyPlan* plan;
        llvm::Value* frame;
        llvm::Value* context;
        llvm::BasicBlock* fail;
        llvm::PHINode* error;
        Places places;
    };

    llvm::GlobalVariable* Bytes(const void* data, std::size_t size, const char* name);
    llvm::Constant* AddressOf(const void* place);
    llvm::Value* Alloca(llvm::Function* function, llvm::Type* type);
    llvm::Function* Declare(const char* name, llvm::FunctionType* type);

    llvm::Constant* FunctionValue(const FunctionPlan& plan);
    llvm::Function* Body(std::size_t index);
    llvm::Function* Invoker(const FunctionPlan& plan);
    llvm::Value* PlaceOf(Run& run, Address address);

    Run Begin(llvm::Function* function, const BodyPlan& plan);
    void PlaceValues(Run& run, const CallPlan& call);
    llvm::Value* PlaceFrameValue(Run& run, UInt32 offset, bool isOutput);
    void EmitCall(Run& run, const CallPlan& call);
    llvm::Value* EmitDirect(Run& run, const CallPlan& call, const NodeCode& code);
    llvm::Value* EmitForeign(Run& run, const CallPlan& call);
    llvm::Value* Bind(Run& run, const CallPlan& call, const std::vector<llvm::Value*>& values);
    void WatchState(Run& run, const CallPlan& call);
    NodeCode CodeOf(const CallPlan& call);
    bool IsElement(const CallPlan& call, std::size_t slot) const;
    bool IsInput(const CallPlan& call, std::size_t slot) const;

    const FuseRequest& request_;
    const Program& program_;
    Bitcode& bitcode_;
    std::string moduleFile_;
    const std::set<UInt32>& inFrame_;
    llvm::LLVMContext& context_;
    llvm::Module& module_;
    llvm::IRBuilder<> builder_;
    llvm::PointerType* pointer_;
    llvm::Type* byte_;
    llvm::Type* word_;
    llvm::Type* half_;
    llvm::Type* float_;
    llvm::StructType* slot_;
    std::vector<llvm::Function*> bodies_;
    std::map<UInt32, const ValuePlan*> setupValues_;
    std::map<UInt32, const ValuePlan*> frameValues_;
    std::set<UInt32> sharedState_; // offsets of what several calls know, or one through a pointer
    std::map<UInt32, llvm::Constant*> setupConstants_;
    std::map<UInt32, llvm::Constant*> functionValues_; // by offset in the frame
    std::map<std::string, NodeCode> codes_;
    std::set<llvm::Function*> roots_;
    UInt directCalls_ = 0;
    UInt foreignCalls_ = 0;
};

} // namespace velto::host::fuse
