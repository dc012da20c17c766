// The core node runtime: what a node gives it and gets from it.
#pragma once

#include "velto/data.h"

namespace velto
{

// Flags of a port's slot.
namespace slot_flags
{
inline constexpr UInt32 kNotConnected = 1;
inline constexpr UInt32 kNotInUse = 2;
} // namespace slot_flags

// Where a port's value lies for one call. Outputs are written through the same address.
struct Slot
{
    void* value = nullptr;
    UInt32 stride = 0; // bytes from one sample of a batch to the next
    UInt32 flags = 0;
};

static_assert(sizeof(Slot) == 16);

// The slot of access index i lies at frame + offsets[i].
struct Binding
{
    std::byte* frame = nullptr;
    const UInt32* offsets = nullptr;
};

// The head of every frame. A batch runs over the samples [first, end).
struct FrameHead
{
    UInt own[2] = {};
    Int first = 0;
    Int end = 1;
};

struct AccessBuilder;

enum class MicroNodeKind : Int32
{
    Sample = 1, // one sample a call
    Batch = 2,  // the samples [first, end) a call
};

// What runs. Nodes may append words of their own.
struct MicroNode
{
    UInt word = 0;
    MicroNodeKind kind = MicroNodeKind::Sample;
    Int32 flags = 0; // of a port's micro node: its marks
    void (*destructor)(MicroNode* self) = nullptr;
    Result (*access)(MicroNode* self, AccessBuilder* builder) = nullptr;
    UInt portCount = 0;
    // [any thread; sampling] `out` is raw memory for a `Result`. An output that the node leaves alone keeps its value.
    void (*compute)(Result* out, const MicroNode* self, const Binding* binding) = nullptr;
    UInt reserved[2] = {};
};

static_assert(sizeof(MicroNode) == 64 && offsetof(MicroNode, compute) == 40);

// Marks of output ports.
namespace port_mark
{
inline constexpr Int32 kOncePerSetup = 8;
inline constexpr Int32 kState = 40;
} // namespace port_mark

namespace port_flags
{
inline constexpr Int32 kInput = 97;
inline constexpr Int32 kOutput = 176;
} // namespace port_flags

inline constexpr UInt kKeyBit = UInt(1) << 63;

// The key of a port that is declared by name; ports whose names are formed at run time have the key `kKeyBit`.
constexpr UInt PortKey(std::string_view name, bool input)
{
    return input ? ~HashBytes(name) | kKeyBit : HashBytes(name) & ~kKeyBit;
}

struct MicroNodeGroup : Object
{
};

struct PortMicroNode;

// What is known of a node while a program is built from it.
struct OptimizeRequest
{
    const MicroNode* record;
    UInt32 portCount;
    // By access index: the value of an input that is the same for every sample, else null.
    const void* const* constants;
};

// What an optimizer answers: nothing, an input that stands for the node, or a group that replaces it.
struct Optimization
{
    enum class Kind : Int32
    {
        Keep,
        TakeInput,
        Replace,
    };
    struct Link
    {
        Int32 replacement; // access index in the new group
        Int32 original;    // access index in the node
    };

    Kind kind = Kind::Keep;
    Int32 input = -1; // TakeInput: access index of the input that the (only) output then equals
    Ref<MicroNodeGroup> group;
    Link links[16] = {};
    UInt32 linkCount = 0;
};

using Optimizer = Result (*)(const OptimizeRequest* request, Optimization* answer);

struct MicroNodeGroupInterface
{
    static constexpr Id kId{"net.velto.corenode.interface.micronodegroup"};
    static constexpr Id kFramework{"net.velto.corenodes.framework"};

    // All: [one thread; building] the first error ends the building of a group.

