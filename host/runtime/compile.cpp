// From a graph to a program: groups from the registry, replacements, what is fixed and what varies, bodies, links.
#include "host/corenode/convert.h"
#include "host/corenode/forward.h"
#include "program.h"

#include "host/corenode/factory.h"
#include "host/registry/datatypes.h"
#include "host/registry/dictionary.h"
#include "host/registry/registry.h"
#include "host/system/guard.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <tuple>

namespace velto::host
{

UInt32 StorePlan::Add(const DataType* type, Data initial)
{
    const auto valueSize = static_cast<UInt32>(type->operations.size);
    const UInt32 within = std::bit_ceil(Min(Max<UInt32>(valueSize, 1), kPageShare));
    const UInt32 valueAlignment = Max(static_cast<UInt32>(type->operations.alignment), within);
    alignment = Max(alignment, valueAlignment);
    size = (size + valueAlignment - 1) / valueAlignment * valueAlignment;
    const UInt32 offset = size;
    size += valueSize;
    values.push_back({Ref<const DataType>::Share(type), offset, std::move(initial)});
    return offset;
}

namespace
{

constexpr std::string_view kFunctionType = "net.velto.parametrictype.function<";

bool IsFunctionType(const DataType* type)
{
    return type->id.View().starts_with(kFunctionType);
}

// The type that a function-valued port's function yields.
const DataType* YieldedType(const DataType* function)
{
    static const DataType* const yields[] = {
        TypeOf<ColorA>(), TypeOf<Color>(), TypeOf<Float>(), TypeOf<Vector2d>(), TypeOf<Bool>(), TypeOf<InternedId>()};
    for (const DataType* const type : yields)
    {
        if (function->id.View() == fmt::format("{}{}>", kFunctionType, type->id.View()))
            return type;
    }
    return nullptr;
}

// A function object that stands for one while optimizers ask about it.
struct ProbeFunction : FunctionInterface
{
    explicit ProbeFunction(bool constantAnswer) : answersConstantly(constantAnswer)
    {
        invoke = [](const FunctionInterface*, void*, const ShadingContext*, Data*) {
            return MakeError(error::kIllegalState, "A function has no value before the program is complete.");
        };
        isConstant = [](const FunctionInterface* self) -> Bool {
            return static_cast<const ProbeFunction*>(self)->answersConstantly;
        };
        references = 1 << 30; // nobody ends it
    }
    bool answersConstantly;
};

struct OutputOf
{
    std::size_t node;
    Int port; // access index
};

struct Input
{
    enum class Kind
    {
        Default, // of its type, or the context of the body, or no function
        Value,
        Link,
    };
    Kind kind = Kind::Default;
    const CoreInput* source = nullptr;
    OutputOf link{};
};

enum class Visit : std::uint8_t
{
    New,
    Open,
    Done,
};

struct Node
{
    const CoreNode* source = nullptr;
    Ref<MicroNodeGroup> group;
    Ref<MicroNodeGroup> original; // before a replacement
    std::vector<Input> inputs;    // by access index; entries of outputs are not used
    std::vector<Int> newOutputs;  // after a replacement: by old access index, the new one
    Visit visit = Visit::New;
    bool isFixed = false;
    Int takesInput = -1;     // the input that stands for the node's outputs
    std::set<Int> usedPorts; // outputs that something reads
    Int setupCall = -1;
    std::vector<UInt32> setupPorts; // of a fixed node: offsets of its outputs in the setup's store

    const HostGroup& Group() const { return AsHost(group); }
    const GroupPort& Port(Int i) const { return *Group().access[static_cast<std::size_t>(i)]; }
    Int PortCount() const { return static_cast<Int>(Group().access.size()); }
};

class Compiler
{
public:
    Compiler(const CoreGraph& graph, const CompileOptions& options, Program& program)
        : graph_(graph), options_(options), program_(program)
    {
    }

    Result Run()
    {
        VELTO_TRY(MakeNodes());
        for (std::size_t i = 0; i < nodes_.size(); ++i)
            VELTO_TRY(Settle(i));
        VELTO_TRY(MakeOutputs());
        return {};
    }

private:
    // Converted values by where they come from and what they become.
    struct Converted
    {
        Address value;
        UInt32 call;
    };
    using Conversions = std::map<std::tuple<Store, UInt32, const DataType*>, Converted>;

