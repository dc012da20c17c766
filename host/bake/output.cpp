#include "output.h"

#include "encoding.h"

#include "host/graph/values.h"
#include "host/runtime/sampler.h"
#include "host/system/guard.h"

#include <fmt/format.h>
#include <tbb/parallel_invoke.h>

#include <chrono>

namespace velto::host
{

int ChannelsOf(const DataType* type)
{
    const int numbers = NumbersOf(type);
    return numbers == 2 ? 3 : numbers;
}

Result BakeOutputs::Open(const Graph& graph, const std::vector<BakeTarget>& targets, const BakeWindow& window,
    int wholeWidth, int wholeHeight, const PictureEncoding& encoding, bool hashesPixels)
{
    for (const BakeTarget& source : targets)
    {
        const OutputPlan& output = graph.program->outputs[source.output];
        const int channels = ChannelsOf(output.type);
        if (channels == 0)
            return MakeError(error::kIllegalArgument,
                fmt::format("the output {} is a {}, which is not a picture", output.name, TypeName(output.type)));
        Target target{source.output, channels, {}, source.pixels, nullptr, {}, {}};
        target.file = {source.file, source.output, window.width, window.height, channels, {}};
        if (source.pixels)
        {
            targets_.push_back(std::move(target));
            continue;
        }
        const PictureLayout layout{window.width, window.height, channels, window.x, window.y, wholeWidth, wholeHeight,
            source.attributes, source.isPart};
        constexpr PictureEncoding kAsIs{PixelDepth::Float, PictureColorSpace::Linear, PictureContent::Data};
        const PictureEncoding stored = source.isPart ? kAsIs : EncodingOf(graph, source.output, encoding);
        VELTO_TRY(PictureWriter::Open(source.file, source.format, layout, stored, target.writer));
        targets_.push_back(std::move(target));
    }
    width_ = window.width;
    height_ = window.height;
    hashesPixels_ = hashesPixels;
    return {};
}

void BakeOutputs::Allocate(int bandRows)
{
    for (Target& target : targets_)
    {
        if (!target.writer)
            continue;
        const std::size_t size = RowFloats(target) * static_cast<std::size_t>(bandRows);
        const std::size_t count = bandRows < height_ ? 2 : 1;
        memory_.Take(count * size * sizeof(float));
        for (std::size_t i = 0; i < count; ++i)
            target.bands[i].resize(size);
        target.band = target.bands[0].data();
    }
}

Result BakeOutputs::Submit(int rows)
{
    VELTO_TRY(Wait());
    for (Target& target : targets_)
    {
        target.filled = target.band;
        if (target.writer)
            target.band = target.bands[target.filled == target.bands[0].data() ? 1 : 0].data();
        else
            target.band += RowFloats(target) * static_cast<std::size_t>(rows);
    }
    writing_.run([this, rows] {
        const auto start = std::chrono::steady_clock::now();
        written_ = Guarded([&]() -> Result {
            for (Target& target : targets_)
            {
                if (target.writer)
                    VELTO_TRY(Write(target, rows));
            }
            return {};
        });
        seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        bandsWritten_.fetch_add(1, std::memory_order_release);
    });
    return {};
}

Result BakeOutputs::Write(Target& target, int rows)
{
    Result written;
    tbb::parallel_invoke([&] { written = Guarded([&] { return target.writer->WriteRows(target.filled, rows); }); },
        [&] {
            if (hashesPixels_)
                target.sum.Add(target.filled, static_cast<std::size_t>(rows) * RowFloats(target) * sizeof(float));
        });
    return written;
}

Result BakeOutputs::Wait()
{
    writing_.wait();
    // The library has waited, but where race detectors do not look.
    bandsWritten_.load(std::memory_order_acquire);
    return written_;
}

Result BakeOutputs::Finish(std::vector<WrittenFile>& files)
{
    std::vector<std::unique_ptr<PictureWriter>> writers;
    std::erase_if(targets_, [](const Target& target) { return !target.writer; });
    for (Target& target : targets_)
    {
        VELTO_TRY(target.writer->Complete());
        writers.push_back(std::move(target.writer));
        if (hashesPixels_)
            target.file.pixels = target.sum.Finish();
    }
    VELTO_TRY(PictureWriter::PutInPlace(writers));
    for (Target& target : targets_)
        files.push_back(std::move(target.file));
    return {};
}

} // namespace velto::host