    // A new empty group; the caller owns the reference.
    VELTO_METHOD(Alloc, Result(MicroNodeGroup** group));
    VELTO_METHOD(SetId, Result(MicroNodeGroup* group, const Id& id));
    // Adds a port; `name` is copied. A name `.family#*` stands for any number of ports.
    VELTO_METHOD(PrivateCreatePort, Result(MicroNodeGroup* group, UInt key, const char* name, Int32 flags, Int32 zero,
                                        const DataType* type, Int32 minusOne));
    // The micro node of a port that was declared with `key`; unresolved when there is none.
    VELTO_METHOD(PrivateGetMicroNode, Result(MicroNodeGroup* group, UInt key, PortMicroNode** node));
    // Takes the record over: the group calls its destructor, also when this fails.
    VELTO_METHOD_HASHED(AddMicroNode, 0x8114f0cc8d495750, Result(MicroNodeGroup* group, MicroNode* record));
    // Checks that every port has an access index and freezes the group.
    VELTO_METHOD(PrivateFinalize, Result(MicroNodeGroup* group));
};
VELTO_USED_BY_INCLUDERS("velto/corenodes.h", MicroNodeGroupInterface);

struct MicroNodeInterface
{
    static constexpr Id kId{"net.velto.corenode.interface.micronode"};
    static constexpr Id kFramework{"net.velto.corenodes.framework"};

    // [one thread; building] The record behind a port, whose `flags` take the marks.
    VELTO_METHOD(GetImplementation, Result(PortMicroNode* node, MicroNode** implementation));
    // [one thread; building] Gives the port of `key` its access index. `direction` 0 is input, 1 output.
    VELTO_METHOD(PrivateDescribePortAccess, Result(AccessBuilder* builder, Int index, UInt key, Int32 direction));
    // Gives the ports of a family, `.family#*`, whose names were formed at run time, contiguous access indices in order
    // of declaration. Index -1: the family stands for any number of ports and has none yet.
    VELTO_METHOD(
        PrivateExportPortAccess, Result(AccessBuilder* builder, Int first, const char* family, UInt32 accessFlags));
};
VELTO_USED_BY_INCLUDERS("velto/corenodes.h", MicroNodeInterface);

inline constexpr UInt32 kExportAccessFlags = 0x7FFE7FFF;

struct CoreNodeInstanceBaseInterface
{
    static constexpr Id kId{"net.velto.corenode.interface.corenodeinstancebase"};
    static constexpr Id kFramework{"net.velto.corenodes.framework"};

    // [one thread; building] `hasSideEffect`: the node does more than write its outputs, so every sample runs it.
    VELTO_METHOD(InitFactory, Result(MicroNodeGroup* group, Bool hasSideEffect));
};
VELTO_USED_BY_INCLUDERS("velto/corenodes.h", CoreNodeInstanceBaseInterface);

struct CoreNodesLibInterface
{
    static constexpr Id kId{"net.velto.corenode.interface.corenodeslib"};
    static constexpr Id kFramework{"net.velto.corenodes.framework"};

    // [one thread; building] The function is asked whenever a program is built from the group.
    VELTO_METHOD(SetOptimizer, Result(MicroNodeGroup* group, Optimizer optimizer));
    // [one thread; building] The optimizer of a table of rows of four: access index of an input, the constant that it
    // must have, the input that then stands for the node, -1.
    VELTO_METHOD(CreateOptimizer, Result(MicroNodeGroup* group, const Int32* rows, Int32 rowCount));
    // [one thread; building] A successful call need not write the output that was declared with `key`; unresolved when
    // there is none.
    VELTO_METHOD(SetMayStayUnwritten, Result(MicroNodeGroup* group, UInt key));
};
VELTO_USED_BY_INCLUDERS("velto/corenodes.h", CoreNodesLibInterface);

struct FactoryObject : Object
{
};

// What a core node is in its registry: a function that makes the node's group from construction arguments.
using CoreNodeFactory = Ref<FactoryObject>;

using GroupBuilder = Result (*)(const void* context, const DictionaryObject* arguments, MicroNodeGroup** group);

struct FactoryInterface
{
    static constexpr Id kId{"net.velto.interface.factoryfactory"};
    static constexpr Id kFramework{"net.velto.core.framework"};

    // [any thread] A factory that keeps the last `cacheSize` groups and makes one group for equal arguments.
    // `attributes` is shared, `context` goes to the builder and must outlive the factory.
    VELTO_METHOD(PrivateCreateCached, Result(DictionaryObject* attributes, GroupBuilder builder, const void* context,
                                          Int32 cacheSize, FactoryObject** factory));
};
VELTO_USED_BY_INCLUDERS("velto/corenodes.h", FactoryInterface);

inline constexpr Id kNodeIdKey{"net.velto.corenode.nodeid"};

} // namespace velto

VELTO_HOST_DATA_TYPE(velto::CoreNodeFactory, "net.velto.corenode.datatype.factory");
