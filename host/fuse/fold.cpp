#include "fold.h"

#include <llvm/Bitcode/BitcodeReader.h>
#include <llvm/IR/Constants.h>
#include <llvm/IR/Instructions.h>
#include <llvm/Linker/IRMover.h>
#include <llvm/Support/MemoryBuffer.h>

#include <dlfcn.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>

namespace velto::host::fuse
{

using namespace llvm;

namespace
{

// Stands for every error: a row that fails is made again by calls, which make the error that is reported.
ErrorObject& TheFailure()
{
    static ErrorObject& failure = *[] {
        auto* const made = new ErrorObject;
        made->references = kImmortal;
        return made;
    }();
    return failure;
}

// False where there is no such memory, as in code that is not reached.
bool ReadMemory(std::uint64_t address, void* to, std::size_t size)
{
    const iovec local{to, size};
    const iovec remote{reinterpret_cast<void*>(address), size};
    return process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size);
}

Constant* ReadConstant(std::uint64_t address, Type* type, const DataLayout& layout)
{
    const bool isKnown = type->isPointerTy() || type->isDoubleTy() || type->isFloatTy() ||
                         (type->isIntegerTy() && type->getIntegerBitWidth() % 8 == 0);
    const std::size_t size = layout.getTypeStoreSize(type).getFixedValue();
    std::array<std::uint64_t, 2> bits{};
    if (!isKnown || size > sizeof(bits) || !ReadMemory(address, bits.data(), size))
        return nullptr;
    LLVMContext& context = type->getContext();
    const APInt number(static_cast<unsigned>(size * 8), bits);
    if (type->isPointerTy())
        return bits[0] == 0 ? static_cast<Constant*>(ConstantPointerNull::get(cast<PointerType>(type)))
                            : ConstantExpr::getIntToPtr(ConstantInt::get(Type::getInt64Ty(context), bits[0]), type);
    if (type->isDoubleTy())
        return ConstantFP::get(context, APFloat(APFloat::IEEEdouble(), number));
    if (type->isFloatTy())
        return ConstantFP::get(context, APFloat(APFloat::IEEEsingle(), number));
    return ConstantInt::get(context, number);
}

} // namespace

std::uint64_t AddressIn(const Value* pointer, const DataLayout& layout)
{
    APInt offset(64, 0);
    const Value* const base = pointer->stripAndAccumulateConstantOffsets(layout, offset, true);
    const auto* const expression = dyn_cast<ConstantExpr>(base);
    const auto* const number = expression && expression->getOpcode() == Instruction::IntToPtr
                                   ? dyn_cast<ConstantInt>(expression->getOperand(0))
                                   : nullptr;
    return number ? number->getZExtValue() + offset.getZExtValue() : 0;
}

Folder::Folder(const FuseRequest& request, llvm::Module& module) : request_(request), module_(module)
{
    for (const FuseTable& table : request.tables)
    {
        for (std::size_t i = 0; i < table.functions.size(); ++i)
            shipped_[reinterpret_cast<std::uint64_t>(table.functions[i])] = ShippedName(table.name, i);
    }
}

Expected<bool> Folder::Run()
{
    bool any = false;
    for (Function& function : module_)
    {
        any |= FoldLoads(function);
        any |= FoldCalls(function);
    }
    any |= FoldMathematics();
    if (!wanted_.empty())
    {
        if (Error failed = Import())
            return failed;
    }
    return any;
}

// Threads sample at once and without locks, so what a plain load reads there is as the setup has left it.
bool Folder::FoldLoads(Function& function)
{
    const DataLayout& layout = module_.getDataLayout();
    bool any = false;
    for (BasicBlock& block : function)
    {
        for (Instruction& instruction : make_early_inc_range(block))
        {
            auto* const load = dyn_cast<LoadInst>(&instruction);
            const std::uint64_t address = load && load->isSimple() ? AddressIn(load->getPointerOperand(), layout) : 0;
            Constant* const value = address ? ReadConstant(address, load->getType(), layout) : nullptr;
            if (!value)
                continue;
            load->replaceAllUsesWith(value);
            load->eraseFromParent();
            any = true;
        }
    }
    return any;
}

