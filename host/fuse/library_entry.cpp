// The library's side: one program compiled.
#include "compile.h"
#include "stage.h"

#include <llvm/IR/Verifier.h>
#include <llvm/Support/TargetSelect.h>
#include <llvm/Support/raw_ostream.h>
#include <llvm/Transforms/Utils/SplitModule.h>

#include <dlfcn.h>

#include <chrono>
#include <cstdlib>

namespace velto::host::fuse
{

namespace
{

using namespace llvm;

// Of the kernel that this thread runs.
thread_local std::byte* currentFrame = nullptr;
thread_local UInt* currentRuns = nullptr;

void Enter(std::byte* frame, UInt* runs)
{
    currentFrame = frame;
    currentRuns = runs;
}

std::byte* CurrentFrame()
{
    return currentFrame;
}

void Count(UInt body)
{
    ++currentRuns[body];
}

void ResetValueAt(const DataType* type, std::byte* value)
{
    if (type->operations.destroy)
        type->operations.destroy(value);
    type->operations.construct(value);
}

// The files of the modules that the program's nodes come from.
std::set<std::string> ModuleFilesOf(const Program& program)
{
    std::set<const void*> functions;
    for (const BodyPlan& body : program.bodies)
    {
        for (const CallPlan& call : body.calls)
        {
            if (call.record)
                functions.insert(reinterpret_cast<const void*>(call.compute));
        }
    }
    std::set<std::string> files;
    for (const void* const function : functions)
    {
        Dl_info info;
        if (dladdr(const_cast<void*>(function), &info) && info.dli_fname)
            files.insert(info.dli_fname);
    }
    return files;
}

// Of one module; what comes from others is called through pointers.
std::unique_ptr<Bitcode> OpenAny(
    LLVMContext& context, const Program& program, std::string& moduleFile, std::string& reason)
{
    reason = "no node is sampled";
    for (const std::string& file : ModuleFilesOf(program))
    {
        moduleFile = file;
        if (std::unique_ptr<Bitcode> bitcode = Bitcode::Open(context, file, reason))
            return bitcode;
    }
    return nullptr;
}

void Dump(const llvm::Module& module, const char* stage)
{
    const char* const prefix = std::getenv("VELTO_FUSE_DUMP"); // for who works on this
    if (!prefix)
        return;
    std::error_code error;
    raw_fd_ostream out(std::string(prefix) + stage, error);
    if (!error)
        module.print(out, nullptr);
}

constexpr unsigned kMostInstructions = 200'000; // what would take some ten seconds

// Emits and flattens until what nodes keep is where it must be.
Error Build(const FuseRequest& request, Target& target, LLVMContext& context, std::unique_ptr<Bitcode>& bitcode,
    FuseAnswer& answer)
{
    std::set<UInt32> inFrame;
    for (;;)
    {
        std::string moduleFile;
        std::string reason;
        bitcode = OpenAny(context, *request.program, moduleFile, reason);
        if (!bitcode)
            return createStringError(inconvertibleErrorCode(), reason);
        Emitter emitter(request, *bitcode, moduleFile, inFrame);
        Stager stager(emitter, request);
        stager.EmitCalls();
        answer.directCalls = emitter.DirectCalls();
        answer.foreignCalls = emitter.ForeignCalls();
        if (Error failed = bitcode->KeepReached(emitter.Roots()))
            return failed;
        Dump(bitcode->Module(), ".0.ll");
        std::string fault;
        raw_string_ostream faults(fault);
        if (verifyModule(bitcode->Module(), &faults))
            return createStringError(inconvertibleErrorCode(), "the code is not well formed: " + faults.str());
        Expected<std::set<UInt32>> changed = Flatten(bitcode->Module(), target, request);
        if (!changed)
            return changed.takeError();
        if (request.stop && *request.stop)
            return createStringError(inconvertibleErrorCode(), "stopped");
        const llvm::Module& module = bitcode->Module();
        const std::size_t before = inFrame.size();
        inFrame.insert(changed->begin(), changed->end());
        if (inFrame.size() > before)
            continue;
        if (module.getInstructionCount() > kMostInstructions)
            return createStringError(inconvertibleErrorCode(), "it is too large");
        stager.EmitKernel([&](Function& function) { Simplify(function, target); });
        return Flatten(bitcode->Module(), target, request).takeError();
    }
}

// In pieces, each of stages and what they alone use, between which it can be given up.
Error Generate(std::unique_ptr<llvm::Module> module, std::unique_ptr<LLVMContext> context, Target& target,
    const FuseRequest& request, FuseAnswer& answer)
{
    auto jit = orc::LLJITBuilder().setJITTargetMachineBuilder(target.builder).create();
    if (!jit)
        return jit.takeError();
    auto search = orc::DynamicLibrarySearchGenerator::GetForCurrentProcess((*jit)->getDataLayout().getGlobalPrefix());
    if (!search)
        return search.takeError();
    (*jit)->getMainJITDylib().addGenerator(std::move(*search));
    orc::SymbolMap own;
    const auto define = [&](const char* name, auto* function) {
        own[(*jit)->mangleAndIntern(name)] =
            JITEvaluatedSymbol(pointerToJITTargetAddress(function), JITSymbolFlags::Exported);
    };
    define("velto_enter", &Enter);
    define("velto_current_frame", &CurrentFrame);
    define("velto_count", &Count);
    define("velto_reset_value", &ResetValueAt);
    if (Error failed = (*jit)->getMainJITDylib().define(orc::absoluteSymbols(std::move(own))))
        return failed;
    constexpr unsigned kPieces = 16;
    const orc::ThreadSafeContext shared(std::move(context));
    std::vector<std::string> names; // of a function of each piece
    Error failure = Error::success();
    const auto add = [&](std::unique_ptr<llvm::Module> piece) {
        for (const Function& function : *piece)
        {
            if (function.isDeclaration() || function.hasLocalLinkage())
                continue;
            names.push_back(function.getName().str());
            failure =
                joinErrors(std::move(failure), (*jit)->addIRModule(orc::ThreadSafeModule(std::move(piece), shared)));
            return;
        }
    };
    for (Function& function : *module)
    {
        if (function.getName().startswith(kStageName))
            function.setLinkage(GlobalValue::ExternalLinkage);
    }
    SplitModule(*module, kPieces, add, true);
    module.reset();
    if (failure)
        return failure;
    for (const std::string& name : names)
    {
        if (request.stop && *request.stop)
            return createStringError(inconvertibleErrorCode(), "stopped");
        if (auto made = (*jit)->lookup(name); !made)
            return made.takeError();
    }
    auto entry = (*jit)->lookup(kKernelName);
    if (!entry)
        return entry.takeError();
    answer.kernel.shape = request.shape;
    answer.kernel.entry = entry->toPtr<SampleKernel::Entry>();
    answer.kernel.code = std::shared_ptr<const void>(std::shared_ptr<orc::LLJIT>(std::move(*jit)));
    return Error::success();
}

Error Compile(const FuseRequest& request, FuseAnswer& answer)
{
    static const bool isReady = !InitializeNativeTarget() && !InitializeNativeTargetAsmPrinter();
    if (!isReady)
        return createStringError(inconvertibleErrorCode(), "this processor is not known");
    auto target = Target::Make(request.processor);
    if (!target)
        return target.takeError();
    auto context = std::make_unique<LLVMContext>();
    context->setDiscardValueNames(true); // which are long
    std::unique_ptr<Bitcode> bitcode;
    if (Error failed = Build(request, *target, *context, bitcode, answer))
        return failed;
    Lower(bitcode->Module(), request);
    Dump(bitcode->Module(), ".1.ll");
    Optimize(bitcode->Module(), *target, request.stop);
    Dump(bitcode->Module(), ".2.ll");
    if (request.stop && *request.stop)
        return createStringError(inconvertibleErrorCode(), "stopped");
    for (const Function& function : bitcode->Module())
        answer.instructions += function.getInstructionCount();
    return Generate(bitcode->Release(), std::move(context), *target, request, answer);
}

} // namespace

} // namespace velto::host::fuse

extern "C" __attribute__((visibility("default"))) void VeltoFuse(
    const velto::host::FuseRequest& request, velto::host::FuseAnswer& answer)
{
    const auto start = std::chrono::steady_clock::now();
    if (llvm::Error failed = velto::host::fuse::Compile(request, answer))
        answer.reason = llvm::toString(std::move(failed));
    answer.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
