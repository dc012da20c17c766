#include "bitcode.h"

#include "buildid.h"

#include <llvm/Bitcode/BitcodeReader.h>
#include <llvm/IR/Constants.h>
#include <llvm/IR/Instructions.h>
#include <llvm/Support/MemoryBuffer.h>

#include <dlfcn.h>

#include <cmath>
#include <cstring>

extern "C" struct
{
    unsigned vendor, type, subtype, features[1];
} __cpu_model; // the compiler's, which bitcode names

namespace velto::host::fuse
{

using namespace llvm;

UnaryFunction FindUnary(StringRef name)
{
    static const std::pair<const char*, UnaryFunction> all[] = {{"acos", &std::acos}, {"asin", &std::asin},
        {"atan", &std::atan}, {"cbrt", &std::cbrt}, {"cos", &std::cos}, {"exp", &std::exp}, {"exp2", &std::exp2},
        {"log", &std::log}, {"log10", &std::log10}, {"log2", &std::log2}, {"sin", &std::sin}, {"tan", &std::tan}};
    for (const auto& [known, function] : all)
    {
        if (name == known)
            return function;
    }
    return nullptr;
}

BinaryFunction FindBinary(StringRef name)
{
    static const std::pair<const char*, BinaryFunction> all[] = {
        {"atan2", &std::atan2}, {"fmod", &std::fmod}, {"hypot", &std::hypot}, {"pow", &std::pow}};
    for (const auto& [known, function] : all)
    {
        if (name == known)
            return function;
    }
    return nullptr;
}

std::unique_ptr<Bitcode> Bitcode::Open(LLVMContext& context, const std::string& moduleFile, std::string& reason)
{
    const std::string file = moduleFile.substr(0, moduleFile.rfind('.')) + ".bc";
    auto buffer = MemoryBuffer::getFile(file, false, false);
    if (!buffer)
    {
        reason = file + ": " + buffer.getError().message();
        return nullptr;
    }
    const StringRef all = (*buffer)->getBuffer();
    const std::size_t size = all.size() < kBitcodeHead ? 0 : all.size() - kBitcodeHead;
    if (size == 0 || all.substr(0, kBitcodeHead) != BitcodeHead(BuildIdOfFile(moduleFile.c_str()), size))
    {
        reason = file + " is damaged, or belongs to another build of the module";
        return nullptr;
    }
    // Bitcode wants to begin where words do; the head is a multiple of them.
    auto body = MemoryBuffer::getMemBufferCopy(all.substr(kBitcodeHead), file);
    auto module = getOwningLazyBitcodeModule(std::move(body), context);
    if (!module)
    {
        reason = file + ": " + toString(module.takeError());
        return nullptr;
    }
    return std::unique_ptr<Bitcode>(new Bitcode(std::move(*module)));
}

namespace
{

std::string SlotsOf(std::string_view type)
{
    const std::string_view name = type.substr(type.rfind(':') + 1);
    return "_ZN5velto5slotsINS_" + std::to_string(name.size()) + std::string(name) + "EEE";
}

// Words are numbers and addresses alike.
Constant* WordsOf(LLVMContext& context, const void* data, std::size_t size)
{
    std::vector<std::uint64_t> words((size + 7) / 8, 0);
    std::memcpy(words.data(), data, size);
    return ConstantDataArray::get(context, ArrayRef<std::uint64_t>(words));
}

void ReplaceByConstant(GlobalVariable& variable, Constant* value)
{
    auto* const made =
        new GlobalVariable(*variable.getParent(), value->getType(), true, GlobalValue::PrivateLinkage, value, "fixed");
    made->setAlignment(Align(16));
    variable.replaceAllUsesWith(made);
}

} // namespace

bool Bitcode::SettleVariable(GlobalVariable& variable, const FuseRequest& request)
{
    const StringRef name = variable.getName();
    if (variable.hasInitializer() || name.startswith("fixed"))
        return !variable.isThreadLocal() &&
               !(name.contains("DataTypeRecordOf") && variable.getInitializer()->isNullValue());
    constexpr StringLiteral kInterned = "velto.interned:";
    if (name.startswith(kInterned))
    {
        const StringRef text = name.substr(kInterned.size());
        const InternedId id = request.intern({text.data(), text.size()});
        ReplaceByConstant(variable, WordsOf(variable.getContext(), &id, sizeof(id)));
        return true;
    }
    for (const FuseInterface& known : request.interfaces)
    {
        if (name == SlotsOf(known.type))
        {
            ReplaceByConstant(variable, WordsOf(variable.getContext(), known.slots, known.size));
            return true;
        }
    }
    if (name == "__cpu_model")
    {
        __builtin_cpu_init();
        ReplaceByConstant(variable, WordsOf(variable.getContext(), &__cpu_model, sizeof(__cpu_model)));
        return true;
    }
    return dlsym(RTLD_DEFAULT, name.str().c_str()) != nullptr;
}

bool Bitcode::Settle(GlobalValue& value, const FuseRequest& request)
{
    if (auto* const variable = dyn_cast<GlobalVariable>(&value))
        return SettleVariable(*variable, request);
    if (auto* const function = dyn_cast<Function>(&value))
    {
        const bool isThere = !function->isDeclaration() || function->isMaterializable();
        return isThere || function->isIntrinsic() || dlsym(RTLD_DEFAULT, function->getName().str().c_str());
    }
    return false; // an alias
}

bool Bitcode::Reach(Function& from, const FuseRequest& request)
{
    std::vector<GlobalValue*> open{&from};
    std::set<GlobalValue*> seen{&from};
    std::set<const Constant*> constants;
    const auto visit = [&](const Constant* root) {
        std::vector<const Constant*> stack{root};
        while (!stack.empty())
        {
            const Constant* const constant = stack.back();
            stack.pop_back();
            if (!constants.insert(constant).second)
                continue;
            if (auto* const global = dyn_cast<GlobalValue>(constant))
            {
                auto* const value = const_cast<GlobalValue*>(global);
                if (!reached_.contains(value) && seen.insert(value).second)
                    open.push_back(value);
                continue;
            }
            for (const Use& use : constant->operands())
                stack.push_back(cast<Constant>(use.get()));
        }
    };
    std::vector<GlobalValue*> settled;
    while (!open.empty())
    {
        GlobalValue* const value = open.back();
        open.pop_back();
        if (Error failed = value->materialize())
        {
            consumeError(std::move(failed));
            return false;
        }
        settled.push_back(value);
        if (auto* const function = dyn_cast<Function>(value))
        {
            for (const BasicBlock& block : *function)
            {
                for (const Instruction& instruction : block)
                {
                    for (const Use& use : instruction.operands())
                    {
                        if (auto* const constant = dyn_cast<Constant>(use.get()))
                            visit(constant);
                    }
                }
            }
        }
        else if (auto* const variable = dyn_cast<GlobalVariable>(value); variable && variable->hasInitializer())
            visit(variable->getInitializer());
    }
    for (GlobalValue* const value : settled)
    {
        if (!Settle(*value, request))
            return false;
    }
    reached_.insert(settled.begin(), settled.end());
    return true;
}

NodeCode Bitcode::Find(std::string_view nodeId, const FuseRequest& request)
{
    GlobalVariable* const entry = module_->getNamedGlobal("velto.node:" + std::string(nodeId));
    const auto* const fields =
        entry && entry->hasInitializer() ? dyn_cast<ConstantStruct>(entry->getInitializer()) : nullptr;
    if (!fields)
        return {};
    auto* const compute = dyn_cast<Function>(fields->getOperand(0));
    if (!compute || (!reached_.contains(compute) && !Reach(*compute, request)))
        return {};
    return {compute, static_cast<UInt32>(cast<ConstantInt>(fields->getOperand(1))->getZExtValue())};
}

Error Bitcode::KeepReached(const std::set<Function*>& roots)
{
    std::vector<GlobalVariable*> tables;
    for (GlobalVariable& variable : module_->globals())
    {
        if (variable.getName().startswith("velto.node:"))
            tables.push_back(&variable);
    }
    for (GlobalVariable* const table : tables)
        table->eraseFromParent();
    for (Function& function : *module_)
    {
        if (roots.contains(&function) || reached_.contains(&function) || !function.isMaterializable())
            continue;
        function.deleteBody(); // of what is not materialized
        function.setComdat(nullptr);
        function.setLinkage(GlobalValue::ExternalLinkage);
    }
    if (Error failed = module_->materializeAll())
        return failed;
    for (GlobalVariable& variable : module_->globals())
    {
        variable.setComdat(nullptr);
        if (variable.hasInitializer() && !variable.hasAppendingLinkage())
            variable.setLinkage(GlobalValue::InternalLinkage);
    }
    for (Function& function : *module_)
    {
        function.setComdat(nullptr);
        if (!function.isDeclaration() && !roots.contains(&function))
            function.setLinkage(GlobalValue::InternalLinkage);
    }
    return Error::success();
}

} // namespace velto::host::fuse