    // What a body has placed so far.
    struct Body
    {
        std::size_t index;
        std::map<std::size_t, std::vector<UInt32>> placed; // offsets of outputs in the frame, by node
        Conversions converted;
    };

    Result Fault(const Node& node, std::string_view text) const
    {
        return MakeError(error::kIllegalArgument, fmt::format("nodes.{}: {}", node.source->name, text));
    }

    // A small document can ask for a vast program: by counts of elements, or by function-valued inputs that each
    // repeat what is upstream of them.
    Result CountSlots(const Node& node, UInt& slots) const
    {
        slots += static_cast<UInt>(node.PortCount());
        if (slots > kMaxSlots)
            return Fault(node, fmt::format("the program has more than {} ports by here", kMaxSlots));
        return {};
    }

    Result MakeNodes()
    {
        nodes_.resize(graph_.nodes.size());
        program_.nodeNames.reserve(graph_.nodes.size());
        for (std::size_t i = 0; i < nodes_.size(); ++i)
        {
            Node& node = nodes_[i];
            node.source = &graph_.nodes[i];
            program_.nodeNames.push_back(node.source->name);
            VELTO_TRY(MakeGroup(node));
            VELTO_TRY(CountSlots(node, inputSlots_));
            node.inputs.resize(static_cast<std::size_t>(node.PortCount()));
        }
        conversionNode_ = static_cast<UInt32>(program_.nodeNames.size());
        program_.nodeNames.emplace_back(); // conversions are counted apart
        for (Node& node : nodes_)
        {
            for (const auto& [name, given] : node.source->inputs)
                VELTO_TRY(LinkInput(node, name, given));
        }
        // By the ports of the nodes as they are now: replacements are looked through later.
        for (const CoreOutput& output : graph_.outputs)
        {
            outputs_.emplace_back();
            if (output.source.link)
                VELTO_TRY(FindOutput(output.name, *output.source.link, outputs_.back().emplace()));
        }
        return {};
    }

    Result MakeGroup(Node& node)
    {
        if (node.source->forwarded)
            return MakeForwardGroup(node.source->forwarded.Get(), node.group);
        const Data* const entry = FindEntry(registry::kCoreNodes.View(), node.source->type);
        const CoreNodeFactory* const factory = entry ? entry->As<CoreNodeFactory>() : nullptr;
        if (!factory)
            return Fault(node, fmt::format("there is no core node {}", node.source->type));
        Result made = CreateGroup(*factory, node.source->arguments, node.group);
        const bool isItsFault = made.IsError() && made.Kind() != error::kOutOfMemory.View();
        return isItsFault ? Fault(node, made.Message()) : made;
    }

    Result LinkInput(Node& node, const std::string& name, const CoreInput& given)
    {
        const GroupPort* const port = node.Group().FindPort(name);
        if (!port || !port->input || port->index < 0)
            return Fault(node, fmt::format("there is no input {}", name));
        Input& input = node.inputs[static_cast<std::size_t>(port->index)];
        input.source = &given;
        if (given.link)
        {
            input.kind = Input::Kind::Link;
            VELTO_TRY(FindOutput(node.source->name, *given.link, input.link));
        }
        else if (!given.value.IsEmpty())
            input.kind = Input::Kind::Value;
        return {};
    }

    Result FindOutput(const std::string& reader, const CorePort& from, OutputOf& found)
    {
        if (from.node >= nodes_.size())
            return MakeError(error::kIllegalArgument, fmt::format("{}: a link leads to no node", reader));
        const GroupPort* const port = nodes_[from.node].Group().FindPort(from.port);
        if (!port || port->input)
            return MakeError(error::kIllegalArgument,
                fmt::format("{}: {} has no output {}", reader, nodes_[from.node].source->name, from.port));
        found = {from.node, port->index};
        return {};
    }

