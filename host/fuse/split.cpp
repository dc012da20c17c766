#include "split.h"

#include "fold.h"

#include <llvm/ADT/PostOrderIterator.h>
#include <llvm/Analysis/CFG.h>
#include <llvm/Analysis/ValueTracking.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/IntrinsicInst.h>
#include <llvm/Transforms/Utils/BasicBlockUtils.h>
#include <llvm/Transforms/Utils/Cloning.h>
#include <llvm/Transforms/Utils/Local.h>

#include <algorithm>

namespace velto::host::fuse
{

using namespace llvm;

namespace
{

bool IsMark(const CallInst& call, const char* mark)
{
    return call.getCalledFunction() && call.getCalledFunction()->getName() == mark;
}

// Blocks that lie on a circle.
std::set<const BasicBlock*> LoopingBlocks(const Function& function)
{
    std::set<const BasicBlock*> looping;
    for (const BasicBlock& block : function)
    {
        for (const BasicBlock* const next : successors(&block))
        {
            if (isPotentiallyReachable(next, &block))
                looping.insert(&block);
        }
    }
    return looping;
}

} // namespace

const FuseBlockForm* Splitter::FormOf(const CallInst& call) const
{
    const std::uint64_t address = AddressIn(call.getCalledOperand(), emitter_.Module().getDataLayout());
    for (const FuseBlockForm& form : request_.blockForms)
    {
        if (address && address == reinterpret_cast<std::uint64_t>(form.single) && isa<Constant>(call.getArgOperand(0)))
            return &form;
    }
    return nullptr;
}

bool Splitter::IsCandidate(const CallInst& call) const
{
    if (FormOf(call))
        return true;
    const Function* const callee = call.getCalledFunction();
    return callee && callee->isDeclaration() && call.getType()->isDoubleTy() &&
           (FindUnary(callee->getName()) || FindBinary(callee->getName()));
}

// In the order of running; none where the function does more than can be done twice.
std::vector<CallInst*> Splitter::FindCandidates(Function& function) const
{
    const std::set<const BasicBlock*> looping = LoopingBlocks(function);
    std::vector<CallInst*> found;
    for (BasicBlock* const block : ReversePostOrderTraversal<Function*>(&function))
    {
        for (Instruction& instruction : *block)
        {
            auto* const call = dyn_cast<CallInst>(&instruction);
            if (!call || isa<IntrinsicInst>(call) || IsMark(*call, kCountMark) || IsMark(*call, kFrameMark))
                continue;
            if (!IsCandidate(*call) || looping.contains(block))
                return {};
            found.push_back(call);
        }
    }
    return found;
}

// Those that do not depend on what another one gives, by values, memory or the way taken.
std::vector<CallInst*> Splitter::FirstOf(Function& function, const std::vector<CallInst*>& candidates)
{
    std::set<const Value*> tainted(candidates.begin(), candidates.end()); // values and objects in memory
    std::set<const BasicBlock*> late;
    const auto taint = [&](const Value* value) { return tainted.insert(value).second; };
    for (bool any = true; any;)
    {
        any = false;
        for (const BasicBlock& block : function)
        {
            for (const Instruction& instruction : block)
            {
                const auto* const store = dyn_cast<StoreInst>(&instruction);
                const auto* const load = dyn_cast<LoadInst>(&instruction);
                const auto* const move = dyn_cast<MemIntrinsic>(&instruction);
                bool isLate = late.contains(&block) && (isa<PHINode>(instruction) || store || move);
                for (const Use& operand : instruction.operands())
                    isLate = isLate || tainted.contains(operand.get());
                if (load)
                    isLate = isLate || tainted.contains(getUnderlyingObject(load->getPointerOperand(), 0));
                if (const auto* const copy = dyn_cast<MemTransferInst>(&instruction))
                    isLate = isLate || tainted.contains(getUnderlyingObject(copy->getRawSource(), 0));
                if (!isLate)
                    continue;
                if (store)
                    any |= taint(getUnderlyingObject(store->getPointerOperand(), 0));
                else if (move)
                    any |= taint(getUnderlyingObject(move->getRawDest(), 0));
                else if (!instruction.getType()->isVoidTy())
                    any |= taint(&instruction);
                if (!instruction.isTerminator())
                    continue;
                for (const BasicBlock& other : function)
                {
                    if (&other != &block && !late.contains(&other) && isPotentiallyReachable(&block, &other))
                        any |= late.insert(&other).second;
                }
            }
        }
    }
    std::vector<CallInst*> first;
    for (CallInst* const call : candidates)
    {
        const bool isLate = late.contains(call->getParent()) ||
                            std::any_of(call->arg_begin(), call->arg_end(),
                                [&](const Use& argument) { return tainted.contains(argument.get()); });
        if (!isLate)
            first.push_back(call);
    }
    return first;
}

UInt32 Splitter::NewValue(Type* type)
{
    return NewValue(emitter_.Module().getDataLayout().getTypeStoreSize(type).getFixedValue());
}

UInt32 Splitter::NewValue(std::size_t size)
{
    sizes_.push_back(size);
    return kFirstOffset + static_cast<UInt32>(sizes_.size() - 1);
}

std::vector<CallCode> Splitter::Split(const CallCode& code)
{
    const std::vector<CallInst*> candidates =
        code.sharesFrame ? std::vector<CallInst*>() : FindCandidates(*code.function);
    // What takes a value alone is as well as it is.
    const std::vector<CallInst*> first = candidates.empty() ? candidates : FirstOf(*code.function, candidates);
    if (first.empty())
        return {code};
    std::vector<Cut> cuts;
    for (CallInst* const call : first)
    {
        Cut cut{call, FormOf(*call), {}, 0, 0};
        for (unsigned i = cut.form ? 1 : 0; i < call->arg_size(); ++i)
        {
            const Value* const argument = call->getArgOperand(i);
            cut.arguments.push_back(isa<Constant>(argument) ? 0 : NewValue(argument->getType()));
        }
        cut.isReached = cut.form ? 0 : NewValue(Type::getInt64Ty(call->getContext()));
        cut.result = NewValue(call->getType());
        cuts.push_back(std::move(cut));
    }
    std::vector<CallCode> parts{Before(code, cuts)};
    for (const Cut& cut : cuts)
        parts.push_back(Alone(cut));
    const CallCode after = After(code, cuts);
    code.function->eraseFromParent();
    for (CallCode& part : Split(after))
        parts.push_back(std::move(part));
    return parts;
}

// A copy of a part's function with other outputs, as many or more, and further inputs.
CallCode Splitter::Clone(const CallCode& code, const std::vector<UInt32>& inputs, const std::vector<UInt32>& outputs,
    std::map<CallInst*, CallInst*>& calls)
{
    CallCode made;
    made.inputs = code.inputs;
    made.inputs.insert(made.inputs.end(), inputs.begin(), inputs.end());
    made.outputs = outputs;
    Function& from = *code.function;
    made.function = emitter_.MakeCallFunction(made.inputs.size() + made.outputs.size());
    ValueToValueMapTy map;
    const std::size_t firstOutput = 2 + code.inputs.size();
    for (unsigned i = 0; i < from.arg_size(); ++i)
        map[from.getArg(i)] = made.function->getArg(static_cast<unsigned>(i < firstOutput ? i : i + inputs.size()));
    SmallVector<ReturnInst*> returns;
    CloneFunctionInto(made.function, &from, map, CloneFunctionChangeType::LocalChangesOnly, returns);
    for (auto& [old, copy] : calls)
        copy = cast<CallInst>(map[old]);
    return made;
}

CallCode Splitter::Before(const CallCode& code, const std::vector<Cut>& cuts)
{
    std::vector<UInt32> outputs;
    for (const UInt32 output : code.outputs)
        outputs.push_back(NewValue(emitter_.SizeOf(output))); // which nobody reads
    std::map<CallInst*, CallInst*> calls;
    for (const Cut& cut : cuts)
    {
        calls[cut.call] = nullptr;
        std::copy_if(cut.arguments.begin(), cut.arguments.end(), std::back_inserter(outputs),
            [](UInt32 argument) { return argument != 0; });
        if (cut.isReached)
            outputs.push_back(cut.isReached);
    }
    CallCode made = Clone(code, {}, outputs, calls);
    Function& function = *made.function;
    IRBuilder<> entry(&*function.getEntryBlock().getFirstInsertionPt());
    auto next = static_cast<unsigned>(2 + code.inputs.size() + code.outputs.size());
    const auto give = [&](Value* value, CallInst* where) {
        Argument* const to = function.getArg(next++);
        const Align alignment = emitter_.Module().getDataLayout().getABITypeAlign(value->getType());
        entry.CreateAlignedStore(Constant::getNullValue(value->getType()), to, alignment);
        IRBuilder<>(where).CreateAlignedStore(value, to, alignment);
    };
    std::set<BasicBlock*> blocks;
    for (const Cut& cut : cuts)
    {
        CallInst* const call = calls.at(cut.call);
        for (std::size_t i = 0; i < cut.arguments.size(); ++i)
        {
            if (cut.arguments[i])
                give(call->getArgOperand(static_cast<unsigned>(i) + (cut.form ? 1 : 0)), call);
        }
        if (cut.isReached)
            give(entry.getInt64(1), call);
        call->replaceAllUsesWith(Constant::getNullValue(call->getType()));
        blocks.insert(call->getParent());
        call->eraseFromParent();
    }
    EndAfter(function, blocks);
    return made;
}

// Nothing is needed once all of the blocks are passed. What is counted is so by the other part, as is what fails.
void Splitter::EndAfter(Function& function, const std::set<BasicBlock*>& blocks)
{
    Constant* const success = ConstantPointerNull::get(cast<PointerType>(function.getReturnType()));
    for (BasicBlock& block : function)
    {
        for (Instruction& instruction : make_early_inc_range(block))
        {
            auto* const call = dyn_cast<CallInst>(&instruction);
            if (call && IsMark(*call, kCountMark))
                call->eraseFromParent();
        }
        if (auto* const end = dyn_cast<ReturnInst>(block.getTerminator()))
            end->setOperand(0, success);
    }
    for (BasicBlock* const block : blocks)
    {
        Instruction* const end = block->getTerminator();
        const bool goesOn = std::any_of(succ_begin(block), succ_end(block), [&](const BasicBlock* successor) {
            return std::any_of(blocks.begin(), blocks.end(),
                [&](const BasicBlock* other) { return isPotentiallyReachable(successor, other); });
        });
        if (goesOn || isa<ReturnInst>(end))
            continue;
        for (BasicBlock* const successor : successors(block))
            successor->removePredecessor(block);
        IRBuilder<>(end).CreateRet(success);
        end->eraseFromParent();
    }
    EliminateUnreachableBlocks(function);
}

// One call by itself.
CallCode Splitter::Alone(const Cut& cut)
{
    CallCode made;
    for (const UInt32 argument : cut.arguments)
    {
        if (argument)
            made.inputs.push_back(argument);
    }
    if (cut.isReached)
        made.inputs.push_back(cut.isReached);
    made.outputs = {cut.result};
    if (cut.form)
    {
        made.form = cut.form;
        made.self = cast<Constant>(cut.call->getArgOperand(0));
        for (std::size_t i = 0; i < cut.arguments.size(); ++i)
            made.arguments.push_back(
                {cut.arguments[i], dyn_cast<Constant>(cut.call->getArgOperand(static_cast<unsigned>(i) + 1))});
        return made;
    }
    Function* const function = emitter_.MakeCallFunction(made.inputs.size() + made.outputs.size());
    LLVMContext& context = function->getContext();
    BasicBlock* const entry = BasicBlock::Create(context, "", function);
    BasicBlock* const reached = BasicBlock::Create(context, "", function);
    BasicBlock* const done = BasicBlock::Create(context, "", function);
    IRBuilder<> at(entry);
    unsigned next = 2;
    std::vector<Value*> arguments;
    for (unsigned i = 0; i < cut.arguments.size(); ++i)
    {
        Value* const given = cut.call->getArgOperand(i);
        arguments.push_back(
            cut.arguments[i] ? at.CreateAlignedLoad(given->getType(), function->getArg(next++), Align(8)) : given);
    }
    Value* const flag = at.CreateAlignedLoad(at.getInt64Ty(), function->getArg(next++), Align(8));
    Value* const to = function->getArg(next);
    at.CreateAlignedStore(Constant::getNullValue(cut.call->getType()), to, Align(8));
    at.CreateCondBr(at.CreateICmpNE(flag, at.getInt64(0)), reached, done);
    at.SetInsertPoint(reached);
    CallInst* const call = at.CreateCall(cut.call->getCalledFunction(), arguments);
    call->setAttributes(cut.call->getAttributes());
    at.CreateAlignedStore(call, to, Align(8));
    at.CreateBr(done);
    IRBuilder<>(done).CreateRet(Constant::getNullValue(function->getReturnType()));
    made.function = function;
    return made;
}

CallCode Splitter::After(const CallCode& code, const std::vector<Cut>& cuts)
{
    std::vector<UInt32> results;
    std::map<CallInst*, CallInst*> calls;
    for (const Cut& cut : cuts)
    {
        results.push_back(cut.result);
        calls[cut.call] = nullptr;
    }
    CallCode made = Clone(code, results, code.outputs, calls);
    auto next = static_cast<unsigned>(2 + code.inputs.size());
    for (const Cut& cut : cuts)
    {
        CallInst* const call = calls.at(cut.call);
        IRBuilder<> at(call);
        call->replaceAllUsesWith(at.CreateAlignedLoad(call->getType(), made.function->getArg(next++),
            emitter_.Module().getDataLayout().getABITypeAlign(call->getType())));
        call->eraseFromParent();
    }
    return made;
}

} // namespace velto::host::fuse
