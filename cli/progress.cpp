#include "progress.h"

#include <fmt/format.h>

#include <ostream>

namespace velto::cli
{

ProgressForm ParseProgress(std::string_view text, const Streams& streams)
{
    if (text == "json")
        return ProgressForm::Json;
    return text == "always" || (text == "auto" && streams.isErrTerminal) ? ProgressForm::Bar : ProgressForm::None;
}

Progress::~Progress()
{
    if (wasShown_ && form_ == ProgressForm::Bar)
        streams_.err << "\r\x1b[K" << std::flush;
}

void Progress::Show(const host::BakeProgress& progress, const std::string& name)
{
    if (form_ == ProgressForm::None)
        return;
    // No more often than the eye can follow, and no bar for a bake that ends at once. Programs get a line at each end.
    const bool isTooSoon = progress.seconds >= last_ && progress.seconds - last_ < 0.1;
    if (form_ == ProgressForm::Bar ? progress.seconds < 0.3 || isTooSoon : isTooSoon && progress.share < 1.0)
        return;
    last_ = progress.seconds;
    wasShown_ = true;
    if (form_ == ProgressForm::Json)
        ShowJson(progress, name);
    else
        ShowBar(progress, name);
}

void Progress::ShowBar(const host::BakeProgress& progress, const std::string& name)
{
    if (const host::SetupRaster* const raster = progress.raster)
    {
        streams_.err << fmt::format("\r\x1b[K{} baking {} {} x {}", name, raster->node, raster->width, raster->height)
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

void Progress::ShowJson(const host::BakeProgress& progress, const std::string& name)
{
    host::Json json = host::Json::Object();
    json.Add("file", name);
    if (progress.raster)
        json.Add("node", progress.raster->node);
    json.Add("share", progress.share);
    json.Add("samples", host::Json(progress.samples));
    json.Add("seconds", progress.seconds);
    streams_.err << json.Write() << '\n' << std::flush;
}

} // namespace velto::cli
