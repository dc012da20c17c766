// From a graph to a program: groups from the registry and replacements (settle, simplify), then bodies and links
// (place).
#include "place.h"

#include "host/system/guard.h"

#include <bit>

namespace velto::host
{

UInt32 StorePlan::Add(const DataType* type, Data initial)
{
    const auto valueSize = static_cast<UInt32>(type->operations.size);
    const UInt32 within = std::bit_ceil(Min(Max<UInt32>(valueSize, 1), kPageShare));
    const UInt32 valueAlignment = Max(static_cast<UInt32>(type->operations.alignment), within);
    alignment = Max(alignment, valueAlignment);
    size = (size + valueAlignment - 1) / valueAlignment * valueAlignment;
    const UInt32 offset = size;
    size += valueSize;
    values.push_back({Ref<const DataType>::Share(type), offset, std::move(initial)});
    return offset;
}

Result Program::Compile(const CoreGraph& graph, const CompileOptions& options, std::shared_ptr<const Program>& program)
{
    return Guarded([&]() -> Result {
        auto made = std::make_shared<Program>();
        made->keepAlive = options.keepAlive;
        SettledGraph settled;
        VELTO_TRY(SettleGraph(graph, options, settled));
        for (const CoreNode& node : graph.nodes)
            made->nodeNames.push_back(node.name);
        for (GraphNode& node : settled.nodes)
            made->restsOn.merge(node.restsOn);
        made->nodeNames.emplace_back(); // conversions are counted apart
        VELTO_TRY(PlaceGraph(graph, options, settled, *made));
        program = std::move(made);
        return {};
    });
}

} // namespace velto::host
