#include "bakeplan.h"

#include "host/bake/fingerprint.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <set>

namespace velto::cli
{

namespace
{

bool ParseInt(std::string_view& text, int& value)
{
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure != std::errc())
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool Skip(std::string_view& text, char c)
{
    if (text.empty() || text.front() != c)
        return false;
    text.remove_prefix(1);
    return true;
}

template <class T>
bool Choose(std::string_view what, const std::string& text, const std::map<std::string, T>& choices,
    const Streams& streams, T& chosen)
{
    const auto found = choices.find(text);
    if (found != choices.end())
    {
        chosen = found->second;
        return true;
    }
    std::string names;
    for (const auto& [name, value] : choices)
    {
        if (!name.empty())
            names += (names.empty() ? "" : ", ") + name;
    }
    PrintError(streams, fmt::format("{} {}: expected one of {}", what, text, names));
    return false;
}

bool ReadOptions(const BakeArguments& arguments, const Streams& streams, host::BakeOptions& options)
{
    using host::BakeShape;
    using host::PictureColorSpace;
    using host::PixelDepth;
    if (!ParseSize(arguments.size, options.view.width, options.view.height))
    {
        PrintError(streams,
            fmt::format("--size {}: expected N or WxH, each from 1 to {}", arguments.size, host::kMaxPictureSide));
        return false;
    }
    if (!arguments.crop.empty() && !ParseCrop(arguments.crop, options.window))
    {
        PrintError(streams, fmt::format("--crop {}: expected X,Y,WxH in pixels", arguments.crop));
        return false;
    }
    if (options.window.width > 0 &&
        (static_cast<long>(options.window.x) + options.window.width > options.view.width ||
            static_cast<long>(options.window.y) + options.window.height > options.view.height))
    {
        PrintError(streams,
            fmt::format("--crop {} is not inside {}x{}", arguments.crop, options.view.width, options.view.height));
        return false;
    }
    options.framesPerSecond = arguments.framesPerSecond;
    options.threads = arguments.threads;
    options.fusing = arguments.isNotFused ? host::Fusing::Never : host::Fusing::WhenItPays;
    options.view.supersample = arguments.supersample;
    return Choose("--depth", arguments.depth,
               {{"", PixelDepth::Default}, {"uint8", PixelDepth::UInt8}, {"uint16", PixelDepth::UInt16},
                   {"half", PixelDepth::Half}, {"float", PixelDepth::Float}},
               streams, options.encoding.depth) &&
           Choose("--colorspace", arguments.colorSpace,
               {{"", PictureColorSpace::Default}, {"srgb", PictureColorSpace::Srgb},
                   {"linear", PictureColorSpace::Linear}},
               streams, options.encoding.colorSpace) &&
           Choose("--shape", arguments.shape, {{"plane", BakeShape::Plane}, {"sphere", BakeShape::Sphere}}, streams,
               options.view.shape);
}

bool ChooseOutputs(
    const BakeArguments& arguments, const Streams& streams, const host::Graph& graph, std::vector<std::size_t>& chosen)
{
    if (!HasOutputs(arguments.graph, graph, streams))
        return false;
    std::vector<std::string> names;
    for (const host::OutputPlan& output : graph.program->outputs)
        names.push_back(output.name);
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        // A channel of a material may be a choice, which renderers read but which is not a picture.
        const host::CoreOutput& output = graph.document.graph.outputs[i];
        const bool isChannel = output.type != nullptr;
        if (!isChannel || !arguments.graph.outputs.empty() || host::IsPicture(output.type))
            chosen.push_back(i);
    }
    if (chosen.empty())
    {
        PrintError(streams, fmt::format("{}: material: none of its channels is a picture ({})", arguments.graph.file,
                                fmt::join(names, ", ")));
        return false;
    }
    if (chosen.size() > 1 && arguments.file.find("{output}") == std::string::npos)
    {
        std::vector<std::string> several;
        for (const std::size_t i : chosen)
            several.push_back(names[i]);
        PrintError(streams,
            fmt::format(
                "{}: the graph has {} outputs ({}); name one with --output, or write {{output}} in the file's name",
                arguments.file, several.size(), fmt::join(several, ", ")));
        return false;
    }
    return true;
}

bool ChooseFrames(const BakeArguments& arguments, const Streams& streams, std::vector<std::optional<int>>& frames)
{
    if (arguments.frames.empty())
    {
        frames.push_back(arguments.frame);
        return true;
    }
    std::vector<int> list;
    if (!ParseFrames(arguments.frames, list))
    {
        PrintError(
            streams, fmt::format("--frames {}: expected frames such as 1-24, 1-24x2 or 3,7,20-10, at most a million",
                         arguments.frames));
        return false;
    }
    const bool hasPlace =
        arguments.file.find("{frame}") != std::string::npos || arguments.file.find('#') != std::string::npos;
    if (list.size() > 1 && !hasPlace)
    {
        PrintError(
            streams, fmt::format("{}: for several frames the file's name holds {{frame}} or ####", arguments.file));
        return false;
    }
    frames.assign(list.begin(), list.end());
    return true;
}

bool CheckStreams(const BakeArguments& arguments, const Streams& streams)
{
    if (arguments.watches && arguments.graph.file == "-")
    {
        PrintError(streams, "--watch: a graph from standard input does not change");
        return false;
    }
    if (arguments.file != "-")
        return true;
    const char* const wrong = arguments.format.empty()   ? "-o -: --format says what is written"
                              : arguments.json           ? "-o - and --json both write to standard output"
                              : !arguments.shard.empty() ? "-o - and --shard: a part is a file"
                              : arguments.watches        ? "-o - and --watch: only files are written again and again"
                                                         : nullptr;
    if (wrong)
        PrintError(streams, wrong);
    return !wrong;
}

// A number, or a range of them with a step.
bool ParseRange(std::string_view text, std::vector<long>& frames)
{
    int first = 0;
    if (!ParseInt(text, first))
        return false;
    int last = first;
    int step = 1;
    if (Skip(text, '-') && !ParseInt(text, last))
        return false;
    if (Skip(text, 'x') && (!ParseInt(text, step) || step < 1))
        return false;
    constexpr long kMost = 1'000'000;
    if (!text.empty() || std::abs(static_cast<long>(last) - first) / step >= kMost)
        return false;
    const long direction = last < first ? -step : step;
    for (long frame = first; direction > 0 ? frame <= last : frame >= last; frame += direction)
        frames.push_back(frame);
    return static_cast<long>(frames.size()) <= kMost;
}

} // namespace

