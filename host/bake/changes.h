// Inputs that a document gives by value, changed by their names.
#pragma once

#include "host/graph/json.h"
#include "host/runtime/graph.h"

#include <map>
#include <string>
#include <vector>

namespace velto::host
{

// What `Setup::Set` takes.
struct InputChange
{
    std::string origin;
    Data value;
};

// What an input takes.
struct ChangeableInput
{
    const DataType* type = nullptr;
    const std::vector<std::string>* values = nullptr; // what an enumeration knows
};

// The document's values that can be changed.
class ChangeableInputs
{
public:
    explicit ChangeableInputs(const CoreGraph& graph);

    // Reads a new value for a parameter, for `NODE.PORT`, for an element or a member of it, or for all its elements; a
    // list keeps its length. Faults at `place` when there is no such value, or it cannot take this one.
    void Read(const std::string& origin, const Json& json, const std::string& place, Diagnostics& diagnostics,
        std::vector<InputChange>& changes) const;

    // By origin: `NODE.PORT`, `NODE.PORT[2]`, `NODE.PORT[2].MEMBER`, or a parameter.
    const std::map<std::string, ChangeableInput>& All() const { return inputs_; }

private:
    void Add(const CoreInput& input);
    bool HasPrefix(const std::string& prefix) const;

    std::map<std::string, ChangeableInput> inputs_;
};

// Gives inputs of a graph other values, for good; `Setup::Update` then computes what depends on them. Where the program
// rests on one, it is made anew, once for each input. Instances and samplers of the graph must be gone. On error the
// program and the setup are as they were.
Result ChangeInputs(Graph& graph, const std::vector<InputChange>& changes);

} // namespace velto::host
