#include "nodetype.h"

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

} // namespace velto::host