bool Folder::FoldCalls(Function& function)
{
    const DataLayout& layout = module_.getDataLayout();
    bool any = false;
    for (BasicBlock& block : function)
    {
        for (Instruction& instruction : make_early_inc_range(block))
        {
            auto* const call = dyn_cast<CallInst>(&instruction);
            const std::uint64_t address = call ? AddressIn(call->getCalledOperand(), layout) : 0;
            if (address == 0)
                continue;
            if (address == reinterpret_cast<std::uint64_t>(request_.makeError))
            {
                call->replaceAllUsesWith(
                    ConstantExpr::getIntToPtr(ConstantInt::get(Type::getInt64Ty(call->getContext()),
                                                  reinterpret_cast<std::uint64_t>(&TheFailure())),
                        call->getType()));
                call->eraseFromParent();
                any = true;
                continue;
            }
            const auto found = shipped_.find(address);
            if (found == shipped_.end())
                continue;
            Function* known = module_.getFunction(found->second);
            if (!known)
            {
                known = Function::Create(call->getFunctionType(), GlobalValue::ExternalLinkage, found->second, module_);
                wanted_.insert(found->second);
            }
            call->setCalledFunction(known);
            any = true;
        }
    }
    return any;
}

// By the very functions that would be called.
bool Folder::FoldMathematics()
{
    bool any = false;
    for (Function& callee : module_)
    {
        const UnaryFunction unary = callee.isDeclaration() ? FindUnary(callee.getName()) : nullptr;
        const BinaryFunction binary = callee.isDeclaration() ? FindBinary(callee.getName()) : nullptr;
        if (!unary && !binary)
            continue;
        for (User* const user : make_early_inc_range(callee.users()))
        {
            auto* const call = dyn_cast<CallInst>(user);
            if (!call || call->getCalledFunction() != &callee)
                continue;
            const auto value = [&](unsigned i) { return dyn_cast<ConstantFP>(call->getArgOperand(i)); };
            const auto number = [&](unsigned i) { return value(i)->getValueAPF().convertToDouble(); };
            if (!call->getType()->isDoubleTy() || call->arg_size() != (unary ? 1u : 2u) || !value(0) ||
                (binary && !value(1)))
                continue;
            const double result = unary ? unary(number(0)) : binary(number(0), number(1));
            call->replaceAllUsesWith(ConstantFP::get(call->getType(), APFloat(result)));
            call->eraseFromParent();
            any = true;
        }
    }
    return any;
}

// The bodies of what is wanted, with what they call.
Error Folder::Import()
{
    const auto buffer = MemoryBuffer::getMemBuffer(HostBitcode(), "host", false);
    auto host = getLazyBitcodeModule(buffer->getMemBufferRef(), module_.getContext());
    if (!host)
        return host.takeError();
    std::vector<GlobalValue*> values;
    for (const std::string& name : wanted_)
    {
        Function* const function = (*host)->getFunction(name);
        if (!function)
            return createStringError(inconvertibleErrorCode(), "the host's bitcode has no %s", name.c_str());
        if (Error failed = function->materialize())
            return failed;
        values.push_back(function);
    }
    (*host)->setDataLayout(module_.getDataLayout());
    std::set<const Function*> before;
    for (const Function& function : module_)
        before.insert(&function);
    IRMover mover(module_);
    if (Error failed = mover.move(std::move(*host), values, nullptr, false))
        return failed;
    for (const std::string& name : wanted_)
        module_.getFunction(name)->setLinkage(GlobalValue::InternalLinkage);
    wanted_.clear();
    for (const Function& function : module_)
    {
        if (!before.contains(&function) && function.isDeclaration() && !function.isIntrinsic() &&
            !dlsym(RTLD_DEFAULT, function.getName().str().c_str()))
            return createStringError(inconvertibleErrorCode(), "there is no %s", function.getName().str().c_str());
    }
    return Error::success();
}

} // namespace velto::host::fuse
