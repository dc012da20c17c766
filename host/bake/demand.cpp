#include "demand.h"

#include "constant.h"

#include "host/registry/datatypes.h"
#include "host/system/allocator.h"
#include "host/system/memory.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

namespace
{

constexpr std::string_view kBlurRaster = "net.velto.pattern.corenode.2d.blurpre";
constexpr std::string_view kCacheRaster = "net.velto.pattern.corenode.2d.cachepre";
constexpr UInt kRasterPixel = sizeof(ColorA);

struct Sides
{
    UInt width = 0;
    UInt height = 0;
};

Sides RasterOf(const CoreGraph& graph, const CoreNode& node)
{
    const auto side = [&](const char* port) -> UInt {
        const UInt32* const value = Constant<UInt32>(graph, node, port);
        return value ? *value : 0;
    };
    if (node.type == kCacheRaster)
        return {side("width"), side("height")};
    const InternedId* const mode = Constant<InternedId>(graph, node, "mode");
    const bool isBaked = node.type == kBlurRaster && mode && mode->View() == "baked";
    return isBaked ? Sides{side("resolution"), side("resolution")} : Sides{};
}

UInt Megabytes(UInt bytes)
{
    return (bytes + (UInt(1) << 20) - 1) >> 20;
}

} // namespace

std::vector<bool> NeededNodes(const CoreGraph& graph)
{
    std::vector<bool> isNeeded(graph.nodes.size(), false);
    std::vector<std::size_t> open;
    const auto need = [&](const CoreInput& input) {
        if (input.link && !isNeeded[input.link->node])
        {
            isNeeded[input.link->node] = true;
            open.push_back(input.link->node);
        }
    };
    for (const CoreOutput& output : graph.outputs)
        need(output.source);
    while (!open.empty())
    {
        const CoreNode& node = graph.nodes[open.back()];
        open.pop_back();
        for (const auto& [port, input] : node.inputs)
            need(input);
    }
    return isNeeded;
}

std::vector<RasterDemand> RasterDemands(const Graph& graph)
{
    std::vector<RasterDemand> rasters;
    const CoreGraph& core = graph.document.graph;
    const std::vector<bool> isNeeded = NeededNodes(core);
    for (std::size_t i = 0; i < core.nodes.size(); ++i)
    {
        const Sides sides = isNeeded[i] ? RasterOf(core, core.nodes[i]) : Sides();
        if (sides.width > 0 && sides.height > 0)
            rasters.push_back({i, sides.width, sides.height});
    }
    return rasters;
}

Result LimitRasters(CoreGraph& graph, const std::vector<RasterDemand>& rasters, UInt32 side)
{
    for (const RasterDemand& raster : rasters)
    {
        const std::pair<const char*, UInt> sides[] = {
            {"width", raster.width}, {"height", raster.height}, {"resolution", raster.width}};
        for (const auto& [port, whole] : sides)
        {
            const auto limited = static_cast<UInt32>(std::min<UInt>(whole, side));
            const CoreInput* const source = ConstantSource(graph, graph.nodes[raster.node], port);
            if (source && source->value.As<UInt32>())
                VELTO_TRY(const_cast<CoreInput*>(source)->value.Set(TypeOf<UInt32>(), &limited)); // of `graph`
        }
    }
    return {};
}

std::vector<MemoryDemand> MemoryDemands(const Graph& graph, const std::vector<ShownPicture>& pictures)
{
    std::vector<MemoryDemand> demands;
    for (const RasterDemand& raster : RasterDemands(graph))
        demands.push_back({fmt::format("nodes.{} (raster of {} x {})", graph.document.graph.nodes[raster.node].name,
                               raster.width, raster.height),
            std::min(raster.width * raster.height, kMostBytes) * kRasterPixel});
    std::set<std::string> files; // shown by several they are there once
    for (const ShownPicture& picture : pictures)
    {
        if (files.insert(picture.file).second)
            demands.push_back(
                {fmt::format("{} (picture of {} x {})", picture.place, picture.width, picture.height), picture.bytes});
    }
    std::stable_sort(demands.begin(), demands.end(), [](const auto& a, const auto& b) { return a.bytes > b.bytes; });
    return demands;
}

std::string MemoryComplaint(const std::vector<MemoryDemand>& demands)
{
    UInt sum = 0;
    for (const MemoryDemand& demand : demands)
        sum += demand.bytes;
    if (sum <= MemoryBudget())
        return {};
    std::string text = fmt::format("asks for {} MB of memory, and {} MB are granted (--memory); most of it is for ",
        Megabytes(sum), MemoryBudget() >> 20);
    for (std::size_t i = 0; i < std::min<std::size_t>(demands.size(), 3); ++i)
        text += fmt::format("{}{}, {} MB", i == 0 ? "" : "; ", demands[i].what, Megabytes(demands[i].bytes));
    return text;
}

} // namespace velto::host
