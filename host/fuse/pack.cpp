// Part of the build: makes one file of a module's or the host's bitcode, of what its nodes' compute functions, or the
// functions that it ships, reach and no more.
//
//     velto-pack-bitcode OUT MODULE BITCODE...
//
// The file begins with a line that says which build of the module it belongs to. Without a module (`-`) it has none.
#include "buildid.h"

#include <llvm/Bitcode/BitcodeReader.h>
#include <llvm/Bitcode/BitcodeWriter.h>
#include <llvm/IR/Constants.h>
#include <llvm/IR/DebugInfo.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/IR/Module.h>
#include <llvm/Linker/Linker.h>
#include <llvm/Passes/PassBuilder.h>
#include <llvm/Support/MemoryBuffer.h>
#include <llvm/Support/raw_ostream.h>
#include <llvm/Transforms/IPO/GlobalDCE.h>
#include <llvm/Transforms/IPO/GlobalOpt.h>
#include <llvm/Transforms/IPO/Internalize.h>

#include <cstdio>
#include <cstdlib>

namespace
{

using namespace llvm;

[[noreturn]] void Fail(const Twine& text)
{
    errs() << "velto-pack-bitcode: " << text << "\n";
    std::exit(1);
}

std::unique_ptr<Module> Load(LLVMContext& context, StringRef file)
{
    auto buffer = MemoryBuffer::getFile(file);
    if (!buffer)
        Fail(file + ": " + buffer.getError().message());
    auto parsed = parseBitcodeFile((*buffer)->getMemBufferRef(), context);
    if (!parsed)
        Fail(file + ": " + toString(parsed.takeError()));
    return std::move(*parsed);
}

// Of a node's table only the function and the size of the record are kept: { compute, words }.
void ShrinkTable(Module& module, GlobalVariable& table)
{
    const auto* const fields = dyn_cast<ConstantStruct>(table.getInitializer());
    Constant* compute = nullptr;
    for (unsigned i = 0; fields && i < fields->getNumOperands(); ++i)
    {
        auto* const function = dyn_cast<Function>(fields->getOperand(i)->stripPointerCasts());
        if (!compute && function && function->arg_size() == 3)
            compute = function;
    }
    if (!compute)
        Fail(table.getName() + " is no table of a node");
    Constant* const words = fields->getOperand(3);
    Constant* const kept = ConstantStruct::getAnon({compute, words});
    auto* const made = new GlobalVariable(module, kept->getType(), true, GlobalValue::ExternalLinkage, kept, "");
    made->takeName(&table);
    table.eraseFromParent();
}

// The functions that the host ships get the names that they are looked for by.
void NameFunctions(Module& module)
{
    std::vector<GlobalVariable*> tables;
    for (GlobalVariable& global : module.globals())
    {
        if (global.getName().startswith("velto.host:"))
            tables.push_back(&global);
    }
    for (GlobalVariable* const table : tables)
    {
        const Constant* functions = table->getInitializer();
        while (isa<ConstantStruct>(functions)) // std::array
            functions = cast<Constant>(functions->getOperand(0));
        for (unsigned i = 0; i < functions->getNumOperands(); ++i)
        {
            auto* const function = cast<Function>(functions->getOperand(i));
            function->setName(table->getName() + ":" + Twine(i));
            function->setLinkage(GlobalValue::ExternalLinkage);
            function->setComdat(nullptr);
        }
        table->eraseFromParent();
    }
}

// Records of data types that the host knows by name begin as static construction leaves them; a type of the module's
// own is another one in every copy of its record, and its record stays empty.
void FillDataTypes(Module& module)
{
    constexpr StringLiteral kBefore = "_ZN5velto6detail16DataTypeRecordOfI";
    constexpr StringLiteral kAfter = "E6recordE";
    for (GlobalVariable& record : module.globals())
    {
        const StringRef name = record.getName();
        if (!name.startswith(kBefore) || !name.endswith(kAfter) || !record.hasInitializer())
            continue;
        const StringRef type = name.drop_front(kBefore.size()).drop_back(kAfter.size());
        Function* const getter =
            module.getFunction(("_ZN5velto14DataTypeTraitsI" + type + "E3GetEPPKNS_8DataTypeE").str());
        const bool isOwn =
            module.getNamedGlobal(("_ZZN5velto14DataTypeTraitsI" + type + "E3GetEPPKNS_8DataTypeEE10operations").str());
        if (!getter || isOwn)
            continue;
        auto* const null = ConstantPointerNull::get(PointerType::get(module.getContext(), 0));
        auto* const outer = cast<StructType>(record.getValueType());
        auto* const inner = cast<StructType>(outer->getElementType(0));
        record.setInitializer(ConstantStruct::get(outer, ConstantStruct::get(inner, {null, null, getter})));
    }
}

void Run(Module& module)
{
    FillDataTypes(module);
    for (const char* name : {"llvm.global_ctors", "llvm.global_dtors", "llvm.used", "llvm.compiler.used"})
    {
        if (GlobalVariable* const global = module.getGlobalVariable(name))
            global->eraseFromParent();
    }
    StripDebugInfo(module);
    NameFunctions(module);
    std::vector<GlobalVariable*> tables;
    for (GlobalVariable& global : module.globals())
    {
        if (global.getName().startswith("velto.node:"))
            tables.push_back(&global);
    }
    for (GlobalVariable* const table : tables)
        ShrinkTable(module, *table);
    PassBuilder builder;
    LoopAnalysisManager loops;
    FunctionAnalysisManager functions;
    CGSCCAnalysisManager graphs;
    ModuleAnalysisManager modules;
    builder.registerModuleAnalyses(modules);
    builder.registerCGSCCAnalyses(graphs);
    builder.registerFunctionAnalyses(functions);
    builder.registerLoopAnalyses(loops);
    builder.crossRegisterProxies(loops, functions, graphs, modules);
    ModulePassManager passes;
    // What the host fills in stays a name.
    passes.addPass(InternalizePass([](const GlobalValue& value) {
        return value.getName().startswith("velto.") || value.getName().startswith("_ZN5velto5slotsI");
    }));
    passes.addPass(GlobalDCEPass());
    passes.addPass(GlobalOptPass()); // static values that nobody changes are constants
    passes.addPass(GlobalDCEPass());
    passes.run(module, modules);
    for (GlobalVariable& global : module.globals())
    {
        if (!global.getName().startswith("_ZN5velto5slotsI"))
            continue;
        global.setInitializer(nullptr);
        global.setComdat(nullptr);
        global.setLinkage(GlobalValue::ExternalLinkage);
    }
}

} // namespace

int main(int count, char** arguments)
{
    if (count < 4)
        Fail("needs OUT, MODULE and bitcode");
    LLVMContext context;
    Module module("velto", context);
    Linker linker(module);
    for (int i = 3; i < count; ++i)
    {
        if (linker.linkInModule(Load(context, arguments[i])))
            Fail(Twine(arguments[i]) + " does not link");
    }
    Run(module);
    const bool hasHead = StringRef(arguments[2]) != "-";
    const std::string id = hasHead ? velto::host::BuildIdOfFile(arguments[2]) : std::string();
    if (hasHead && id.empty())
        Fail(Twine(arguments[2]) + " has no build id");
    std::error_code error;
    raw_fd_ostream out(arguments[1], error);
    if (error)
        Fail(Twine(arguments[1]) + ": " + error.message());
    SmallVector<char> bytes;
    BitcodeWriter writer(bytes);
    writer.writeModule(module);
    writer.writeSymtab();
    writer.writeStrtab();
    if (hasHead)
        out << velto::host::BitcodeHead(id, bytes.size());
    out.write(bytes.data(), bytes.size());
    out.close();
    return 0;
}
