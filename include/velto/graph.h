// Node graphs before they run: roots, ports in trees, attributes, and wires between ports.
#pragma once

#include "velto/data.h"
#include "velto/porttypes.h"

namespace velto
{

// A graph with its root. Ports are known to it by number.
struct NodeSystemObject : Object
{
};
using NodeSystem = Ref<NodeSystemObject>;

// The names on the way to a port, outermost first: `materialout.layers`. Null is the empty path.
struct NodePathObject : Object
{
};
using NodePath = Ref<NodePathObject>;

using WireMode = UInt;

namespace wire_mode
{
inline constexpr WireMode kContext = 0x10000000;                // a context reaches a port
inline constexpr WireMode kDefaultContext = 0x0010000010000008; // ... that holds it where nothing else is given
inline constexpr WireMode kForward = 0x1010;                    // a value is handed on
} // namespace wire_mode

namespace port_attribute
{
inline constexpr Id kPortFlags{"portflags"}; // byte
inline constexpr Id kFixedType{"fixedtype"}; // data type
inline constexpr Id kFunctionResult{"functionresult"};
inline constexpr Id kContextMember{"contextmember"};
inline constexpr Id kContextMemberDefinitionPrefix{"contextmemberdefinitionprefix"};
inline constexpr Id kTappingPort{"tappingport"};
inline constexpr Id kInternalHidden{"net.velto.node.attribute.internalhidden"};
inline constexpr Id kDefaultValue{"net.velto.description.data.base.defaultvalue"};
inline constexpr Id kInheritPorts{"inheritports"};
inline constexpr Id kSynthesizePorts{"synthesizeports"};
// Of the list of outputs, ids: what people see of a node that is a template.
inline constexpr Id kLabel{"net.velto.description.data.base.label"};
inline constexpr Id kCategory{"net.velto.description.data.base.category"};
inline constexpr Id kHelp{"net.velto.description.data.base.help"};
} // namespace port_attribute

// All: [one thread at a time to a node system] the first error is returned, and what was done before stays.
struct NodeGraphInterface
{
    static constexpr Id kId{"net.velto.node.interface.nodegraph"};
    static constexpr Id kFramework{"net.velto.nodes.framework"};

    // The number of the root's list of inputs or outputs.
    VELTO_METHOD(GetList, Result(const NodeSystemObject* system, Bool inputs, Int* port));
    // The child of that name, -1 when there is none. The empty name is the list itself.
    VELTO_METHOD(FindPort, Result(const NodeSystemObject* system, Int parent, const Id& name, Int* port));
    // The child of that name, added if there is none.
    VELTO_METHOD(AddPort, Result(NodeSystemObject* system, Int parent, const Id& name, Int* port));
    VELTO_METHOD(GetChildCount, Result(const NodeSystemObject* system, Int parent, Int* count));
    VELTO_METHOD(GetChild, Result(const NodeSystemObject* system, Int parent, Int i, Int* port));
    VELTO_METHOD(GetName, Result(const NodeSystemObject* system, Int port, Id* name));
    // The attribute's value; empty when it was never set.
    VELTO_METHOD(GetValue, Result(const NodeSystemObject* system, Int port, const Id& attribute, Data* value));
    VELTO_METHOD(
        SetValue, Result(NodeSystemObject* system, Int port, const Id& attribute, const Data& value, Int32 flags));
    VELTO_METHOD(Connect, Result(NodeSystemObject* system, Int from, Int to, WireMode mode));
    // Applies the changes since the last time.
    VELTO_METHOD(Commit, Result(NodeSystemObject* system, Int32 flags));
};
VELTO_USED_BY_INCLUDERS("velto/graph.h", NodeGraphInterface);

// What makes graphs.
struct NodeSystemClassObject : Object
{
    // [any thread; building] A new graph with a root; the caller owns the reference.
    Result (*create)(const NodeSystemClassObject* self, NodeSystemObject** system) = nullptr;
};
using NodeSystemClass = Ref<const NodeSystemClassObject>;

struct NodesLibInterface
{
    static constexpr Id kId{"net.velto.node.interface.nodeslib"};
    static constexpr Id kFramework{"net.velto.nodes.framework"};

    // Ends the changes and makes a template of the graph.
    VELTO_METHOD(WrapTemplate, Result(NodeSystemObject* system, const Id& id, Data* nodeTemplate));
};
VELTO_USED_BY_INCLUDERS("velto/graph.h", NodesLibInterface);

struct NodePathInterface
{
    static constexpr Id kId{"net.velto.graph.interface.nodepath"};
    static constexpr Id kFramework{"net.velto.nodes.framework"};

    // A path of one name.
    VELTO_METHOD(Create, Result(const char* name, UInt length, NodePathObject** path));
};
VELTO_USED_BY_INCLUDERS("velto/graph.h", NodePathInterface);

// A port of a graph that is being built. An empty one belongs to none.
class MutablePort
{
public:
    MutablePort() = default;
    MutablePort(NodeSystem system, Int port) : system_(std::move(system)), port_(port) {}

