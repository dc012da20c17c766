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
            if (emitter_.SizeOf(input) == sizeof(ShadingContext) && CanRepeat(producer))
            {
                open.push_back(producer);
                continue;
            }
            stage.loads.insert(input);
            stages_[stageOf_[producer]].stores.insert(input);
        }
    }
}

void Stager::MakeStages()
{
    const bool isWhole =
        std::any_of(codes_.begin(), codes_.end(), [](const CallCode& code) { return code.sharesFrame; });
    for (const CallCode& code : codes_)
        opaque_.push_back(IsOpaque(code));
    for (std::size_t i = 0; i < codes_.size(); ++i)
    {
        // What the thread's frame holds, it holds for one sample.
        if (stages_.empty() || (!isWhole && stages_.back().isOpaque != opaque_[i]))
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

void Stager::EmitKernel()
{
    MakeStages();
    emitter_.ForgetConstants();
    IRBuilder<>& builder = emitter_.Builder();
    LLVMContext& context = builder.getContext();
    Type* const pointer = PointerType::get(context, 0);
    Type* const word = builder.getInt64Ty();
    Function* const function =
        Function::Create(FunctionType::get(pointer, {pointer, pointer, pointer, word, pointer, pointer}, false),
            GlobalValue::ExternalLinkage, kKernelName, emitter_.Module());
    function->addFnAttr(Attribute::NoUnwind);
    BasicBlock* const entry = BasicBlock::Create(context, "entry", function);
    BasicBlock* const blocks = BasicBlock::Create(context, "blocks", function);
    BasicBlock* const done = BasicBlock::Create(context, "done", function);
    BasicBlock* const fail = BasicBlock::Create(context, "fail", function);
    IRBuilder<>(done).CreateRet(Constant::getNullValue(pointer));
    builder.SetInsertPoint(entry);
    Kernel kernel{function, emitter_.Alloca(function, sizeof(ShadingContext)), fail,
        IRBuilder<>(fail).CreatePHI(pointer, 4), {}, {}, {}};
    IRBuilder<>(fail).CreateRet(kernel.error);
    builder.CreateMemCpy(kernel.context, Align(8), function->getArg(1), Align(8), sizeof(ShadingContext));
    const auto pointers = [&](unsigned argument, std::size_t count) {
        std::vector<Value*> all;
        for (std::size_t i = 0; i < count; ++i)
            all.push_back(
                builder.CreateLoad(pointer, builder.CreateConstGEP1_64(pointer, function->getArg(argument), i)));
        return all;
    };
    kernel.lanes = pointers(0, request_.shape.lanes.size());
    kernel.values = pointers(4, request_.shape.values.size());
    for (const Stage& stage : stages_)
    {
        for (const UInt32 offset : stage.stores)
            kernel.arrays[offset] = emitter_.Alloca(function, emitter_.SizeOf(offset) * kBlock);
    }
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
        EmitStage(kernel, stage, first, most);
    Value* const next = builder.CreateNSWAdd(first, most);
    first->addIncoming(next, builder.GetInsertBlock());
    builder.CreateCondBr(builder.CreateICmpSLT(next, count), blocks, done);
    for (const CallCode& code : codes_)
    {
        code.function->setLinkage(GlobalValue::InternalLinkage);
        code.function->addFnAttr(Attribute::AlwaysInline);
    }
}

// A loop over `count` samples from `first` on.
void Stager::EmitStage(Kernel& kernel, const Stage& stage, Value* first, Value* count)
{
    IRBuilder<>& builder = emitter_.Builder();
    BasicBlock* const before = builder.GetInsertBlock();
    BasicBlock* const loop = BasicBlock::Create(builder.getContext(), "stage", kernel.function);
    BasicBlock* const after = BasicBlock::Create(builder.getContext(), "after", kernel.function);
    builder.CreateBr(loop);
    builder.SetInsertPoint(loop);
    PHINode* const index = builder.CreatePHI(builder.getInt64Ty(), 2);
    index->addIncoming(builder.getInt64(0), before);
    Value* const sample = builder.CreateNSWAdd(first, index);
    FillContext(kernel, sample);
    std::map<UInt32, Value*> places;
    for (const UInt32 offset : stage.loads)
    {
        const std::size_t size = emitter_.SizeOf(offset);
        places[offset] = emitter_.Alloca(kernel.function, size);
        CopyValue(kernel.arrays.at(offset), index, places[offset], size, false);
    }
    RunCalls(kernel, stage, places);
    for (const UInt32 offset : stage.stores)
        CopyValue(kernel.arrays.at(offset), index, places.at(offset), emitter_.SizeOf(offset), true);
    for (const std::size_t i : stage.outputs)
    {
        const SampleShape::Value& value = request_.shape.values[i];
        const Address from = request_.program->outputs[value.output].value;
        Value* const to = builder.CreateInBoundsGEP(builder.getInt8Ty(), kernel.values[i],
            builder.CreateNSWMul(sample, builder.getInt64(static_cast<std::uint64_t>(value.stride))));
        if (from.store != Store::Setup && !places.contains(from.offset))
            throw std::runtime_error("an output shows what a node keeps");
        StoreOutput(value, from.store == Store::Setup ? emitter_.SetupValue(from.offset) : places.at(from.offset), to);
    }
    Value* const next = builder.CreateNSWAdd(index, builder.getInt64(1));
    index->addIncoming(next, builder.GetInsertBlock());
    builder.CreateCondBr(builder.CreateICmpSLT(next, count), loop, after);
    builder.SetInsertPoint(after);
}

void Stager::FillContext(Kernel& kernel, Value* sample)
{
    IRBuilder<>& builder = emitter_.Builder();
    for (std::size_t i = 0; i < kernel.lanes.size(); ++i)
    {
        const SampleShape::Lane& lane = request_.shape.lanes[i];
        Value* const from = builder.CreateInBoundsGEP(builder.getInt8Ty(), kernel.lanes[i],
            builder.CreateNSWMul(sample, builder.getInt64(static_cast<std::uint64_t>(lane.stride))));
        Value* const number = builder.CreateAlignedLoad(builder.getInt64Ty(), from, Align(8));
        builder.CreateAlignedStore(
            number, builder.CreateConstGEP1_64(builder.getInt8Ty(), kernel.context, lane.offset), Align(8));
    }
}

void Stager::RunCalls(Kernel& kernel, const Stage& stage, std::map<UInt32, Value*>& places)
{
    IRBuilder<>& builder = emitter_.Builder();
    for (const std::size_t call : stage.calls)
    {
        const CallCode& code = codes_[call];
        std::vector<Value*> arguments{kernel.function->getArg(2), kernel.context};
        for (const auto* const values : {&code.inputs, &code.outputs})
        {
            for (const UInt32 offset : *values)
            {
                Value*& place = places[offset];
                if (!place)
                    place = emitter_.Alloca(kernel.function, emitter_.SizeOf(offset));
                arguments.push_back(place);
            }
        }
        Value* const result = builder.CreateCall(code.function, arguments);
        BasicBlock* const next = BasicBlock::Create(builder.getContext(), "next", kernel.function);
        kernel.error->addIncoming(result, builder.GetInsertBlock());
        builder.CreateCondBr(builder.CreateIsNull(result), next, kernel.fail);
        builder.SetInsertPoint(next);
    }
}

// Between an array and a value, word by word: each word of a value has an array of its own.
void Stager::CopyValue(Value* array, Value* index, Value* place, std::size_t size, bool toArray)
{
    IRBuilder<>& builder = emitter_.Builder();
    const std::size_t step = size % sizeof(UInt) == 0 ? sizeof(UInt) : 1;
    Type* const type = builder.getIntNTy(static_cast<unsigned>(step * 8));
    for (std::size_t at = 0; at < size; at += step)
    {
        Value* const inArray =
            builder.CreateInBoundsGEP(type, builder.CreateConstGEP1_64(builder.getInt8Ty(), array, at * kBlock), index);
        Value* const inPlace = builder.CreateConstGEP1_64(builder.getInt8Ty(), place, at);
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