    // Follows replacements of the node at the end of a link: it may be another output, another node, or a plain input.
    // Empty: the link ends at an input that is not linked itself.
    const Input* Resolve(OutputOf& link) const
    {
        for (;;)
        {
            const Node& node = nodes_[link.node];
            if (node.takesInput >= 0)
            {
                const Input& input = node.inputs[static_cast<std::size_t>(node.takesInput)];
                if (input.kind != Input::Kind::Link)
                    return &input;
                link = input.link;
                continue;
            }
            if (!node.newOutputs.empty() && link.port < static_cast<Int>(node.newOutputs.size()))
                link.port = node.newOutputs[static_cast<std::size_t>(link.port)];
            return nullptr;
        }
    }

    // Decides, upstream first, what replaces a node and whether it is fixed.
    Result Settle(std::size_t index)
    {
        // An explicit stack: a chain may be as long as a document.
        std::vector<std::size_t> open{index};
        while (!open.empty())
        {
            Node& node = nodes_[open.back()];
            if (node.visit == Visit::Done)
            {
                open.pop_back();
                continue;
            }
            const bool isFirstVisit = node.visit == Visit::New;
            node.visit = Visit::Open;
            bool isReady = true;
            for (const Input& input : node.inputs)
            {
                if (input.kind != Input::Kind::Link || nodes_[input.link.node].visit == Visit::Done)
                    continue;
                if (nodes_[input.link.node].visit == Visit::Open && (isFirstVisit || input.link.node == open.back()))
                    return Fault(node, "the links form a cycle");
                if (nodes_[input.link.node].visit == Visit::New)
                {
                    open.push_back(input.link.node);
                    isReady = false;
                }
            }
            if (!isReady)
                continue;
            VELTO_TRY(ReplaceNode(nodes_[open.back()]));
            node.isFixed = IsFixed(node);
            node.visit = Visit::Done;
            open.pop_back();
        }
        return {};
    }

    // Whether an input gives the same for every sample.
    bool IsFixedInput(const Node& node, Int i) const
    {
        const GroupPort& port = node.Port(i);
        const Input& input = node.inputs[static_cast<std::size_t>(i)];
        if (!port.input || IsFunctionType(port.type.Get()))
            return true;
        if (input.kind == Input::Kind::Link)
            return IsFixedSource(input.link);
        return port.type.Get() != TypeOf<ShadingContext>();
    }

    bool IsFixedSource(OutputOf link) const
    {
        if (const Input* const input = Resolve(link))
            return input->kind == Input::Kind::Value;
        return nodes_[link.node].isFixed;
    }

    bool IsFixed(const Node& node) const
    {
        if (node.Group().hasSideEffect)
            return false;
        for (Int i = 0; i < node.PortCount(); ++i)
        {
            if (!IsFixedInput(node, i))
                return false;
        }
        return true;
    }

    // Asks the node's optimizer, and those of what it answers, until one keeps its node.
    Result ReplaceNode(Node& node)
    {
        for (int rounds = 0; rounds < 16; ++rounds)
        {
            const ProbeFunction constant(true);
            const ProbeFunction varying(false);
            ColorAFunction functions[2] = {
                {Ref<const FunctionInterface>::Share(&constant)}, {Ref<const FunctionInterface>::Share(&varying)}};
            std::vector<const void*> constants(static_cast<std::size_t>(node.PortCount()), nullptr);
            for (Int i = 0; i < node.PortCount(); ++i)
            {
                const Input& input = node.inputs[static_cast<std::size_t>(i)];
                if (!node.Port(i).input || input.kind == Input::Kind::Default)
                    continue;
                const bool isVariable = input.source && options_.variable.contains(input.source->origin);
                if (IsFunctionType(node.Port(i).type.Get()))
                {
                    if (!input.source || !input.source->connected)
                        continue; // its node may do other than take the default
                    const bool isConstant =
                        !isVariable && (input.kind == Input::Kind::Value || IsFixedSource(input.link));
                    constants[static_cast<std::size_t>(i)] = &functions[isConstant ? 0 : 1];
                }
                else if (input.kind == Input::Kind::Value && !isVariable)
                    constants[static_cast<std::size_t>(i)] = input.source->value.Value();
            }
            const OptimizeRequest request{node.Group().record, static_cast<UInt32>(node.PortCount()), constants.data()};
            Optimization answer;
            VELTO_TRY(Optimize(node.Group(), request, answer));
            if (answer.kind == Optimization::Kind::Keep)
                return {};
            if (answer.kind == Optimization::Kind::TakeInput)
            {
                if (answer.input < 0 || answer.input >= node.PortCount() || !node.Port(answer.input).input)
                    return Fault(node, "its optimizer names an input that it does not have");
                node.takesInput = answer.input;
                return {};
            }
            VELTO_TRY(SwapGroup(node, answer));
        }
        return Fault(node, "its optimizers replace each other without end");
    }

