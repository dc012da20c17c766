#include "emit.h"

#include "host/corenode/group.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>

namespace velto::host::fuse
{

using namespace llvm;

namespace
{

bool IsPlain(const DataType& type)
{
    return !type.operations.copy && !type.operations.destroy;
}

bool IsFunctionType(const DataType& type)
{
    return type.id.View().starts_with("net.velto.parametrictype.function<");
}

std::map<UInt32, const ValuePlan*> ByOffset(const StorePlan& store)
{
    std::map<UInt32, const ValuePlan*> values;
    for (const ValuePlan& value : store.values)
        values[value.offset] = &value;
    return values;
}

const ResetPlan* FindReset(const std::vector<ResetPlan>& resets, UInt32 offset)
{
    const auto found =
        std::find_if(resets.begin(), resets.end(), [&](const ResetPlan& reset) { return reset.offset == offset; });
    return found == resets.end() ? nullptr : &*found;
}

const FunctionPlan* FindFunction(const BodyPlan& plan, UInt32 offset)
{
    const auto found = std::find_if(plan.functions.begin(), plan.functions.end(), [&](const FunctionPlan& function) {
        return function.place == Address{Store::Frame, offset};
    });
    return found == plan.functions.end() ? nullptr : &*found;
}

std::string FileOf(const void* code)
{
    Dl_info info;
    return dladdr(const_cast<void*>(code), &info) && info.dli_fname ? info.dli_fname : "";
}

constexpr std::size_t kMostWatched = 512; // bytes of what a node keeps that are compared

} // namespace

Emitter::Emitter(
    const FuseRequest& request, Bitcode& bitcode, const std::string& moduleFile, const std::set<UInt32>& inFrame)
    : request_(request), program_(*request.program), bitcode_(bitcode), moduleFile_(moduleFile), inFrame_(inFrame),
      context_(bitcode.Module().getContext()), module_(bitcode.Module()), builder_(context_),
      pointer_(PointerType::get(context_, 0)), byte_(Type::getInt8Ty(context_)), word_(Type::getInt64Ty(context_)),
      half_(Type::getInt32Ty(context_)), float_(Type::getDoubleTy(context_)),
      slot_(StructType::get(context_, {pointer_, half_, half_})), bodies_(program_.bodies.size(), nullptr),
      setupValues_(ByOffset(program_.setup)), frameValues_(ByOffset(program_.frame))
{
    for (const BodyPlan& body : program_.bodies)
    {
        std::set<UInt32> seen;
        for (const CallPlan& call : body.calls)
        {
            const bool isForeign = !CodeOf(call).compute;
            for (const SlotPlan& slot : call.slots)
            {
                if (slot.value.store != Store::Frame || !FindReset(body.kept, slot.value.offset))
                    continue;
                if (!seen.insert(slot.value.offset).second || isForeign)
                    sharedState_.insert(slot.value.offset);
            }
        }
    }
}

GlobalVariable* Emitter::Constant(llvm::Constant* value, const char* name)
{
    auto* const made = new GlobalVariable(module_, value->getType(), true, GlobalValue::PrivateLinkage, value, name);
    made->setAlignment(Align(16));
    return made;
}

// Where it can be, as words: these fold to numbers and to addresses.
GlobalVariable* Emitter::Bytes(const void* data, std::size_t size, const char* name)
{
    if (size < 8)
        return Constant(
            ConstantDataArray::get(context_, ArrayRef<std::uint8_t>(static_cast<const std::uint8_t*>(data), size)),
            name);
    std::vector<std::uint64_t> words((size + 7) / 8, 0);
    std::memcpy(words.data(), data, size);
    return Constant(ConstantDataArray::get(context_, ArrayRef<std::uint64_t>(words)), name);
}

llvm::Constant* Emitter::AddressOf(const void* place)
{
    return ConstantExpr::getIntToPtr(ConstantInt::get(word_, reinterpret_cast<std::uintptr_t>(place)), pointer_);
}

Value* Emitter::Alloca(Function* function, Type* type)
{
    IRBuilder<> entry(&function->getEntryBlock(), function->getEntryBlock().begin());
    AllocaInst* const made = entry.CreateAlloca(type);
    made->setAlignment(Align(16));
    return made;
}

Value* Emitter::Alloca(Function* function, std::size_t size)
{
    return Alloca(function, ArrayType::get(byte_, size));
}

Function* Emitter::Declare(const char* name, FunctionType* type)
{
    return cast<Function>(module_.getOrInsertFunction(name, type).getCallee());
}

llvm::Constant* Emitter::SetupValue(UInt32 offset)
{
    llvm::Constant*& value = setupConstants_[offset];
    if (!value)
        value = Bytes(request_.setup + offset, setupValues_.at(offset)->type->operations.size, "setup");
    return value;
}

NodeCode Emitter::CodeOf(const CallPlan& call)
{
    if (!call.record || call.node >= program_.groups.size())
        return {};
    const std::string id(AsHost(program_.groups[call.node]).id.View());
    const auto known = codes_.find(id);
    if (known != codes_.end())
        return known->second;
    NodeCode code;
    if (FileOf(reinterpret_cast<const void*>(call.compute)) == moduleFile_)
        code = bitcode_.Find(id, request_);
    return codes_[id] = code;
}

bool Emitter::IsElement(const CallPlan& call, std::size_t slot) const
{
    const auto& access = AsHost(program_.groups[call.node]).access;
    return slot < access.size() && !access[slot]->family.empty();
}

bool Emitter::IsInput(const CallPlan& call, std::size_t slot) const
{
    return call.record ? AsHost(program_.groups[call.node]).access[slot]->input : slot == 0;
}

// ptr (ptr frame, ptr context, ptr value): the error, or null
Function* Emitter::Body(std::size_t index)
{
    if (bodies_[index])
        return bodies_[index];
    Function* const made = Function::Create(FunctionType::get(pointer_, {pointer_, pointer_, pointer_}, false),
        GlobalValue::InternalLinkage, "body", module_);
    made->addFnAttr(Attribute::NoUnwind);
    made->addParamAttr(1, Attribute::NoAlias);
    bodies_[index] = made;
    roots_.insert(made);
    IRBuilder<>::InsertPointGuard guard(builder_);
    const BodyPlan& plan = program_.bodies[index];
    Run run = Begin(made, plan);
    for (const CallPlan& call : plan.calls)
        PlaceValues(run, call);
    for (const CallPlan& call : plan.calls)
        EmitCall(run, call);
    const Align alignment(plan.resultType->operations.alignment);
    builder_.CreateMemCpy(
        made->getArg(2), alignment, PlaceOf(run, plan.result), alignment, plan.resultType->operations.size);
    builder_.CreateRet(ConstantPointerNull::get(pointer_));
    return made;
}

Value* Emitter::PlaceOf(Run& run, Address address)
{
    switch (address.store)
    {
    case Store::Setup:
        return SetupValue(address.offset);
    case Store::Context:
        return run.context;
    case Store::Frame:
        return run.places.at(address.offset);
    default:
        return ConstantPointerNull::get(pointer_);
    }
}

// An output is reset where its node may leave it unwritten.
Value* Emitter::PlaceFrameValue(Run& run, UInt32 offset, bool isOutput)
{
    const DataType& type = *frameValues_.at(offset)->type;
    const auto inFrame = [&] { return builder_.CreateConstGEP1_64(byte_, run.frame, offset); };
    const std::size_t size = type.operations.size;
    if (const FunctionPlan* const function = FindFunction(*run.plan, offset))
        return FunctionValue(*function);
    if (IsFunctionType(type))
        return Constant(ConstantPointerNull::get(pointer_), "nofunction");
    const bool isKept = FindReset(run.plan->kept, offset) != nullptr;
    const bool isReset = isOutput && FindReset(run.plan->resets, offset);
    if (isKept && !sharedState_.contains(offset) && !inFrame_.contains(offset) && size <= kMostWatched)
    {
        Value* const copy = Alloca(run.function, (size + 7) / 8 * 8);
        builder_.CreateMemCpy(copy, Align(8), Bytes(request_.frame + offset, size, "state"), Align(8), size);
        return copy;
    }
    if (isKept || !IsPlain(type))
    {
        if (isReset)
        {
            Function* const reset =
                Declare("velto_reset_value", FunctionType::get(Type::getVoidTy(context_), {pointer_, pointer_}, false));
            builder_.CreateCall(reset, {AddressOf(&type), inFrame()});
        }
        return inFrame();
    }
    Value* const place = Alloca(run.function, size);
    if (isReset)
    {
        std::vector<std::byte> fresh(size);
        type.operations.construct(fresh.data());
        builder_.CreateMemCpy(place, Align(8), Bytes(fresh.data(), size, "fresh"), Align(8), size);
    }
    return place;
}

void Emitter::PlaceValues(Run& run, const CallPlan& call)
{
    for (std::size_t i = 0; i < call.slots.size(); ++i)
    {
        const Address address = call.slots[i].value;
        if (address.store == Store::Frame && !run.places.contains(address.offset))
            run.places[address.offset] = PlaceFrameValue(run, address.offset, !IsInput(call, i));
    }
}

Function* Emitter::MakeCallFunction(std::size_t values)
{
    const std::vector<Type*> types(2 + values, pointer_);
    Function* const made = Function::Create(
        FunctionType::get(pointer_, types, false), GlobalValue::ExternalLinkage, "velto.call", module_);
    made->addFnAttr(Attribute::NoUnwind);
    for (unsigned i = 1; i < types.size(); ++i)
        made->addParamAttr(i, Attribute::NoAlias);
    roots_.insert(made);
    return made;
}

// ptr (ptr frame, ptr context, ptr value...): the error, or null. Values come and go through memory of the caller's.
CallCode Emitter::EmitCallFunction(const CallPlan& call)
{
    const BodyPlan& plan = program_.bodies[0];
    CallCode code;
    for (std::size_t i = 0; i < call.slots.size(); ++i)
    {
        const Address address = call.slots[i].value;
        if (address.store != Store::Frame)
            continue;
        if (FindReset(plan.kept, address.offset))
        {
            code.sharesFrame = code.sharesFrame || sharedState_.contains(address.offset);
            continue;
        }
        const DataType& type = *frameValues_.at(address.offset)->type;
        auto& offsets = IsInput(call, i) ? code.inputs : code.outputs;
        if (!IsPlain(type) && !IsFunctionType(type))
            code.sharesFrame = true;
        else if (IsPlain(type) && std::find(offsets.begin(), offsets.end(), address.offset) == offsets.end())
            offsets.push_back(address.offset);
    }
    code.function = MakeCallFunction(code.inputs.size() + code.outputs.size());
    Run run = Begin(code.function, plan);
    PlaceValues(run, call);
    unsigned argument = 2;
    for (const UInt32 offset : code.inputs)
        builder_.CreateMemCpy(
            run.places.at(offset), Align(1), code.function->getArg(argument++), Align(1), SizeOf(offset));
    EmitCall(run, call);
    for (const UInt32 offset : code.outputs)
        builder_.CreateMemCpy(
            code.function->getArg(argument++), Align(1), run.places.at(offset), Align(1), SizeOf(offset));
    builder_.CreateRet(ConstantPointerNull::get(pointer_));
    return code;
}

Emitter::Run Emitter::Begin(Function* function, const BodyPlan& plan)
{
    BasicBlock* const entry = BasicBlock::Create(context_, "entry", function);
    BasicBlock* const fail = BasicBlock::Create(context_, "fail", function);
    PHINode* const error = IRBuilder<>(fail).CreatePHI(pointer_, 4);
    IRBuilder<>(fail).CreateRet(error);
    builder_.SetInsertPoint(entry);
    return {function, &plan, function->getArg(0), function->getArg(1), fail, error, {}};
}

void Emitter::EmitCall(Run& run, const CallPlan& call)
{
    const NodeCode code = CodeOf(call);
    Value* const result = code.compute ? EmitDirect(run, call, code) : EmitForeign(run, call);
    BasicBlock* const next = BasicBlock::Create(context_, "next", run.function);
    run.error->addIncoming(result, builder_.GetInsertBlock());
    builder_.CreateCondBr(builder_.CreateIsNull(result), next, run.fail);
    builder_.SetInsertPoint(next);
}

// The frame of one call with its slots; gives the binding.
Value* Emitter::Bind(Run& run, const CallPlan& call, const std::vector<Value*>& values)
{
    const std::size_t count = values.size();
    auto* const frameType = StructType::get(context_, {pointer_, word_, word_, word_, ArrayType::get(slot_, count)});
    Value* const frame = Alloca(run.function, frameType);
    const auto word = [&](unsigned field) { return builder_.CreateStructGEP(frameType, frame, field); };
    builder_.CreateStore(ConstantInt::get(word_, 0), word(1));
    builder_.CreateStore(ConstantInt::get(word_, 0), word(2));
    builder_.CreateStore(ConstantInt::get(word_, 1), word(3));
    bool areElementsConstant = true;
    std::vector<llvm::Constant*> elements;
    for (std::size_t i = 0; i < count; ++i)
    {
        const bool isElement = call.record && IsElement(call, i);
        auto* const known = dyn_cast<llvm::Constant>(values[i]);
        areElementsConstant = areElementsConstant && (!isElement || known);
        elements.push_back(
            ConstantStruct::get(slot_, {isElement && known ? known : ConstantPointerNull::get(pointer_),
                                           ConstantInt::get(half_, 0), ConstantInt::get(half_, call.slots[i].flags)}));
        Value* const slot = builder_.CreateInBoundsGEP(
            frameType, frame, {ConstantInt::get(half_, 0), ConstantInt::get(half_, 4), ConstantInt::get(half_, i)});
        builder_.CreateStore(values[i], builder_.CreateStructGEP(slot_, slot, 0));
        builder_.CreateStore(ConstantInt::get(half_, 0), builder_.CreateStructGEP(slot_, slot, 1));
        builder_.CreateStore(ConstantInt::get(half_, call.slots[i].flags), builder_.CreateStructGEP(slot_, slot, 2));
    }
    Value* const table = areElementsConstant
                             ? Constant(ConstantArray::get(ArrayType::get(slot_, count), elements), "elements")
                             : builder_.CreateStructGEP(frameType, frame, 4);
    builder_.CreateStore(table, word(0));
    static_assert(sizeof(FrameHead) == 32);
    std::vector<std::uint32_t> offsets;
    for (std::size_t i = 0; i < std::max<std::size_t>(count, 2); ++i)
        offsets.push_back(static_cast<std::uint32_t>(sizeof(FrameHead) + i * sizeof(Slot)));
    auto* const bindingType = StructType::get(context_, {pointer_, pointer_});
    Value* const binding = Alloca(run.function, bindingType);
    builder_.CreateStore(frame, builder_.CreateStructGEP(bindingType, binding, 0));
    builder_.CreateStore(Constant(ConstantDataArray::get(context_, offsets), "offsets"),
        builder_.CreateStructGEP(bindingType, binding, 1));
    return binding;
}

Value* Emitter::EmitDirect(Run& run, const CallPlan& call, const NodeCode& code)
{
    ++directCalls_;
    std::vector<Value*> values;
    for (const SlotPlan& slot : call.slots)
        values.push_back(PlaceOf(run, slot.value));
    Value* const result = Alloca(run.function, pointer_);
    Value* const binding = Bind(run, call, values);
    llvm::Constant* const record = Bytes(call.record, sizeof(MicroNode) + code.words * sizeof(Int), "record");
    CallInst* const made = builder_.CreateCall(code.compute, {result, record, binding});
    made->addFnAttr(Attribute::AlwaysInline);
    WatchState(run, call);
    return builder_.CreateLoad(pointer_, result);
}

// Tells whether what the node keeps is as it was before: all that owns something must be.
void Emitter::WatchState(Run& run, const CallPlan& call)
{
    for (const SlotPlan& slot : call.slots)
    {
        if (slot.value.store != Store::Frame || !FindReset(run.plan->kept, slot.value.offset))
            continue;
        const DataType& type = *frameValues_.at(slot.value.offset)->type;
        Value* const place = run.places.at(slot.value.offset);
        if (IsPlain(type) || !isa<AllocaInst>(place))
            continue;
        Value* difference = ConstantInt::get(word_, 0);
        for (std::size_t at = 0; at < type.operations.size; at += sizeof(UInt))
        {
            UInt before = 0;
            std::memcpy(
                &before, request_.frame + slot.value.offset + at, std::min(sizeof(UInt), type.operations.size - at));
            Value* const now = builder_.CreateLoad(word_, builder_.CreateConstGEP1_64(byte_, place, at));
            difference = builder_.CreateOr(difference, builder_.CreateXor(now, ConstantInt::get(word_, before)));
        }
        BasicBlock* const changed = BasicBlock::Create(context_, "changed", run.function);
        BasicBlock* const next = BasicBlock::Create(context_, "unchanged", run.function);
        builder_.CreateCondBr(builder_.CreateICmpEQ(difference, ConstantInt::get(word_, 0)), next, changed);
        builder_.SetInsertPoint(changed);
        builder_.CreateCall(Declare(kStateMark, FunctionType::get(Type::getVoidTy(context_), {word_}, false)),
            {ConstantInt::get(word_, slot.value.offset)});
        builder_.CreateBr(next);
        builder_.SetInsertPoint(next);
    }
}

// A call of what is not here, on copies, so that the values themselves need not lie in memory.
Value* Emitter::EmitForeign(Run& run, const CallPlan& call)
{
    ++foreignCalls_;
    std::vector<Value*> values;
    std::vector<std::pair<Value*, Value*>> outputs; // from, to
    for (std::size_t i = 0; i < call.slots.size(); ++i)
    {
        const Address address = call.slots[i].value;
        if (address.store == Store::Setup)
        {
            values.push_back(AddressOf(request_.setup + address.offset));
            continue;
        }
        const bool isContext = address.store == Store::Context;
        const DataType* const type = isContext ? nullptr : frameValues_.at(address.offset)->type.Get();
        if (type && IsFunctionType(*type))
        {
            values.push_back(builder_.CreateConstGEP1_64(byte_, run.frame, address.offset));
            continue;
        }
        Value* const place = PlaceOf(run, address);
        if (!isContext && !isa<AllocaInst>(place))
        {
            values.push_back(place);
            continue;
        }
        const std::size_t size = isContext ? sizeof(ShadingContext) : type->operations.size;
        Value* const copy = Alloca(run.function, size);
        builder_.CreateMemCpy(copy, Align(8), place, Align(8), size);
        values.push_back(copy);
        if (!IsInput(call, i))
            outputs.emplace_back(copy, place);
    }
    Value* const result = Alloca(run.function, pointer_);
    Value* const binding = Bind(run, call, values);
    auto* const type = FunctionType::get(Type::getVoidTy(context_), {pointer_, pointer_, pointer_}, false);
    builder_.CreateCall(
        type, AddressOf(reinterpret_cast<const void*>(call.compute)), {result, AddressOf(call.record), binding});
    for (const auto& [from, to] : outputs)
    {
        const auto size = cast<ArrayType>(cast<AllocaInst>(from)->getAllocatedType())->getNumElements();
        builder_.CreateMemCpy(to, Align(8), from, Align(8), size);
    }
    return builder_.CreateLoad(pointer_, result);
}

} // namespace velto::host::fuse
