// Inputs that a document gives by value, changed by their names.
#pragma once

#include "host/corenode/coregraph.h"
#include "host/graph/json.h"

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

// The document's values that can be changed.
class ChangeableInputs
{
public:
    explicit ChangeableInputs(const CoreGraph& graph);

    // Reads a new value for a parameter, for `NODE.PORT`, for an element or a member of it, or for all its elements; a
    // list keeps its length. Faults at `place` when there is no such value, or it cannot take this one.
    void Read(const std::string& origin, const Json& json, const std::string& place, Diagnostics& diagnostics,
        std::vector<InputChange>& changes) const;

private:
    void Add(const CoreInput& input);
    bool HasPrefix(const std::string& prefix) const;

    struct Changeable
    {
        const DataType* type = nullptr;
        const std::vector<std::string>* values = nullptr; // what an enumeration knows
    };

    std::map<std::string, Changeable> inputs_; // by origin
};

} // namespace velto::host
