#include "compile.h"

#include "fold.h"

#include <llvm/Analysis/LoopInfo.h>
#include <llvm/Analysis/ScalarEvolution.h>
#include <llvm/Analysis/TargetLibraryInfo.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/MDBuilder.h>
#include <llvm/IR/PassInstrumentation.h>
#include <llvm/Passes/PassBuilder.h>
#include <llvm/Transforms/IPO/AlwaysInliner.h>
#include <llvm/Transforms/IPO/GlobalDCE.h>
#include <llvm/Transforms/InstCombine/InstCombine.h>
#include <llvm/Transforms/Scalar/ADCE.h>
#include <llvm/Transforms/Scalar/EarlyCSE.h>
#include <llvm/Transforms/Scalar/GVN.h>
#include <llvm/Transforms/Scalar/LoopPassManager.h>
#include <llvm/Transforms/Scalar/LoopRotation.h>
#include <llvm/Transforms/Scalar/LoopUnrollPass.h>
#include <llvm/Transforms/Scalar/SROA.h>
#include <llvm/Transforms/Scalar/SimplifyCFG.h>
#include <llvm/Transforms/Utils/LoopUtils.h>

namespace velto::host::fuse
{

using namespace llvm;

Expected<Target> Target::Make(const std::string& processor)
{
    auto builder = orc::JITTargetMachineBuilder::detectHost();
    if (!builder)
        return builder.takeError();
    if (!processor.empty())
    {
        builder->setCPU(processor);
        builder->getFeatures() = SubtargetFeatures();
    }
    builder->setCodeGenOptLevel(CodeGenOpt::Aggressive);
    builder->getOptions().AllowFPOpFusion = FPOpFusion::Strict;
    auto machine = builder->createTargetMachine();
    if (!machine)
        return machine.takeError();
    return Target{std::move(*builder), std::move(*machine)};
}

namespace
{

// A pass manager with all that passes ask for. Passes are left out once `stop` is set.
class Pipeline
{
public:
    Pipeline(Target& target, const std::atomic<bool>* stop) : builder_(target.machine.get(), Tuning(), {}, &callbacks_)
    {
        callbacks_.registerShouldRunOptionalPassCallback(
            [stop](StringRef, Any) { return !stop || !stop->load(std::memory_order_relaxed); });
        functions_.registerPass([&] { return PassInstrumentationAnalysis(&callbacks_); });
        builder_.registerModuleAnalyses(modules_);
        builder_.registerCGSCCAnalyses(graphs_);
        builder_.registerFunctionAnalyses(functions_);
        builder_.registerLoopAnalyses(loops_);
        builder_.crossRegisterProxies(loops_, functions_, graphs_, modules_);
    }

    PassBuilder& Builder() { return builder_; }
    void Run(llvm::Module& module, ModulePassManager passes) { passes.run(module, modules_); }
    void Run(Function& function, FunctionPassManager passes) { passes.run(function, functions_); }

private:
    static PipelineTuningOptions Tuning()
    {
        PipelineTuningOptions tuning;
        tuning.LoopVectorization = true;
        tuning.SLPVectorization = false; // is in the way of loops
        tuning.LoopUnrolling = true;
        tuning.InlinerThreshold = 2000;
        return tuning;
    }

