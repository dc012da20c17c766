// Places settled nodes in bodies: flat lists of calls whose slots say where values lie.
#include "place.h"

#include "host/corenode/convert.h"
#include "host/registry/datatypes.h"
#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

namespace velto::host
{

namespace
{

class Placer
{
public:
    Placer(const CoreGraph& source, const CompileOptions& options, SettledGraph& settled, Program& program)
        : source_(source), options_(options), settled_(settled), program_(program),
          conversionNode_(static_cast<UInt32>(settled.nodes.size()))
    {
    }

    Result MakeOutputs()
    {
        MarkUsedPorts();
        program_.bodies.emplace_back();
        Body main{0, {}, {}};
        for (std::size_t i = 0; i < source_.outputs.size(); ++i)
        {
            const CoreOutput& output = source_.outputs[i];
            const DataType* type = nullptr;
            Address value;
            std::vector<UInt32> needs;
            if (settled_.outputs[i])
            {
                VELTO_TRY(PlaceLink(main, *settled_.outputs[i], type, value));
                needs = NeedsOf(*settled_.outputs[i]);
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
        for (const GraphNode& node : settled_.nodes)
            program_.groups.push_back(node.group);
        for (const BodyPlan& body : program_.bodies)
            CountPorts(body);
        CountPorts(program_.setupBody);
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
    void CountPorts(const BodyPlan& body)
    {
        for (const CallPlan& call : body.calls)
            program_.maxPorts = std::max(program_.maxPorts, static_cast<UInt32>(call.slots.size()));
    }

    void MarkUsedPorts()
    {
        const auto use = [this](OutputOf link) {
            if (!settled_.Resolve(link))
                settled_.nodes[link.node].usedPorts.insert(link.port);
        };
        for (const GraphNode& node : settled_.nodes)
        {
            for (const GraphInput& input : node.inputs)
            {
                if (input.kind == GraphInput::Kind::Link)
                    use(input.link);
            }
        }
        for (const std::optional<OutputOf>& output : settled_.outputs)
        {
            if (output)
                use(*output);
        }
    }

    // The call of the setup that makes what a link leads to, if one does.
    std::vector<UInt32> NeedsOf(OutputOf link) const
    {
        if (settled_.Resolve(link) || !settled_.nodes[link.node].isFixed)
            return {};
        return {static_cast<UInt32>(settled_.nodes[link.node].setupCall)};
    }

    // Where the value at the end of a link lies in a body; places what computes it.
    Result PlaceLink(Body& body, OutputOf link, const DataType*& type, Address& address)
    {
        if (const GraphInput* const input = settled_.Resolve(link))
        {
            // A replaced node's own input: a value, or the context.
            const GraphNode& node = settled_.nodes[link.node];
            type = node.Port(node.takesInput).type.Get();
            return PlacePlainInput(*input, type, address);
        }
        if (link.port < 0)
            return Fault(settled_.nodes[link.node], "its replacement does not have the output that is read");
        VELTO_TRY(PlaceUpstream(body, link.node));
        const GraphNode& node = settled_.nodes[link.node];
        type = node.Port(link.port).type.Get();
        address = AddressOf(body, link);
        return {};
    }

    Address AddressOf(const Body& body, OutputOf link) const
    {
        const GraphNode& node = settled_.nodes[link.node];
        const auto port = static_cast<std::size_t>(link.port);
        if (node.isFixed)
            return {Store::Setup, node.setupPorts[port]};
        return {Store::Frame, body.placed.at(link.node)[port]};
    }

    bool IsPlaced(const Body& body, std::size_t index) const
    {
        return settled_.nodes[index].isFixed ? settled_.nodes[index].setupCall >= 0 : body.placed.contains(index);
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
            for (Int i = 0; i < settled_.nodes[current].PortCount(); ++i)
            {
                const GraphInput& input = settled_.nodes[current].inputs[static_cast<std::size_t>(i)];
                if (!settled_.nodes[current].Port(i).input || input.kind != GraphInput::Kind::Link ||
                    FunctionResultType(settled_.nodes[current].Port(i).type.Get()))
                    continue;
                OutputOf link = input.link;
                if (settled_.Resolve(link) || IsPlaced(body, link.node))
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
        if (settled_.nodes[index].isFixed)
            NoteSetupCall(body, static_cast<UInt32>(settled_.nodes[index].setupCall));
    }

    Result PlaceNode(Body& body, std::size_t index)
    {
        GraphNode& node = settled_.nodes[index];
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
                if (port.mayStayUnwritten && !isFixed)
                    resets.push_back(output);
                continue;
            }
            const GraphInput& input = node.inputs[static_cast<std::size_t>(i)];
            slot.flags = input.source && input.source->connected ? 0 : slot_flags::kNotConnected;
            if (FunctionResultType(port.type.Get()))
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
    Result PlacePlainInput(const GraphInput& input, const DataType* type, Address& address)
    {
        if (input.kind == GraphInput::Kind::Value)
            return PlaceConstant(*input.source, type, address);
        if (type == TypeOf<ShadingContext>())
        {
            address = {Store::Context, 0};
            return {};
        }
        Data initial;
        if (type == TypeOf<RenderMode>())
            VELTO_TRY(initial.Set(options_.renderMode));
        else if (options_.searchPaths && IsSearchPathsType(type))
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

    Result PlaceInput(
        Body& body, const GraphNode& node, Int i, bool isFixed, Address& address, std::vector<UInt32>& needs)
    {
        const GraphInput& input = node.inputs[static_cast<std::size_t>(i)];
        const DataType* const wanted = node.Port(i).type.Get();
        if (input.kind != GraphInput::Kind::Link)
            return PlacePlainInput(input, wanted, address);
        const DataType* type = nullptr;
        VELTO_TRY(PlaceLink(body, input.link, type, address));
        OutputOf link = input.link;
        if (!settled_.Resolve(link) && settled_.nodes[link.node].isFixed)
        {
            needs.push_back(static_cast<UInt32>(settled_.nodes[link.node].setupCall));
            if (!isFixed)
                NoteFixedNode(body, link.node);
        }
        return PlaceConversion(body, node.source->name, type, wanted, address, needs);
    }

    // Adds a conversion of the value at `address` where the types differ; readers of one type share it. What is
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
    Result PlaceFunction(
        const GraphNode& node, Int i, bool isFixed, Address& address, std::vector<FunctionPlan>& functions)
    {
        const DataType* const type = node.Port(i).type.Get();
        const DataType* const yields = FunctionResultType(type);
        if (!yields)
            return Fault(node, fmt::format("functions of type {} are not known here", type->id.View()));
        const GraphInput& input = node.inputs[static_cast<std::size_t>(i)];
        address = {isFixed ? Store::Setup : Store::Frame, (isFixed ? program_.setup : program_.frame).Add(type)};
        if (input.kind == GraphInput::Kind::Default)
            return {}; // a null function
        FunctionPlan function;
        function.place = address;
        function.type = yields;
        OutputOf link = input.link;
        const GraphInput* plain = input.kind == GraphInput::Kind::Value ? &input : settled_.Resolve(link);
        if (plain && plain->kind == GraphInput::Kind::Value)
            VELTO_TRY(PlaceConstant(*plain->source, yields, function.constant));
        else
            VELTO_TRY(PlaceBody(node, input.link, yields, function.body));
        functions.push_back(function);
        return {};
    }

    // The body that evaluates what is upstream of a link; one for all functions that want the same of it.
    Result PlaceBody(const GraphNode& node, OutputOf link, const DataType* yields, Int& index)
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

    const CoreGraph& source_;
    const CompileOptions& options_;
    SettledGraph& settled_;
    Program& program_;
    std::map<std::string, Int> bodies_;
    Conversions setupConversions_;
    UInt32 conversionNode_;
    int depth_ = 0;
    UInt placedSlots_ = 0;
};

} // namespace

Result PlaceGraph(const CoreGraph& source, const CompileOptions& options, SettledGraph& settled, Program& program)
{
    return Placer(source, options, settled, program).MakeOutputs();
}

} // namespace velto::host