    Result SwapGroup(Node& node, Optimization& answer)
    {
        const HostGroup& group = AsHost(answer.group);
        std::vector<Input> inputs(group.access.size());
        std::vector<Int> newOutputs(static_cast<std::size_t>(node.PortCount()), -1);
        for (UInt32 i = 0; i < answer.linkCount; ++i)
        {
            const auto [replacement, original] = answer.links[i];
            if (replacement < 0 || replacement >= static_cast<Int>(group.access.size()) || original < 0 ||
                original >= node.PortCount())
                return Fault(node, "its optimizer links a port that does not exist");
            if (node.Port(original).input)
                inputs[static_cast<std::size_t>(replacement)] = node.inputs[static_cast<std::size_t>(original)];
            else
                newOutputs[static_cast<std::size_t>(original)] = replacement;
        }
        // A second replacement starts from the ports of the first.
        if (node.newOutputs.empty())
            node.newOutputs = std::move(newOutputs);
        else
        {
            for (Int& output : node.newOutputs)
                output = output < 0 ? -1 : newOutputs[static_cast<std::size_t>(output)];
        }
        node.inputs = std::move(inputs);
        if (!node.original)
            node.original = node.group;
        node.group = std::move(answer.group);
        return {};
    }

    Result MakeOutputs()
    {
        MarkUsedPorts();
        program_.bodies.emplace_back();
        Body main{0, {}, {}};
        for (std::size_t i = 0; i < graph_.outputs.size(); ++i)
        {
            const CoreOutput& output = graph_.outputs[i];
            const DataType* type = nullptr;
            Address value;
            std::vector<UInt32> needs;
            if (outputs_[i])
            {
                VELTO_TRY(PlaceLink(main, *outputs_[i], type, value));
                needs = NeedsOf(*outputs_[i]);
            }
            else
            {
                type = output.source.value.Type();
                VELTO_TRY(PlaceConstant(output.source, type, value));
            }
            if (output.type)
            {
                VELTO_TRY(PlaceConversion(main, output.name, type, output.type, value, needs));
                type = output.type;
            }
            program_.outputs.push_back({output.name, type, value});
        }
        for (const Node& node : nodes_)
            program_.groups.push_back(node.group);
        for (const BodyPlan& body : program_.bodies)
            CountPorts(body);
        CountPorts(program_.setupBody);
        return {};
    }

    void CountPorts(const BodyPlan& body)
    {
        for (const CallPlan& call : body.calls)
            program_.maxPorts = std::max(program_.maxPorts, static_cast<UInt32>(call.slots.size()));
    }

    void MarkUsedPorts()
    {
        const auto use = [this](OutputOf link) {
            if (!Resolve(link))
                nodes_[link.node].usedPorts.insert(link.port);
        };
        for (const Node& node : nodes_)
        {
            for (const Input& input : node.inputs)
            {
                if (input.kind == Input::Kind::Link)
                    use(input.link);
            }
        }
        for (const std::optional<OutputOf>& output : outputs_)
        {
            if (output)
                use(*output);
        }
    }

    // The call of the setup that makes what a link leads to, if one does.
    std::vector<UInt32> NeedsOf(OutputOf link) const
    {
        if (Resolve(link) || !nodes_[link.node].isFixed)
            return {};
        return {static_cast<UInt32>(nodes_[link.node].setupCall)};
    }

