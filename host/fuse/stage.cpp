#include "stage.h"

#include <llvm/Analysis/CFG.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/IntrinsicInst.h>

#include <algorithm>
#include <stdexcept>

namespace velto::host::fuse
{

using namespace llvm;

namespace
{

constexpr std::uint64_t kBlock = 64; // samples that go from stage to stage

} // namespace

void Stager::EmitCalls()
{
    for (const CallPlan& call : request_.program->bodies[0].calls)
    {
        for (const UInt32 output : codes_.emplace_back(emitter_.EmitCallFunction(call)).outputs)
            producers_[output] = codes_.size() - 1;
    }
}

// What cannot be vectorised: calls, loops, failures.
bool Stager::IsOpaque(const CallCode& code) const
{
    SmallVector<std::pair<const BasicBlock*, const BasicBlock*>> backEdges;
    FindFunctionBackedges(*code.function, backEdges);
    if (!backEdges.empty())
        return true;
    for (const BasicBlock& block : *code.function)
    {
        for (const Instruction& instruction : block)
        {
            if (const auto* const end = dyn_cast<ReturnInst>(&instruction))
            {
                if (!isa<ConstantPointerNull>(end->getReturnValue()))
                    return true;
            }
            const auto* const call = dyn_cast<CallBase>(&instruction);
            const Function* const callee = call ? call->getCalledFunction() : nullptr;
            const bool isPlain = !call || isa<IntrinsicInst>(call) ||
                                 (callee && (callee->getName() == kCountMark || callee->getName() == kFrameMark));
            if (!isPlain)
                return true;
        }
    }
    return false;
}

// Whether it costs less to run a call again than to keep what it gives: a context, which is mostly not looked at.
bool Stager::CanRepeat(std::size_t call) const
{
    if (opaque_[call])
        return false;
    for (const BasicBlock& block : *codes_[call].function)
    {
        for (const Instruction& instruction : block)
        {
            const auto* const made = dyn_cast<CallBase>(&instruction);
            if (made && made->getCalledFunction() && made->getCalledFunction()->getName() == kCountMark)
                return false; // would count twice
        }
    }
    return true;
}

// Adds a call with what it needs.
void Stager::Join(Stage& stage, std::size_t index)
{
    const std::size_t mine = static_cast<std::size_t>(&stage - stages_.data());
    std::vector<std::size_t> open{index};
    while (!open.empty())
    {
        const std::size_t call = open.back();
        open.pop_back();
        if (std::find(stage.calls.begin(), stage.calls.end(), call) != stage.calls.end())
            continue;
        stage.calls.push_back(call);
        for (const UInt32 input : codes_[call].inputs)
        {
            const std::size_t producer = producers_.at(input);
            if (stageOf_[producer] == mine)
                continue;
            if (SizeOf(input) == sizeof(ShadingContext) && CanRepeat(producer))
            {
                open.push_back(producer);
                continue;
            }
            stage.loads.insert(input);
            stages_[stageOf_[producer]].stores.insert(input);
        }
    }
}

std::size_t Stager::SizeOf(UInt32 offset) const
{
    return Splitter::IsOwn(offset) ? splitter_.SizeOf(offset) : emitter_.SizeOf(offset);
}

// Takes calls apart where that makes for faster parts.
void Stager::SplitCalls(const std::function<void(Function&)>& simplify)
{
    std::vector<CallCode> parts;
    for (const CallCode& code : codes_)
    {
        for (CallCode& part : splitter_.Split(code))
        {
            if (part.function && part.function != code.function)
                simplify(*part.function);
            parts.push_back(std::move(part));
        }
    }
    codes_ = std::move(parts);
    producers_.clear();
    for (std::size_t i = 0; i < codes_.size(); ++i)
    {
        for (const UInt32 output : codes_[i].outputs)
            producers_[output] = i;
    }
}

void Stager::MakeStages(const std::function<void(Function&)>& simplify)
{
    const bool isWhole =
        std::any_of(codes_.begin(), codes_.end(), [](const CallCode& code) { return code.sharesFrame; });
    if (!isWhole)
        SplitCalls(simplify);
    for (const CallCode& code : codes_)
        opaque_.push_back(code.form || IsOpaque(code));
    for (std::size_t i = 0; i < codes_.size(); ++i)
    {
        // What the thread's frame holds, it holds for one sample.
        const bool isApart = i > 0 && (codes_[i].form || codes_[i - 1].form);
        if (stages_.empty() || isApart || (!isWhole && stages_.back().isOpaque != opaque_[i]))
            stages_.emplace_back().isOpaque = opaque_[i];
        stageOf_.push_back(stages_.size() - 1);
    }
    if (stages_.empty())
        stages_.emplace_back();
    for (std::size_t i = 0; i < codes_.size(); ++i)
        Join(stages_[stageOf_[i]], i);
    for (Stage& stage : stages_)
        std::sort(stage.calls.begin(), stage.calls.end());
    for (std::size_t i = 0; i < request_.shape.values.size(); ++i)
    {
        const Address from = request_.program->outputs[request_.shape.values[i].output].value;
        const auto producer = producers_.find(from.offset);
        const bool isMade = from.store == Store::Frame && producer != producers_.end();
        stages_[isMade ? stageOf_[producer->second] : 0].outputs.push_back(i);
    }
}

// ptr (ptr lanes, ptr shared, ptr frame, i64 count, ptr values, ptr runs): blocks of samples, each from stage to stage.
void Stager::EmitKernel(const std::function<void(Function&)>& simplify)
{
    MakeStages(simplify);
    emitter_.ForgetConstants();
    PlaceArrays();
    IRBuilder<>& builder = emitter_.Builder();
    Type* const word = builder.getInt64Ty();
    Type* const pointer = builder.getPtrTy();
    Function* const function =
        Function::Create(FunctionType::get(pointer, {pointer, pointer, pointer, word, pointer, pointer}, false),
            GlobalValue::ExternalLinkage, kKernelName, emitter_.Module());
    function->addFnAttr(Attribute::NoUnwind);
    const auto block = [&](const char* name) { return BasicBlock::Create(builder.getContext(), name, function); };
    BasicBlock* const entry = block("entry");
    BasicBlock* const blocks = block("blocks");
    BasicBlock* const done = block("done");
    IRBuilder<>(done).CreateRet(Constant::getNullValue(pointer));
    builder.SetInsertPoint(entry);
    Value* const arrays = emitter_.Alloca(function, arraysSize_);
    Value* const count = function->getArg(3);
    builder.CreateCondBr(builder.CreateICmpSGT(count, builder.getInt64(0)), blocks, done);
    builder.SetInsertPoint(blocks);
    PHINode* const first = builder.CreatePHI(word, 2);
    first->addIncoming(builder.getInt64(0), entry);
    Value* const left = builder.CreateNSWSub(count, first);
    Value* const most = stages_.size() == 1
                            ? left
                            : builder.CreateSelect(builder.CreateICmpSLT(left, builder.getInt64(kBlock)), left,
                                  builder.getInt64(kBlock));
    for (const Stage& stage : stages_)
    {
        const CallCode* const only = stage.calls.size() == 1 ? &codes_[stage.calls[0]] : nullptr;
        Function* const made = only && only->form ? EmitForm(*only) : EmitStage(stage);
        Value* const error =
            builder.CreateCall(made, {function->getArg(0), function->getArg(1), function->getArg(2), first, most,
                                         function->getArg(4), function->getArg(5), arrays});
        BasicBlock* const next = block("next");
        BasicBlock* const fail = block("fail");
        builder.CreateCondBr(builder.CreateIsNull(error), next, fail);
        IRBuilder<>(fail).CreateRet(error);
        builder.SetInsertPoint(next);
    }
    Value* const next = builder.CreateNSWAdd(first, most);
    first->addIncoming(next, builder.GetInsertBlock());
    builder.CreateCondBr(builder.CreateICmpSLT(next, count), blocks, done);
    for (const CallCode& code : codes_)
    {
        if (!code.function)
            continue;
        code.function->setLinkage(GlobalValue::InternalLinkage);
        code.function->addFnAttr(Attribute::AlwaysInline);
    }
}

// Where values lie between stages.
void Stager::PlaceArrays()
{
    for (const Stage& stage : stages_)
    {
        for (const UInt32 offset : stage.stores)
        {
            arrays_[offset] = arraysSize_;
            arraysSize_ += (SizeOf(offset) * kBlock + 63) / 64 * 64;
        }
    }
}

// ptr (ptr lanes, ptr shared, ptr frame, i64 first, i64 count, ptr values, ptr runs, ptr arrays). A function of its
// own: compilers take their time over large ones.
Function* Stager::MakeStageFunction()
{
    IRBuilder<>& builder = emitter_.Builder();
    Type* const word = builder.getInt64Ty();
    Type* const pointer = builder.getPtrTy();
    Function* const made = Function::Create(
        FunctionType::get(pointer, {pointer, pointer, pointer, word, word, pointer, pointer, pointer}, false),
        GlobalValue::InternalLinkage, kStageName, emitter_.Module());
    made->addFnAttr(Attribute::NoUnwind);
    made->addFnAttr(Attribute::NoInline);
    made->addParamAttr(7, Attribute::NoAlias);
    return made;
}

Value* Stager::ArrayOf(Function* stage, UInt32 offset)
{
    IRBuilder<>& builder = emitter_.Builder();
    return builder.CreateConstGEP1_64(builder.getInt8Ty(), stage->getArg(7), arrays_.at(offset));
}

// One call for all samples of the block.
Function* Stager::EmitForm(const CallCode& code)
{
    IRBuilder<>& builder = emitter_.Builder();
    const IRBuilder<>::InsertPointGuard guard(builder);
    Type* const word = builder.getInt64Ty();
    Type* const pointer = builder.getPtrTy();
    Function* const function = MakeStageFunction();
    builder.SetInsertPoint(BasicBlock::Create(builder.getContext(), "entry", function));
    const auto addressOf = [&](const void* place) {
        return ConstantExpr::getIntToPtr(builder.getInt64(reinterpret_cast<std::uintptr_t>(place)), pointer);
    };
    static_assert(sizeof(BlockArgument) == 16);
    Value* const arguments = emitter_.Alloca(function, sizeof(BlockArgument) * code.arguments.size());
    for (std::size_t i = 0; i < code.arguments.size(); ++i)
    {
        const CallCode::Argument& argument = code.arguments[i];
        Value* const values =
            argument.constant ? emitter_.Constant(argument.constant, "argument") : ArrayOf(function, argument.offset);
        builder.CreateStore(values, builder.CreateConstGEP1_64(pointer, arguments, 2 * i));
        builder.CreateStore(
            builder.getInt64(argument.constant ? 1 : 0), builder.CreateConstGEP1_64(word, arguments, 2 * i + 1));
    }
    const auto result = arrays_.find(code.outputs[0]);
    if (result != arrays_.end())
        builder.CreateCall(FunctionType::get(builder.getVoidTy(), {pointer, word, pointer, pointer}, false),
            addressOf(reinterpret_cast<const void*>(code.form->block)),
            {code.self, function->getArg(4), arguments, ArrayOf(function, code.outputs[0])});
    builder.CreateRet(Constant::getNullValue(pointer));
    return function;
}

// A loop over `count` samples from `first` on.
Function* Stager::EmitStage(const Stage& stage)
{
    IRBuilder<>& builder = emitter_.Builder();
    const IRBuilder<>::InsertPointGuard guard(builder);
    Type* const word = builder.getInt64Ty();
    Type* const pointer = builder.getPtrTy();
    Function* const function = MakeStageFunction();
    const auto block = [&](const char* name) { return BasicBlock::Create(builder.getContext(), name, function); };
    BasicBlock* const entry = block("entry");
    BasicBlock* const loop = block("loop");
    BasicBlock* const after = block("after");
    BasicBlock* const fail = block("fail");
    IRBuilder<>(after).CreateRet(Constant::getNullValue(pointer));
    builder.SetInsertPoint(entry);
    Loop at{function, emitter_.Alloca(function, sizeof(ShadingContext)), fail, IRBuilder<>(fail).CreatePHI(pointer, 4),
        {}, {}, nullptr, nullptr};
    IRBuilder<>(fail).CreateRet(at.error);
    builder.CreateMemCpy(at.context, Align(8), function->getArg(1), Align(8), sizeof(ShadingContext));
    const auto pointers = [&](unsigned argument, std::size_t count) {
        std::vector<Value*> all;
        for (std::size_t i = 0; i < count; ++i)
            all.push_back(
                builder.CreateLoad(pointer, builder.CreateConstGEP1_64(pointer, function->getArg(argument), i)));
        return all;
    };
    at.lanes = pointers(0, request_.shape.lanes.size());
    at.values = pointers(5, request_.shape.values.size());
    builder.CreateBr(loop);
    builder.SetInsertPoint(loop);
    PHINode* const index = builder.CreatePHI(word, 2);
    index->addIncoming(builder.getInt64(0), entry);
    at.index = index;
    at.sample = builder.CreateNSWAdd(function->getArg(3), index);
    EmitSample(at, stage);
    Value* const next = builder.CreateNSWAdd(index, builder.getInt64(1));
    index->addIncoming(next, builder.GetInsertBlock());
    builder.CreateCondBr(builder.CreateICmpSLT(next, function->getArg(4)), loop, after);
    return function;
}

void Stager::EmitSample(Loop& at, const Stage& stage)
{
    IRBuilder<>& builder = emitter_.Builder();
    FillContext(at);
    std::map<UInt32, Value*> places;
    for (const UInt32 offset : stage.loads)
    {
        const std::size_t size = SizeOf(offset);
        places[offset] = emitter_.Alloca(at.function, size);
        CopyValue(at, offset, places[offset], false);
    }
    RunCalls(at, stage, places);
    for (const UInt32 offset : stage.stores)
        CopyValue(at, offset, places.at(offset), true);
    for (const std::size_t i : stage.outputs)
    {
        const SampleShape::Value& value = request_.shape.values[i];
        const Address from = request_.program->outputs[value.output].value;
        Value* const to = builder.CreateInBoundsGEP(builder.getInt8Ty(), at.values[i],
            builder.CreateNSWMul(at.sample, builder.getInt64(static_cast<std::uint64_t>(value.stride))));
        if (from.store != Store::Setup && !places.contains(from.offset))
            throw std::runtime_error("an output shows what a node keeps");
        StoreOutput(value, from.store == Store::Setup ? emitter_.SetupValue(from.offset) : places.at(from.offset), to);
    }
}

void Stager::FillContext(Loop& at)
{
    IRBuilder<>& builder = emitter_.Builder();
    for (std::size_t i = 0; i < at.lanes.size(); ++i)
    {
        const SampleShape::Lane& lane = request_.shape.lanes[i];
        Value* const from = builder.CreateInBoundsGEP(builder.getInt8Ty(), at.lanes[i],
            builder.CreateNSWMul(at.sample, builder.getInt64(static_cast<std::uint64_t>(lane.stride))));
        Value* const number = builder.CreateAlignedLoad(builder.getInt64Ty(), from, Align(8));
        builder.CreateAlignedStore(
            number, builder.CreateConstGEP1_64(builder.getInt8Ty(), at.context, lane.offset), Align(8));
    }
}

void Stager::RunCalls(Loop& at, const Stage& stage, std::map<UInt32, Value*>& places)
{
    IRBuilder<>& builder = emitter_.Builder();
    for (const std::size_t call : stage.calls)
    {
        const CallCode& code = codes_[call];
        std::vector<Value*> arguments{at.function->getArg(2), at.context};
        for (const auto* const values : {&code.inputs, &code.outputs})
        {
            for (const UInt32 offset : *values)
            {
                Value*& place = places[offset];
                if (!place)
                    place = emitter_.Alloca(at.function, SizeOf(offset));
                arguments.push_back(place);
            }
        }
        Value* const result = builder.CreateCall(code.function, arguments);
        BasicBlock* const next = BasicBlock::Create(builder.getContext(), "next", at.function);
        at.error->addIncoming(result, builder.GetInsertBlock());
        builder.CreateCondBr(builder.CreateIsNull(result), next, at.fail);
        builder.SetInsertPoint(next);
    }
}

// Between an array and a value, word by word: each word of a value has an array of its own.
void Stager::CopyValue(Loop& at, UInt32 offset, Value* place, bool toArray)
{
    IRBuilder<>& builder = emitter_.Builder();
    const std::size_t size = SizeOf(offset);
    Value* const array = ArrayOf(at.function, offset);
    const std::size_t step = size % sizeof(UInt) == 0 ? sizeof(UInt) : size % sizeof(UInt32) == 0 ? sizeof(UInt32) : 1;
    Type* const type = builder.getIntNTy(static_cast<unsigned>(step * 8));
    for (std::size_t word = 0; word < size; word += step)
    {
        Value* const inArray = builder.CreateInBoundsGEP(
            type, builder.CreateConstGEP1_64(builder.getInt8Ty(), array, word * kBlock), at.index);
        Value* const inPlace = builder.CreateConstGEP1_64(builder.getInt8Ty(), place, word);
        builder.CreateAlignedStore(builder.CreateAlignedLoad(type, toArray ? inPlace : inArray, Align(step)),
            toArray ? inArray : inPlace, Align(step));
    }
}

void Stager::StoreOutput(const SampleShape::Value& value, Value* from, Value* to)
{
    IRBuilder<>& builder = emitter_.Builder();
    const DataType& type = *request_.program->outputs[value.output].type;
    const std::string_view id = type.id.View();
    const bool isSigned = id == "int64" || id == "int32";
    const bool isNumber = isSigned || id == "uint32" || id == "bool";
    const std::size_t size = type.operations.size;
    const std::size_t count = isNumber ? 1 : size / sizeof(Float);
    Type* const wide = builder.getDoubleTy();
    for (std::size_t i = 0; i < count; ++i)
    {
        Value* number = nullptr;
        if (isNumber)
        {
            number = builder.CreateLoad(builder.getIntNTy(static_cast<unsigned>(size * 8)), from);
            number = isSigned ? builder.CreateSIToFP(number, wide) : builder.CreateUIToFP(number, wide);
        }
        else
            number = builder.CreateLoad(wide, builder.CreateConstGEP1_64(wide, from, i));
        if (value.format == ValueFormat::Float32)
            number =
                builder.CreateFPTrunc(builder.CreateFAdd(ConstantFP::get(wide, 0.0), number), builder.getFloatTy());
        Instruction* const store =
            builder.CreateAlignedStore(number, builder.CreateConstGEP1_64(number->getType(), to, i),
                Align(number->getType()->getPrimitiveSizeInBits() / 8));
        store->setMetadata(kValueMark, MDNode::get(builder.getContext(), {}));
    }
}

} // namespace velto::host::fuse