    PassInstrumentationCallbacks callbacks_;
    PassBuilder builder_;
    LoopAnalysisManager loops_;
    FunctionAnalysisManager functions_;
    CGSCCAnalysisManager graphs_;
    ModuleAnalysisManager modules_;
};

FunctionPassManager Plain()
{
    FunctionPassManager plain;
    for (int i = 0; i < 2; ++i) // where slots lie shows only once tables have become numbers
    {
        plain.addPass(SROAPass(SROAOptions::PreserveCFG));
        plain.addPass(EarlyCSEPass(true));
        plain.addPass(InstCombinePass());
    }
    plain.addPass(SimplifyCFGPass());
    return plain;
}

// Loops over the elements of a port: what each element is shows once they stand one after another.
struct MarkShortLoops : PassInfoMixin<MarkShortLoops>
{
    static PreservedAnalyses run(Function& function, FunctionAnalysisManager& analyses)
    {
        constexpr unsigned kMostTrips = 16;
        constexpr std::size_t kMostInstructions = 4000;
        auto& evolution = analyses.getResult<ScalarEvolutionAnalysis>(function);
        for (Loop* const loop : analyses.getResult<LoopAnalysis>(function).getLoopsInPreorder())
        {
            std::size_t size = 0;
            for (const BasicBlock* const block : loop->blocks())
                size += block->size();
            const unsigned trips = evolution.getSmallConstantTripCount(loop);
            if (trips > 0 && trips <= kMostTrips && size * trips <= kMostInstructions)
                addStringMetadataToLoop(loop, "llvm.loop.unroll.full");
        }
        return PreservedAnalyses::all();
    }
};

constexpr unsigned kSmall = 600; // instructions: what is smaller lies where it is called

// Direct calls of what is to be inlined, if there are any.
bool MarkSmall(llvm::Module& module)
{
    bool any = false;
    for (Function& function : module)
    {
        if (function.isDeclaration() || function.hasExternalLinkage())
            continue; // what is called from elsewhere, or not yet
        if (!function.hasFnAttribute(Attribute::AlwaysInline) && !function.hasFnAttribute(Attribute::NoInline) &&
            !function.hasFnAttribute(Attribute::Cold) && function.getInstructionCount() < kSmall)
            function.addFnAttr(Attribute::AlwaysInline);
        if (!function.hasFnAttribute(Attribute::AlwaysInline))
            continue;
        for (const User* const user : function.users())
        {
            const auto* const call = dyn_cast<CallBase>(user);
            any = any || (call && call->getCalledFunction() == &function);
        }
    }
    return any;
}

void SetAttributes(llvm::Module& module, Target& target)
{
    const std::string processor = target.machine->getTargetCPU().str();
    const std::string features = target.machine->getTargetFeatureString().str();
    AttrBuilder noBuiltins(module.getContext());
    for (const Function& function : module)
    {
        for (const Attribute attribute : function.getAttributes().getFnAttrs())
        {
            if (attribute.isStringAttribute() && attribute.getKindAsString().startswith("no-builtin-"))
                noBuiltins.addAttribute(attribute);
        }
    }
    for (Function& function : module)
    {
        for (const char* name :
            {"target-cpu", "target-features", "tune-cpu", "frame-pointer", "stack-protector-buffer-size"})
            function.removeFnAttr(name);
        function.removeFnAttr(Attribute::UWTable);
        function.addFnAttr("target-cpu", processor);
        function.addFnAttr("target-features", features);
        if (!function.isDeclaration())
            function.addFnAttrs(noBuiltins);
        else if (FindUnary(function.getName()) || FindBinary(function.getName()))
        {
            function.setDoesNotAccessMemory();
            function.addFnAttr(Attribute::WillReturn);
            function.addFnAttr(Attribute::NoUnwind);
        }
    }
}

} // namespace

Expected<std::set<UInt32>> Flatten(llvm::Module& module, Target& target, const FuseRequest& request)
{
    SetAttributes(module, target);
    module.setDataLayout(target.machine->createDataLayout());
    bool isPending = true;
    Pipeline pipeline(target, request.stop);
    Folder folder(request, module);
    const auto fold = [&]() -> Error {
        Expected<bool> folded = folder.Run();
        if (!folded)
            return folded.takeError();
        SetAttributes(module, target); // of what is new
        isPending = MarkSmall(module) || *folded;
        return Error::success();
    };
    constexpr int kMostRounds = 8;
    for (int round = 0; round < kMostRounds && isPending; ++round)
    {
        MarkSmall(module);
        ModulePassManager passes;
        passes.addPass(AlwaysInlinerPass());
        passes.addPass(createModuleToFunctionPassAdaptor(Plain()));
        passes.addPass(GlobalDCEPass());
        pipeline.Run(module, std::move(passes));
        if (Error failed = fold())
            return failed;
        if (isPending)
            continue;
        FunctionPassManager thorough;
        thorough.addPass(GVNPass());
        thorough.addPass(createFunctionToLoopPassAdaptor(LoopRotatePass()));
        thorough.addPass(MarkShortLoops());
        thorough.addPass(createFunctionToLoopPassAdaptor(LoopFullUnrollPass(3)));
        thorough.addPass(ADCEPass());
        ModulePassManager last;
        last.addPass(createModuleToFunctionPassAdaptor(std::move(thorough)));
        last.addPass(createModuleToFunctionPassAdaptor(Plain()));
        last.addPass(GlobalDCEPass());
        pipeline.Run(module, std::move(last));
        if (Error failed = fold())
            return failed;
    }
    std::set<UInt32> changed;
    if (const Function* const mark = module.getFunction(kStateMark))
    {
        for (const User* const user : mark->users())
        {
            if (const auto* const call = dyn_cast<CallInst>(user))
                changed.insert(static_cast<UInt32>(cast<ConstantInt>(call->getArgOperand(0))->getZExtValue()));
        }
    }
    return changed;
}

void Simplify(Function& function, Target& target)
{
    Pipeline pipeline(target, nullptr);
    FunctionPassManager passes = Plain();
    passes.addPass(ADCEPass());
    passes.addPass(SimplifyCFGPass());
    pipeline.Run(function, std::move(passes));
}

namespace
{

// A stage counts in registers; functions of their own ask the thread.
void LowerCounts(llvm::Module& module, Function& stage, std::size_t bodies)
{
    Function* const mark = module.getFunction(kCountMark);
    if (!mark)
        return;
    LLVMContext& context = module.getContext();
    Type* const word = Type::getInt64Ty(context);
    std::vector<AllocaInst*> counters(bodies, nullptr);
    IRBuilder<> entry(&stage.getEntryBlock(), stage.getEntryBlock().begin());
    for (User* const user : make_early_inc_range(mark->users()))
    {
        auto* const call = cast<CallInst>(user);
        if (call->getFunction() != &stage)
            continue;
        AllocaInst*& counter = counters[cast<ConstantInt>(call->getArgOperand(0))->getZExtValue()];
        if (!counter)
        {
            counter = entry.CreateAlloca(word);
            entry.CreateStore(ConstantInt::get(word, 0), counter);
        }
        IRBuilder<> at(call);
        at.CreateStore(at.CreateAdd(at.CreateLoad(word, counter), ConstantInt::get(word, 1)), counter);
        call->eraseFromParent();
    }
    for (BasicBlock& block : stage)
    {
        auto* const end = dyn_cast<ReturnInst>(block.getTerminator());
        if (!end)
            continue; // of a failure nobody looks at them
        IRBuilder<> at(end);
        for (std::size_t i = 0; i < bodies; ++i)
        {
            if (!counters[i])
                continue;
            Value* const place = at.CreateConstGEP1_64(word, stage.getArg(kStageRuns), i);
            at.CreateStore(at.CreateAdd(at.CreateLoad(word, place), at.CreateLoad(word, counters[i])), place);
        }
    }
}

// What a stage stores is in the way of nothing that it reads.
void MarkStores(Function& stage)
{
    MDBuilder metadata(stage.getContext());
    MDNode* const domain = metadata.createAnonymousAliasScopeDomain("velto");
    MDNode* const scope = metadata.createAnonymousAliasScope(domain, "values");
    MDNode* const scopes = MDNode::get(stage.getContext(), {scope});
    const auto add = [&](Instruction& instruction, unsigned kind) {
        instruction.setMetadata(kind, MDNode::concatenate(instruction.getMetadata(kind), scopes));
    };
    for (BasicBlock& block : stage)
    {
        for (Instruction& instruction : block)
        {
            if (instruction.hasMetadata(kValueMark))
                add(instruction, LLVMContext::MD_alias_scope);
            else if (instruction.mayReadOrWriteMemory() && !isa<CallBase>(instruction))
                add(instruction, LLVMContext::MD_noalias);
        }
    }
}

void LowerFrame(llvm::Module& module, Function& stage)
{
    Function* const mark = module.getFunction(kFrameMark);
    if (!mark)
        return;
    for (User* const user : make_early_inc_range(mark->users()))
    {
        auto* const call = dyn_cast<CallInst>(user);
        if (!call || call->getFunction() != &stage)
            continue;
        call->replaceAllUsesWith(stage.getArg(kStageFrame));
        call->eraseFromParent();
    }
}

} // namespace

void Lower(llvm::Module& module, const FuseRequest& request)
{
    Function& kernel = *module.getFunction(kKernelName);
    for (Function& function : module)
    {
        if (!function.getName().startswith(kStageName))
            continue;
        LowerCounts(module, function, request.program->bodies.size());
        LowerFrame(module, function);
        MarkStores(function);
    }
    // What functions of their own ask the thread for.
    const auto rename = [&](const char* from, const char* to) {
        Function* const mark = module.getFunction(from);
        if (mark && !mark->use_empty())
            mark->setName(to);
        else if (mark)
            mark->eraseFromParent();
        return mark != nullptr && module.getFunction(to) != nullptr;
    };
    const bool asksFrame = rename(kFrameMark, "velto_current_frame");
    const bool counts = rename(kCountMark, "velto_count");
    if (asksFrame || counts)
    {
        auto* const pointer = PointerType::get(module.getContext(), 0);
        const FunctionCallee enter = module.getOrInsertFunction(
            "velto_enter", FunctionType::get(Type::getVoidTy(module.getContext()), {pointer, pointer}, false));
        IRBuilder<> entry(&*kernel.getEntryBlock().getFirstNonPHIOrDbgOrAlloca());
        entry.CreateCall(enter, {kernel.getArg(2), kernel.getArg(5)});
        if (asksFrame)
            module.getFunction("velto_current_frame")->removeFnAttr(Attribute::Memory);
    }
}

void Optimize(llvm::Module& module, Target& target, const std::atomic<bool>* stop)
{
    Pipeline pipeline(target, stop);
    pipeline.Run(module, pipeline.Builder().buildPerModuleDefaultPipeline(OptimizationLevel::O3));
}

} // namespace velto::host::fuse
