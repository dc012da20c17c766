// Functions of the program that nodes invoke.
#include "emit.h"

namespace velto::host::fuse
{

using namespace llvm;

// A function of the program as a node sees it: an object whose functions are here.
llvm::Constant* Emitter::FunctionValue(const FunctionPlan& plan)
{
    llvm::Constant*& value = functionValues_[plan.place.offset];
    if (value)
        return value;
    Function* const isConstant =
        Function::Create(FunctionType::get(Type::getInt1Ty(context_), ArrayRef<Type*>(pointer_), false),
            GlobalValue::InternalLinkage, "isconstant", module_);
    isConstant->addRetAttr(Attribute::ZExt);
    roots_.insert(isConstant);
    IRBuilder<>(BasicBlock::Create(context_, "", isConstant)).CreateRet(ConstantInt::getBool(context_, plan.body < 0));
    Function* const invoke = Invoker(plan);
    llvm::Constant* const object = Constant(ConstantStruct::getAnon({ConstantInt::get(word_, kImmortal),
                                                ConstantPointerNull::get(pointer_), invoke, isConstant}),
        "function");
    return functionValues_[plan.place.offset] = Constant(object, "functionvalue");
}

// Result (const FunctionInterface* self, void* value, const ShadingContext* context, Data* cache)
Function* Emitter::Invoker(const FunctionPlan& plan)
{
    auto* const type =
        FunctionType::get(Type::getVoidTy(context_), {pointer_, pointer_, pointer_, pointer_, pointer_}, false);
    Function* const invoke = Function::Create(type, GlobalValue::InternalLinkage, "invoke", module_);
    invoke->addFnAttr(Attribute::NoUnwind);
    invoke->addFnAttr(Attribute::AlwaysInline);
    invoke->addParamAttr(
        0, Attribute::get(context_, Attribute::StructRet, StructType::get(context_, ArrayRef<Type*>(pointer_))));
    roots_.insert(invoke);
    IRBuilder<>::InsertPointGuard guard(builder_);
    Function* const body = plan.body >= 0 ? Body(static_cast<std::size_t>(plan.body)) : nullptr;
    builder_.SetInsertPoint(BasicBlock::Create(context_, "", invoke));
    Value* error = ConstantPointerNull::get(pointer_);
    if (body)
    {
        Function* const frame = Declare(kFrameMark, FunctionType::get(pointer_, false));
        frame->setDoesNotAccessMemory();
        frame->addFnAttr(Attribute::WillReturn);
        frame->addFnAttr(Attribute::NoUnwind);
        Function* const count = Declare(kCountMark, FunctionType::get(Type::getVoidTy(context_), {word_}, false));
        builder_.CreateCall(count, {ConstantInt::get(word_, static_cast<std::uint64_t>(plan.body))});
        error = builder_.CreateCall(body, {builder_.CreateCall(frame), invoke->getArg(3), invoke->getArg(2)});
    }
    else
        builder_.CreateMemCpy(invoke->getArg(2), Align(plan.type->operations.alignment),
            SetupValue(plan.constant.offset), Align(8), plan.type->operations.size);
    builder_.CreateStore(error, invoke->getArg(0));
    builder_.CreateRetVoid();
    return invoke;
}

} // namespace velto::host::fuse
