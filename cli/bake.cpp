#include "bake.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <ostream>

namespace velto::cli
{

using host::Json;

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

// A bar with rate and time left, on one line of a terminal.
class ProgressBar
{
public:
    ProgressBar(const Streams& streams, bool isShown) : streams_(streams), isShown_(isShown) {}
    ~ProgressBar()
    {
        if (wasShown_)
            streams_.err << "\r\x1b[K" << std::flush;
    }

    void operator()(const host::BakeProgress& progress, const std::string& name)
    {
        // Not for what is done at once, and not more often than eyes follow.
        const bool isTooSoon = progress.seconds < 0.3 || progress.seconds - last_ < 0.1;
        if (!isShown_ || (isTooSoon && last_ <= progress.seconds))
            return;
        last_ = progress.seconds;
        wasShown_ = true;
        if (const host::SetupRaster* const raster = progress.raster)
        {
            streams_.err << fmt::format(
                                "\r\x1b[K{} baking {} {} x {}", name, raster->node, raster->width, raster->height)
                         << std::flush;
            return;
        }
        constexpr int kWidth = 30;
        const int filled = static_cast<int>(progress.share * kWidth);
        const double rate = progress.seconds > 0.0 ? static_cast<double>(progress.samples) / progress.seconds : 0.0;
        const double left = progress.share > 0.0 ? progress.seconds / progress.share - progress.seconds : 0.0;
        streams_.err << fmt::format("\r\x1b[K{} [{}{}] {:3.0f}%  {:.1f} M samples/s  {:.0f} s left", name,
                            std::string(static_cast<std::size_t>(filled), '='),
                            std::string(static_cast<std::size_t>(kWidth - filled), ' '), progress.share * 100.0,
                            rate * 1e-6, left)
                     << std::flush;
    }

private:
    const Streams& streams_;
    bool isShown_;
    bool wasShown_ = false;
    double last_ = 0.0;
};

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
        // What a material drives may be a choice: for who reads its channels, not for a picture.
        const host::CoreOutput& output = graph.document.graph.outputs[i];
        const bool isChannel = output.type != nullptr;
        if (!isChannel || !arguments.graph.outputs.empty() || host::IsPicture(output.type))
            chosen.push_back(i);
    }
    if (chosen.empty())
    {
        PrintError(streams,
            fmt::format("{}: material: no channel is a picture ({})", arguments.graph.file, fmt::join(names, ", ")));
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
    int first = 0;
    int last = 0;
    if (!ParseFrames(arguments.frames, first, last))
    {
        PrintError(streams, fmt::format("--frames {}: expected A-B with A not above B", arguments.frames));
        return false;
    }
    const bool hasPlace =
        arguments.file.find("{frame}") != std::string::npos || arguments.file.find('#') != std::string::npos;
    if (last > first && !hasPlace)
    {
        PrintError(
            streams, fmt::format("{}: for several frames the file's name holds {{frame}} or ####", arguments.file));
        return false;
    }
    for (int frame = first; frame <= last; ++frame)
        frames.push_back(frame);
    return true;
}

void PrintStatistics(const Streams& streams, const host::Graph& graph, const host::BakeStatistics& statistics)
{
    Json json = Json::Object();
    double bakeSeconds = 0.0;
    Json rasters = Json::Array();
    for (const host::SetupRaster& raster : statistics.rasters)
    {
        Json entry = Json::Object();
        entry.Add("node", raster.node);
        entry.Add("width", Json(static_cast<UInt>(raster.width)));
        entry.Add("height", Json(static_cast<UInt>(raster.height)));
        entry.Add("bytes", Json(raster.bytes));
        entry.Add("seconds", raster.seconds);
        rasters.Append(std::move(entry));
        bakeSeconds += raster.seconds;
    }
    json.Add("setupSeconds", statistics.setupSeconds);
    json.Add("bakeSeconds", bakeSeconds); // of the setup's
    json.Add("sampleSeconds", statistics.sampleSeconds);
    json.Add("writeSeconds", statistics.writeSeconds);
    json.Add("samples", Json(statistics.samples));
    json.Add("samplesPerSecond",
        statistics.sampleSeconds > 0.0 ? static_cast<double>(statistics.samples) / statistics.sampleSeconds : 0.0);
    std::map<std::string_view, UInt> sums;
    for (std::size_t i = 0; i < statistics.evaluations.size(); ++i)
        sums[graph.program->nodeNames[i]] += statistics.evaluations[i];
    sums.erase(""); // conversions
    Json evaluations = Json::Object();
    for (const std::string& name : graph.program->nodeNames)
    {
        if (const auto sum = sums.extract(name))
            evaluations.Add(name, Json(sum.mapped()));
    }
    json.Add("evaluations", std::move(evaluations));
    json.Add("rasters", std::move(rasters));
    streams.err << json.Write(true) << '\n';
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

bool ParseFrames(std::string_view text, int& first, int& last)
{
    return ParseInt(text, first) && Skip(text, '-') && ParseInt(text, last) && text.empty() && first <= last &&
           static_cast<long>(last) - first < 1'000'000;
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

int Bake(const BakeArguments& arguments, const Streams& streams)
{
    host::BakeOptions options;
    std::vector<std::optional<int>> frames;
    if (!ReadOptions(arguments, streams, options) || !ChooseFrames(arguments, streams, frames))
        return kWrongInput;
    std::shared_ptr<host::Module> module;
    if (!LoadModule(arguments.module, streams, module))
        return kFailed;

    ProgressBar bar(streams, arguments.progress == "always" || (arguments.progress == "auto" && streams.isErrTerminal));
    host::BakeStatistics statistics;
    const auto messages = std::make_shared<RenderMessages>(); // of all frames, so that each is said once
    for (const std::optional<int>& frame : frames)
    {
        // Every frame starts from fresh state.
        host::Graph graph;
        if (!LoadGraph(arguments.graph, {}, module, streams, graph))
            return kWrongInput;
        graph.messages = messages;
        std::vector<std::size_t> outputs;
        if (!ChooseOutputs(arguments, streams, graph, outputs))
            return kWrongInput;
        if (!HasMemory(arguments.graph, graph, {}, streams))
            return kFailed;
        std::vector<host::BakeTarget> targets;
        for (const std::size_t output : outputs)
            targets.push_back({output, FileName(arguments.file, graph.program->outputs[output].name, frame)});
        options.seconds = frame ? *frame / options.framesPerSecond : 0.0;
        const std::string name = targets.empty() ? std::string() : targets.front().file;
        options.progress = [&](const host::BakeProgress& progress) { bar(progress, name); };
        if (const Result baked = host::Bake(graph, targets, options, statistics); baked.IsError())
        {
            host::Diagnostics ignored;
            const bool lacksMemory = baked.Kind() == error::kOutOfMemory.View() && host::MemoryRefusals() > 0;
            if (lacksMemory && !HasMemory(arguments.graph, graph, host::LookForPictures(graph, ignored), streams))
                return kFailed;
            PrintError(streams, baked.Message());
            return kFailed;
        }
        if (arguments.stats && &frame == &frames.back())
            PrintStatistics(streams, graph, statistics);
    }
    return kSuccess;
}

} // namespace velto::cli
