#include "pictures.h"

#include "constant.h"

#include "host/text/url.h"
#include "host/texture/texture.h"

#include <fmt/format.h>

#include <algorithm>

namespace velto::host
{

namespace
{

constexpr std::string_view kImageNode = "net.velto.pattern.corenode.generator.image";
constexpr Int kMostFrames = 10'000; // of a sequence that are looked for

// `3, 7-9`.
std::string Ranges(const std::vector<Int>& numbers)
{
    std::string text;
    for (std::size_t i = 0; i < numbers.size();)
    {
        std::size_t last = i;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1)
            ++last;
        text += fmt::format("{}{}", i == 0 ? "" : ", ", numbers[i]);
        if (last > i)
            text += fmt::format("-{}", numbers[last]);
        i = last + 1;
    }
    return text;
}

// The error's text begins with the place.
void Warn(const Result& error, const Url& url, std::string_view rest, Diagnostics& diagnostics)
{
    std::string_view text = error.Message();
    const std::string_view place = PlaceOf(url.Get());
    if (!place.empty() && text.starts_with(place))
        text.remove_prefix(std::min(place.size() + 2, text.size()));
    diagnostics.Warning(place, std::string(text) + std::string(rest));
}

// The first frame that can be shown is `shown`.
void LookForFrames(
    const Graph& graph, const Url& url, Int first, Int last, Diagnostics& diagnostics, std::optional<Int>& shown)
{
    std::vector<Int> missing;
    Result firstMissing;
    for (Int frame = first; frame <= last && frame - first < kMostFrames; ++frame)
    {
        bool isThere = false;
        Result seen = LookIntoHeader(url, graph.searchPaths.get(), frame, isThere);
        if (seen.IsOk())
            shown = shown.value_or(frame);
        else if (isThere)
            Warn(seen, url, "", diagnostics);
        else
        {
            missing.push_back(frame);
            if (missing.size() == 1)
                firstMissing = std::move(seen);
        }
    }
    if (missing.size() > 1)
        Warn(firstMissing, url, fmt::format(" {} frames are missing: {}.", missing.size(), Ranges(missing)),
            diagnostics);
    else if (!missing.empty())
        Warn(firstMissing, url, "", diagnostics);
}

} // namespace

std::vector<ShownPicture> LookForPictures(const Graph& graph, Diagnostics& diagnostics)
{
    std::vector<ShownPicture> pictures;
    for (const CoreNode& node : graph.document.graph.nodes)
    {
        if (node.type != kImageNode)
            continue;
        const Url* const url = Constant<Url>(graph.document.graph, node, "url");
        if (!url || Path(*url).empty())
            continue;
        const Int* const first = Constant<Int>(graph.document.graph, node, "frameStart");
        const Int* const last = Constant<Int>(graph.document.graph, node, "frameEnd");
        PictureFacts facts;
        Result result = LookIntoPicture(*url, graph.searchPaths.get(), {}, facts);
        if (first && last && *first != *last && !facts.isMovie)
        {
            std::optional<Int> shown;
            LookForFrames(graph, *url, *first, *last, diagnostics, shown);
            if (!shown)
                continue;
            result = LookIntoPicture(*url, graph.searchPaths.get(), shown, facts);
        }
        if (result.IsError())
            Warn(result, *url, "", diagnostics);
        else
            pictures.push_back({std::string(PlaceOf(url->Get())), facts.file, facts.width, facts.height, facts.bytes});
    }
    return pictures;
}

std::vector<std::string> PictureFiles(const Graph& graph)
{
    std::vector<std::string> files;
    const auto add = [&](const Url& url, std::optional<Int> frame) {
        std::string file;
        if (FindPictureFile(url, graph.searchPaths.get(), frame, file).IsOk())
            files.push_back(std::move(file));
    };
    for (const CoreNode& node : graph.document.graph.nodes)
    {
        if (node.type != kImageNode)
            continue;
        const Url* const url = Constant<Url>(graph.document.graph, node, "url");
        if (!url || Path(*url).empty())
            continue;
        add(*url, {});
        const Int* const first = Constant<Int>(graph.document.graph, node, "frameStart");
        const Int* const last = Constant<Int>(graph.document.graph, node, "frameEnd");
        for (Int frame = first ? *first : 0; first && last && *first != *last && frame <= *last; ++frame)
        {
            if (frame - *first >= kMostFrames)
                break;
            add(*url, frame);
        }
    }
    return files;
}

} // namespace velto::host