bool ParseSize(std::string_view text, int& width, int& height)
{
    if (!ParseInt(text, width))
        return false;
    height = width;
    if (!text.empty() && (!Skip(text, 'x') || !ParseInt(text, height)))
        return false;
    const auto isSide = [](int side) { return side >= 1 && side <= host::kMaxPictureSide; };
    return text.empty() && isSide(width) && isSide(height);
}

bool ParseCrop(std::string_view text, host::BakeWindow& window)
{
    return ParseInt(text, window.x) && Skip(text, ',') && ParseInt(text, window.y) && Skip(text, ',') &&
           ParseInt(text, window.width) && Skip(text, 'x') && ParseInt(text, window.height) && text.empty() &&
           window.x >= 0 && window.y >= 0 && window.width > 0 && window.height > 0;
}

bool ParseFrames(std::string_view text, std::vector<int>& frames)
{
    std::vector<long> list;
    while (true)
    {
        const auto comma = text.find(',');
        if (!ParseRange(text.substr(0, comma), list))
            return false;
        if (comma == text.npos)
            break;
        text.remove_prefix(comma + 1);
    }
    std::set<long> seen;
    for (const long frame : list)
    {
        if (seen.insert(frame).second)
            frames.push_back(static_cast<int>(frame));
    }
    return true;
}

std::string FileName(std::string pattern, const std::string& output, std::optional<int> frame)
{
    const auto replace = [&pattern](std::string_view what, const std::string& with) {
        for (auto at = pattern.find(what); at != pattern.npos; at = pattern.find(what, at + with.size()))
            pattern.replace(at, what.size(), with);
    };
    if (frame)
    {
        replace("{frame}", fmt::format("{}", *frame));
        if (const auto first = pattern.find('#'); first != pattern.npos)
        {
            const auto end = std::min(pattern.find_first_not_of('#', first), pattern.size());
            pattern.replace(first, end - first, fmt::format("{:0{}}", *frame, end - first));
        }
    }
    replace("{output}", output);
    return pattern;
}

bool PlanBake(const BakeArguments& arguments, const Streams& streams, BakePlan& plan)
{
    if (!arguments.shard.empty() && !host::ParseShard(arguments.shard, plan.shard))
    {
        PrintError(streams, fmt::format("--shard {}: expected K/N with K from 1 to N", arguments.shard));
        return false;
    }
    return CheckStreams(arguments, streams) && ReadOptions(arguments, streams, plan.options) &&
           ChooseFrames(arguments, streams, plan.frames);
}

bool PlanFrame(const BakeArguments& arguments, const std::optional<int>& frame,
    const std::shared_ptr<host::Modules>& modules, const Streams& streams, BakePlan& plan, host::Graph& graph,
    std::vector<host::BakeTarget>& targets)
{
    std::vector<std::size_t> outputs;
    if (!LoadGraph(arguments.graph, {}, modules, streams, graph) || !ChooseOutputs(arguments, streams, graph, outputs))
        return false;
    plan.options.seconds = frame ? *frame / plan.options.framesPerSecond : 0.0;
    for (const std::size_t output : outputs)
    {
        host::BakeTarget target;
        target.output = output;
        target.file = FileName(arguments.file, graph.program->outputs[output].name, frame);
        target.format = arguments.format;
        targets.push_back(std::move(target));
    }
    return true;
}

std::string Fingerprint(const BakeArguments& arguments, const host::Modules& modules, const host::Graph& graph,
    const BakePlan& plan, const host::BakeTarget& target)
{
    std::string hash;
    const std::string settings = fmt::format("{} {}", VELTO_VERSION, arguments.graph.renderMode);
    // Without memory the hash stays empty and matches nothing.
    std::vector<std::filesystem::path> files;
    for (const auto& module : modules.All())
        files.push_back(module->File());
    host::BakeFingerprint(graph, target.output, plan.options, files, settings, hash).Ignore();
    return hash;
}

} // namespace velto::cli
