#include "nodetype.h"

#include "host/registry/datatypes.h"
#include "velto/porttypes.h"

namespace velto::host
{

void NodeType::AddPort(NodePort port)
{
    places_[port.input].emplace(port.name, ports.size());
    ports.push_back(std::move(port));
}

const NodePort* NodeType::FindPort(std::string_view portName, bool input) const
{
    const auto found = places_[input].find(portName);
    return found == places_[input].end() ? nullptr : &ports[found->second];
}

std::vector<std::string> NodeType::PortNames(bool input) const
{
    std::vector<std::string> names;
    for (const NodePort& port : ports)
    {
        if (port.input == input)
            names.push_back(port.name);
    }
    return names;
}

const DataType* FunctionResultType(const DataType* type)
{
    struct Pair
    {
        const DataType* function;
        const DataType* result;
    };
    static const Pair pairs[] = {{TypeOf<ColorAFunction>(), TypeOf<ColorA>()},
        {TypeOf<ColorFunction>(), TypeOf<Color>()}, {TypeOf<FloatFunction>(), TypeOf<Float>()},
        {TypeOf<Vector2dFunction>(), TypeOf<Vector2d>()}, {TypeOf<BoolFunction>(), TypeOf<Bool>()},
        {TypeOf<InternedIdFunction>(), TypeOf<InternedId>()}};
    for (const Pair& pair : pairs)
    {
        if (pair.function == type)
            return pair.result;
    }
    return nullptr;
}

} // namespace velto::host
