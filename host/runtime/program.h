// A compiled graph: immutable, shared by all threads.
//
// Values lie in two stores. `Setup` holds what does not depend on the sample: the document's constants and the outputs
// of nodes that run once, shared by all threads. `Frame` holds what a thread works on. Every slot of every call is
// linked to the address of the value it reads or writes; nothing is copied between nodes.
#pragma once

#include "host/corenode/coregraph.h"
#include "host/corenode/group.h"

#include <memory>
#include <set>

namespace velto::host
{

class Module;

enum class Store : std::uint8_t
{
    Nowhere,
    Setup,
    Frame,
    Context, // the context under which a body runs
};

struct Address
{
    Store store = Store::Nowhere;
    UInt32 offset = 0;

    friend bool operator==(const Address&, const Address&) = default;
};

// A value in a store. Constants carry their initial values.
struct ValuePlan
{
    Ref<const DataType> type;
    UInt32 offset = 0;
    Data initial;
};

struct SlotPlan
{
    Address value;
    UInt32 flags = 0;
};

// A compute function with its slots by access index.
struct CallPlan
{
    void (*compute)(Result*, const MicroNode*, const Binding*) = nullptr;
    const MicroNode* record = nullptr;
    UInt32 node = 0; // index of its name
    std::vector<SlotPlan> slots;
};

// A function object in a store: a body, or a value that every context gives.
struct FunctionPlan
{
    Address place;
    Int body = -1;    // -1: a constant
    Address constant; // in the setup's store
    const DataType* type = nullptr;
};

// An output that is reset before a run: one that a call may leave unwritten, or state that must not last.
struct ResetPlan
{
    const DataType* type;
    UInt32 offset;
};

// A flat list of calls in order: the graph's outputs, or what is upstream of a function-valued input.
struct BodyPlan
{
    std::vector<CallPlan> calls;
    std::vector<FunctionPlan> functions;
    std::vector<ResetPlan> resets;
    std::vector<ResetPlan> kept;    // state, from one run to the next
    std::vector<UInt32> setupCalls; // calls of the setup whose values it reads
    Address result;                 // of a function
    const DataType* resultType = nullptr;
};

// A value that lies in two memory pages is slow to read and to write, by as much as a cheap node takes. Values up to
// this size are aligned so that none does; a shading context is among them.
inline constexpr UInt32 kPageShare = 1024;

struct StorePlan
{
    std::vector<ValuePlan> values;
    UInt32 size = 0;
    UInt32 alignment = 1;

    UInt32 Add(const DataType* type, Data initial = {});
};

struct OutputPlan
{
    std::string name;
    const DataType* type = nullptr;
    Address value;
};

// A constant of the document that can be set, by its name there.
struct SettablePlan
{
    std::string origin;
    const DataType* type = nullptr;
    UInt32 offset = 0; // in the setup's store
};

struct CompileOptions
{
    RenderMode renderMode;
    const SearchPathsType* searchPaths = nullptr;
    // Origins of values that `Setup::Set` will change: no optimizer may rely on them. Others may be changed too, unless
    // the program rests on them.
    std::set<std::string> variable;
    // Kept for as long as the program lives.
    std::shared_ptr<const void> keepAlive;
};

struct Program
{
    // Errors name the node at fault.
    static Result Compile(
        const CoreGraph& graph, const CompileOptions& options, std::shared_ptr<const Program>& program);

    std::shared_ptr<const void> keepAlive; // goes last
    std::vector<std::string> nodeNames;    // by index of the calls; the last, empty one is that of conversions
    std::vector<Ref<MicroNodeGroup>> groups;
    StorePlan setup;
    StorePlan frame;
    BodyPlan setupBody;                                 // what runs once, in order
    std::vector<std::vector<UInt32>> setupDependencies; // of each setup call: the setup calls that it needs
    std::vector<std::vector<ResetPlan>> setupOutputs;   // of each setup call: what it writes
    std::vector<BodyPlan> bodies;                       // the first computes the outputs
    std::vector<OutputPlan> outputs;
    std::vector<SettablePlan> settables;
    std::set<std::string> restsOn; // origins of values by which nodes were replaced; another program has others
    UInt32 maxPorts = 0;
};

} // namespace velto::host
