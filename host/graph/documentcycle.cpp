#include "documentscope.h"

#include <fmt/format.h>

namespace velto::host
{

void ReportCycle(DocumentScope& scope)
{
    enum class Visit : std::uint8_t
    {
        New,
        Open,
        Done,
    };
    std::vector<Visit> visits(scope.nodes.size(), Visit::New);
    struct Step
    {
        std::size_t node;
        std::size_t next = 0;
    };
    for (std::size_t start = 0; start < scope.nodes.size(); ++start)
    {
        if (visits[start] != Visit::New)
            continue;
        std::vector<Step> open{{start}};
        visits[start] = Visit::Open;
        while (!open.empty())
        {
            Step& step = open.back();
            if (step.next == scope.nodes[step.node].links.size())
            {
                visits[step.node] = Visit::Done;
                open.pop_back();
                continue;
            }
            const std::size_t to = scope.nodes[step.node].links[step.next++];
            if (visits[to] == Visit::New)
            {
                visits[to] = Visit::Open;
                open.push_back({to});
            }
            else if (visits[to] == Visit::Open)
            {
                std::string circle = scope.nodes[to].name;
                for (auto at = open.rbegin(); at != open.rend() && at->node != to && circle.size() < 300; ++at)
                    circle += " -> " + scope.nodes[at->node].name;
                return scope.diagnostics.Fault(fmt::format("nodes.{}", scope.nodes[to].name),
                    fmt::format("the links form a cycle: {} -> {}", circle, scope.nodes[to].name));
            }
        }
    }
}

} // namespace velto::host