    // Where the value at the end of a link lies in a body; places what computes it.
    Result PlaceLink(Body& body, OutputOf link, const DataType*& type, Address& address)
    {
        if (const Input* const input = Resolve(link))
        {
            // A replaced node's own input: a value, or the context.
            const Node& node = nodes_[link.node];
            type = node.Port(node.takesInput).type.Get();
            return PlacePlainInput(*input, type, address);
        }
        if (link.port < 0)
            return Fault(nodes_[link.node], "its replacement does not have the output that is read");
        VELTO_TRY(PlaceUpstream(body, link.node));
        const Node& node = nodes_[link.node];
        type = node.Port(link.port).type.Get();
        address = AddressOf(body, link);
        return {};
    }

    Address AddressOf(const Body& body, OutputOf link) const
    {
        const Node& node = nodes_[link.node];
        const auto port = static_cast<std::size_t>(link.port);
        if (node.isFixed)
            return {Store::Setup, node.setupPorts[port]};
        return {Store::Frame, body.placed.at(link.node)[port]};
    }

    bool IsPlaced(const Body& body, std::size_t index) const
    {
        return nodes_[index].isFixed ? nodes_[index].setupCall >= 0 : body.placed.contains(index);
    }

    // Places a node and all that it reads, upstream first, without recursion along chains.
    Result PlaceUpstream(Body& body, std::size_t index)
    {
        std::vector<std::size_t> open{index};
        while (!open.empty())
        {
            const std::size_t current = open.back();
            if (IsPlaced(body, current))
            {
                NoteFixedNode(body, current);
                open.pop_back();
                continue;
            }
            bool isReady = true;
            for (Int i = 0; i < nodes_[current].PortCount(); ++i)
            {
                const Input& input = nodes_[current].inputs[static_cast<std::size_t>(i)];
                if (!nodes_[current].Port(i).input || input.kind != Input::Kind::Link ||
                    IsFunctionType(nodes_[current].Port(i).type.Get()))
                    continue;
                OutputOf link = input.link;
                if (Resolve(link) || IsPlaced(body, link.node))
                    continue;
                open.push_back(link.node);
                isReady = false;
            }
            if (!isReady)
                continue;
            VELTO_TRY(PlaceNode(body, current));
            open.pop_back();
        }
        return {};
    }

    // That a body reads what a call of the setup makes.
    void NoteSetupCall(const Body& body, UInt32 call)
    {
        auto& calls = program_.bodies[body.index].setupCalls;
        if (std::find(calls.begin(), calls.end(), call) == calls.end())
            calls.push_back(call);
    }

    void NoteFixedNode(const Body& body, std::size_t index)
    {
        if (nodes_[index].isFixed)
            NoteSetupCall(body, static_cast<UInt32>(nodes_[index].setupCall));
    }

    Result PlaceNode(Body& body, std::size_t index)
    {
        Node& node = nodes_[index];
        const bool isFixed = node.isFixed;
        StorePlan& store = isFixed ? program_.setup : program_.frame;
        CallPlan call;
        call.compute = node.Group().record->compute;
        call.record = node.Group().record;
        call.node = static_cast<UInt32>(index);
        VELTO_TRY(CountSlots(node, placedSlots_));
        call.slots.resize(static_cast<std::size_t>(node.PortCount()));
        std::vector<UInt32> offsets(call.slots.size(), 0);
        std::vector<FunctionPlan> functions;
        std::vector<ResetPlan> resets;
        std::vector<ResetPlan> outputs;
        std::vector<UInt32> needs;
        for (Int i = 0; i < node.PortCount(); ++i)
        {
            const GroupPort& port = node.Port(i);
            SlotPlan& slot = call.slots[static_cast<std::size_t>(i)];
            if (!port.input)
            {
                const UInt32 offset = store.Add(port.type.Get());
                offsets[static_cast<std::size_t>(i)] = offset;
                slot.value = {isFixed ? Store::Setup : Store::Frame, offset};
                slot.flags = node.usedPorts.contains(i) ? 0 : slot_flags::kNotInUse;
                const ResetPlan output{port.type.Get(), offset};
                if (isFixed)
                    outputs.push_back(output);
                else if (port.Mark() != 0)
                    program_.bodies[body.index].kept.push_back(output);
                if (port.MayStayUnwritten() && !isFixed)
                    resets.push_back(output);
                continue;
            }
            const Input& input = node.inputs[static_cast<std::size_t>(i)];
            slot.flags = input.source && input.source->connected ? 0 : slot_flags::kNotConnected;
            if (IsFunctionType(port.type.Get()))
                VELTO_TRY(PlaceFunction(node, i, isFixed, slot.value, functions));
            else
                VELTO_TRY(PlaceInput(body, node, i, isFixed, slot.value, needs));
        }
        if (isFixed)
        {
            node.setupPorts = std::move(offsets);
            node.setupCall = static_cast<Int>(program_.setupBody.calls.size());
            program_.setupBody.calls.push_back(std::move(call));
            auto& all = program_.setupBody.functions;
            all.insert(all.end(), functions.begin(), functions.end());
            program_.setupDependencies.push_back(std::move(needs));
            program_.setupOutputs.push_back(std::move(outputs));
            NoteFixedNode(body, index);
        }
        else
        {
            body.placed.emplace(index, std::move(offsets));
            BodyPlan& plan = program_.bodies[body.index];
            plan.calls.push_back(std::move(call));
            plan.functions.insert(plan.functions.end(), functions.begin(), functions.end());
            plan.resets.insert(plan.resets.end(), resets.begin(), resets.end());
        }
        return {};
    }

