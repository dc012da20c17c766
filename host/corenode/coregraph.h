// A graph of core nodes: what a document becomes, and what a program is compiled from.
#pragma once

#include "velto/data.h"
#include "velto/shadingcontext.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velto::host
{

struct CorePort
{
    std::size_t node = 0; // index in the graph
    std::string port;
};

// The source of an input. Without a link and a value it is the default of its type.
struct CoreInput
{
    std::optional<CorePort> link;
    Data value;            // of a function-valued port: a value of what the function yields
    bool connected = true; // whether the node sees the input as connected
    std::string origin;    // the name by which `Setup::Set` finds the value; empty: it cannot be set
    // The values of an enumeration, checked when the value is set; null: any value.
    const std::vector<std::string>* values = nullptr;
};

struct CoreNode
{
    std::string name;              // for people: in errors and counts
    std::string type;              // the id in the registry of core nodes, or `kForwardNode`
    Ref<const DataType> forwarded; // of a node that hands its input on
    DataDictionary arguments;
    std::map<std::string, CoreInput> inputs;
};

// A link, or a value that every sample has.
struct CoreOutput
{
    std::string name;
    CoreInput source;
    const DataType* type = nullptr; // what it is converted to; null: nothing else than it is
};

// A name that stands for the values of many inputs, which may differ in type.
struct CoreParameter
{
    std::string name;
    const DataType* type = nullptr;
    const std::vector<std::string>* values = nullptr;
};

struct CoreGraph
{
    std::vector<CoreNode> nodes;
    std::vector<CoreOutput> outputs;
    std::vector<CoreParameter> parameters; // each is the origin of its values
};

} // namespace velto::host