    const NodeSystem& GetNodeSystem() const { return system_; }
    bool IsEmpty() const { return !system_; }
    friend bool operator==(const MutablePort& a, const MutablePort& b) = default;

    // The child of that name; empty when there is none, which is no error.
    Result FindPort(const Id& name, MutablePort& found) const
    {
        VELTO_CHECK_STATE(this->GetNodeSystem());
        Int port = -1;
        VELTO_TRY(Graph().FindPort(system_.Get(), port_, name, &port));
        found = port < 0 ? MutablePort() : MutablePort(system_, port);
        return {};
    }

    Result AddPort(const Id& name, MutablePort& added) const
    {
        VELTO_CHECK_STATE(this->GetNodeSystem());
        Int port = -1;
        VELTO_TRY(Graph().AddPort(system_.Get(), port_, name, &port));
        added = MutablePort(system_, port);
        return {};
    }

    // Calls `visit(child)` for each direct child there is now, until one returns an error.
    template <class Visit>
    Result GetChildren(Visit&& visit) const
    {
        VELTO_CHECK_ARGUMENT_AS(system_, "nodeSystem");
        Int count = 0;
        VELTO_TRY(Graph().GetChildCount(system_.Get(), port_, &count));
        for (Int i = 0; i < count; ++i)
        {
            Int child = -1;
            VELTO_TRY(Graph().GetChild(system_.Get(), port_, i, &child));
            VELTO_TRY(visit(MutablePort(system_, child)));
        }
        return {};
    }

    // The last component of its path.
    Result GetName(Id& name) const
    {
        VELTO_CHECK_STATE(this->GetNodeSystem());
        return Graph().GetName(system_.Get(), port_, &name);
    }

    Result GetValue(const Id& attribute, Data& value) const
    {
        VELTO_CHECK_STATE(this->GetNodeSystem());
        return Graph().GetValue(system_.Get(), port_, attribute, &value);
    }

    template <class T>
    Result SetValue(const Id& attribute, const T& value) const
    {
        VELTO_CHECK_STATE(this->GetNodeSystem());
        Data data;
        VELTO_TRY(data.Set(value));
        return Graph().SetValue(system_.Get(), port_, attribute, data, 1);
    }

    // Wires this port to `target`, of the same graph.
    Result Connect(const MutablePort& target, WireMode mode) const
    {
        VELTO_CHECK_STATE(this->GetNodeSystem());
        VELTO_CHECK_ARGUMENT_AS(target.system_ == system_,
            "target.GetValue().GetNodeSystem().GetPointer() == this->GetNodeSystem().GetPointer()");
        return Graph().Connect(system_.Get(), port_, target.port_, mode);
    }

    Int Number() const { return port_; }

private:
    static const NodeGraphInterface& Graph() { return Bound<NodeGraphInterface>(); }

    NodeSystem system_;
    Int port_ = -1;
};

// The root of a graph that is being built.
class MutableRoot
{
public:
    MutableRoot() = default;
    explicit MutableRoot(NodeSystem system) : system_(std::move(system)) {}

    const NodeSystem& GetNodeSystem() const { return system_; }
    Result GetInputs(MutablePort& inputs) const { return GetList(true, inputs); }
    Result GetOutputs(MutablePort& outputs) const { return GetList(false, outputs); }

    Result Commit(Int32 flags) const
    {
        VELTO_CHECK_STATE_AS(system_, "_system");
        return Bound<NodeGraphInterface>().Commit(system_.Get(), flags);
    }

private:
    Result GetList(Bool inputs, MutablePort& list) const
    {
        VELTO_CHECK_STATE(this->GetNodeSystem());
        Int port = -1;
        VELTO_TRY(Bound<NodeGraphInterface>().GetList(system_.Get(), inputs, &port));
        list = MutablePort(system_, port);
        return {};
    }

    NodeSystem system_;
};

// What a description finalizer is: a function that completes a described node's root.
struct DescriptionFinalizerObject : Object
{
    // [one thread; loading]
    Result (*finalize)(const DescriptionFinalizerObject* self, const MutableRoot* root) = nullptr;
};
using DescriptionFinalizer = Ref<const DescriptionFinalizerObject>;

// What a built-in node is: a function that makes its template.
struct BuiltinNodeObject : Object
{
    // [one thread; building] Makes the graph of the node.
    Result (*makeTemplate)(const BuiltinNodeObject* self, Data* nodeTemplate) = nullptr;
};
using BuiltinNode = Ref<const BuiltinNodeObject>;

} // namespace velto

VELTO_HOST_DATA_TYPE(velto::NodePath, "net.velto.graph.interface.nodepath");
VELTO_HOST_DATA_TYPE(velto::NodeSystem, "net.velto.node.datatype.nodesystem");
VELTO_HOST_DATA_TYPE(velto::NodeSystemClass, "net.velto.node.datatype.nodesystemclass");
VELTO_HOST_DATA_TYPE(velto::DescriptionFinalizer, "net.velto.node.datatype.descriptionfinalizer");
VELTO_HOST_DATA_TYPE(velto::BuiltinNode, "net.velto.node.datatype.builtinnode");