    // A value, the default, or the context; never a link.
    Result PlacePlainInput(const Input& input, const DataType* type, Address& address)
    {
        if (input.kind == Input::Kind::Value)
            return PlaceConstant(*input.source, type, address);
        if (type == TypeOf<ShadingContext>())
        {
            address = {Store::Context, 0};
            return {};
        }
        Data initial;
        if (type == TypeOf<RenderMode>())
            VELTO_TRY(initial.Set(options_.renderMode));
        else if (options_.searchPaths && type == TypeOf<SearchPathsType>())
            VELTO_TRY(initial.Set(type, options_.searchPaths));
        else
            VELTO_TRY(MakeZero(type, initial));
        address = {Store::Setup, program_.setup.Add(type, std::move(initial))};
        return {};
    }

    // An input that is left out is zero, false or empty: not the opaque black that a new colour is.
    static Result MakeZero(const DataType* type, Data& zero)
    {
        VELTO_TRY(zero.Set(type, nullptr));
        if (type == TypeOf<ColorA>())
            *static_cast<ColorA*>(zero.Value()) = kTransparentBlack;
        return {};
    }

    Result PlaceConstant(const CoreInput& source, const DataType* type, Address& address)
    {
        if (source.value.Type() != type)
            return MakeError(error::kIllegalArgument,
                fmt::format("a value of type {} is given for {}", source.value.Type()->id.View(), type->id.View()));
        Data initial;
        VELTO_TRY(initial.CopyFrom(source.value));
        address = {Store::Setup, program_.setup.Add(type, std::move(initial))};
        if (!source.origin.empty())
            program_.settables.push_back({source.origin, type, address.offset});
        return {};
    }

    Result PlaceInput(Body& body, const Node& node, Int i, bool isFixed, Address& address, std::vector<UInt32>& needs)
    {
        const Input& input = node.inputs[static_cast<std::size_t>(i)];
        const DataType* const wanted = node.Port(i).type.Get();
        if (input.kind != Input::Kind::Link)
            return PlacePlainInput(input, wanted, address);
        const DataType* type = nullptr;
        VELTO_TRY(PlaceLink(body, input.link, type, address));
        OutputOf link = input.link;
        if (!Resolve(link) && nodes_[link.node].isFixed)
        {
            needs.push_back(static_cast<UInt32>(nodes_[link.node].setupCall));
            if (!isFixed)
                NoteFixedNode(body, link.node);
        }
        return PlaceConversion(body, node.source->name, type, wanted, address, needs);
    }

