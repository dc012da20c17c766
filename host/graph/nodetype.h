// A type of node that a document may use: a core node, or what a description makes of core nodes.
#pragma once

#include "json.h"

#include "velto/corenodes.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace velto::host
{

// A port of one of a type's inner core nodes.
struct InnerPort
{
    std::size_t node = 0;
    std::string port;
    // Of an input: the type of its values, where that is not the outer port's.
    const DataType* valueType = nullptr;
    bool isFunction = false; // of a document's input, whose own type does not tell: whether the port takes a function
};

struct NodePort
{
    std::string name;
    bool input = true;
    Ref<const DataType> type;
    bool isVariadic = false;        // takes an array; its elements go to `port[0]`, `port[1]`, ... of the targets
    std::string namedBy;            // of a variadic port whose elements are `port#name`: the argument with the names
    std::string follows;            // the input whose link it takes where it has none of its own
    std::vector<InnerPort> targets; // of an output: the one that it shows
    Int32 mark = 0;
    Int index = -1; // access index in a core node

    // From the description; a null default is zero, false or empty.
    Data defaultValue;
    std::vector<std::string> values; // what an enumeration knows
    bool hasFallback = true;         // of an enumeration: whether the node takes a value that it does not know
    // Of a bundle, whose elements are objects: their members.
    std::vector<NodePort> members;
    Json defaultElements;
    std::string group; // the ports of a graph root under which it stands there, with dots between them
    std::string id;    // of a bundle's member: what editors know it by
    // For people.
    std::string label;
    std::string help;
    Json minimum;
    Json maximum;
    Json shownDefault;
    std::vector<std::string> valueLabels;

    bool IsBundle() const { return !members.empty(); }
};

struct InnerNode
{
    std::string name; // in the description; empty for a core node that stands for itself
    std::string type; // core node id, or `kForwardNode`
    Ref<const DataType> forwarded;
    DataDictionary arguments; // that the description gives where the document gives none
    struct Given
    {
        std::string port;
        bool link = false;
        InnerPort from; // of a link
        Data value;     // else; empty: what a port is that nothing is given
        bool connected = true;
    };
    std::vector<Given> given;
};

// Commands that an editor offers beside a node's ports.
struct NodeButtons
{
    std::string id;
    std::vector<std::string> commands;
};

struct NodeType
{
    std::string id;
    std::string name; // the last word of the id
    bool isDescribed = false;
    std::string module; // that it comes with, by its name; empty: the host
    std::string label;
    std::string category;
    std::string help;
    std::string keywords;        // that a search finds the node by, separated by spaces
    std::vector<NodePort> ports; // see AddPort
    std::vector<InnerNode> inner;
    std::vector<NodeButtons> buttons;
    std::vector<std::string> arguments; // of a core node: the names of those that it is built from
    // Of a document: how many nodes and links it stands for, with those of the documents in it. Its inner nodes are
    // connected as it says, what an instance gives or not.
    bool isDocument = false;
    std::size_t documentNodes = 0;
    std::size_t documentLinks = 0;

    void AddPort(NodePort port);
    const NodePort* FindPort(std::string_view portName, bool input) const;
    std::vector<std::string> PortNames(bool input) const;

private:
    std::map<std::string, std::size_t, std::less<>> places_[2]; // of outputs and of inputs, by name
};

} // namespace velto::host