    // Puts a conversion behind the value at `address` where the types differ; one for all who want the same. What is
    // fixed is converted once.
    Result PlaceConversion(Body& body, const std::string& reader, const DataType* from, const DataType* to,
        Address& address, std::vector<UInt32>& needs)
    {
        if (from == to)
            return {};
        const Conversion convert = FindConversion(from, to);
        if (!convert)
            return MakeError(error::kIllegalArgument,
                fmt::format("{}: {} does not turn into {}", reader, from->id.View(), to->id.View()));
        const bool isFixed = address.store == Store::Setup;
        const auto key = std::tuple(address.store, address.offset, to);
        auto& known = isFixed ? setupConversions_ : body.converted;
        auto found = known.find(key);
        if (found == known.end())
        {
            CallPlan call;
            call.compute = convert;
            call.node = conversionNode_;
            const Address target{address.store, (isFixed ? program_.setup : program_.frame).Add(to)};
            call.slots = {{address, 0}, {target, 0}};
            BodyPlan& plan = isFixed ? program_.setupBody : program_.bodies[body.index];
            found = known.emplace(key, Converted{target, static_cast<UInt32>(plan.calls.size())}).first;
            plan.calls.push_back(std::move(call));
            if (isFixed)
            {
                program_.setupDependencies.push_back(needs);
                program_.setupOutputs.emplace_back();
            }
        }
        address = found->second.value;
        if (isFixed)
        {
            needs.push_back(found->second.call);
            NoteSetupCall(body, found->second.call);
        }
        return {};
    }

    // A function-valued input: none, a constant, a value that is fixed, or a body.
    Result PlaceFunction(const Node& node, Int i, bool isFixed, Address& address, std::vector<FunctionPlan>& functions)
    {
        const DataType* const type = node.Port(i).type.Get();
        const DataType* const yields = YieldedType(type);
        if (!yields)
            return Fault(node, fmt::format("functions of type {} are not known here", type->id.View()));
        const Input& input = node.inputs[static_cast<std::size_t>(i)];
        address = {isFixed ? Store::Setup : Store::Frame, (isFixed ? program_.setup : program_.frame).Add(type)};
        if (input.kind == Input::Kind::Default)
            return {}; // a null function
        FunctionPlan function;
        function.place = address;
        function.type = yields;
        OutputOf link = input.link;
        const Input* plain = input.kind == Input::Kind::Value ? &input : Resolve(link);
        if (plain && plain->kind == Input::Kind::Value)
            VELTO_TRY(PlaceConstant(*plain->source, yields, function.constant));
        else
            VELTO_TRY(PlaceBody(node, input.link, yields, function.body));
        functions.push_back(function);
        return {};
    }

    // The body that evaluates what is upstream of a link; one for all functions that want the same of it.
    Result PlaceBody(const Node& node, OutputOf link, const DataType* yields, Int& index)
    {
        const std::string key = fmt::format("{}:{}:{}", link.node, link.port, yields->id.View());
        if (const auto known = bodies_.find(key); known != bodies_.end())
        {
            index = known->second;
            return {};
        }
        if (++depth_ > kMaxDepth)
            return Fault(node, fmt::format("function-valued inputs are nested more than {} deep", kMaxDepth));
        Body body{program_.bodies.size(), {}, {}};
        program_.bodies.emplace_back();
        const DataType* type = nullptr;
        Address result;
        VELTO_TRY(PlaceLink(body, link, type, result));
        std::vector<UInt32> needs = NeedsOf(link);
        VELTO_TRY(PlaceConversion(body, node.source->name, type, yields, result, needs));
        program_.bodies[body.index].result = result;
        program_.bodies[body.index].resultType = yields;
        --depth_;
        index = static_cast<Int>(body.index);
        bodies_[key] = index;
        return {};
    }

    static constexpr int kMaxDepth = 256;
    static constexpr UInt kMaxSlots = 8'000'000;

    const CoreGraph& graph_;
    const CompileOptions& options_;
    Program& program_;
    std::vector<Node> nodes_;
    std::vector<std::optional<OutputOf>> outputs_;
    std::map<std::string, Int> bodies_;
    Conversions setupConversions_;
    UInt32 conversionNode_ = 0;
    int depth_ = 0;
    UInt inputSlots_ = 0;
    UInt placedSlots_ = 0;
};

} // namespace

Result Program::Compile(const CoreGraph& graph, const CompileOptions& options, std::shared_ptr<const Program>& program)
{
    return Guarded([&]() -> Result {
        auto made = std::make_shared<Program>();
        made->keepAlive = options.keepAlive;
        VELTO_TRY(Compiler(graph, options, *made).Run());
        program = std::move(made);
        return {};
    });
}

} // namespace velto::host
