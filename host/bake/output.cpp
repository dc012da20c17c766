#include "output.h"

#include "tiles.h"

#include "host/graph/values.h"
#include "host/system/guard.h"

#include <fmt/format.h>
#include <tbb/parallel_invoke.h>

#include <chrono>

namespace velto::host
{

Result BakeOutputs::Open(const Program& program, const std::vector<BakeTarget>& targets, const BakeWindow& window,
    int wholeWidth, int wholeHeight, const PictureEncoding& encoding, bool hashesPixels)
{
    for (const BakeTarget& source : targets)
    {
        const OutputPlan& output = program.outputs[source.output];
        const int channels = ChannelsOf(output.type);
        if (channels == 0)
            return MakeError(error::kIllegalArgument,
                fmt::format("the output {} is a {}, which is no picture", output.name, TypeName(output.type)));
        Target target{source.output, channels, {}, {}, {}, {}, {}};
        target.file = {source.file, source.output, window.width, window.height, channels, {}};
        const PictureLayout layout{window.width, window.height, channels, window.x, window.y, wholeWidth, wholeHeight,
            source.attributes, source.isPart};
        const PictureEncoding stored =
            source.isPart ? PictureEncoding{PixelDepth::Float, PictureColorSpace::Linear} : encoding;
        VELTO_TRY(PictureWriter::Open(source.file, source.format, layout, stored, target.writer));
        targets_.push_back(std::move(target));
    }
    width_ = window.width;
    hashesPixels_ = hashesPixels;
    return {};
}

void BakeOutputs::Allocate(int bandRows)
{
    for (Target& target : targets_)
    {
        const std::size_t size = static_cast<std::size_t>(bandRows) * static_cast<std::size_t>(width_) *
                                 static_cast<std::size_t>(target.channels);
        memory_.Take(2 * size * sizeof(float));
        target.band.resize(size);
        target.written.resize(size);
    }
}

Result BakeOutputs::Submit(int rows)
{
    VELTO_TRY(Wait());
    for (Target& target : targets_)
        target.band.swap(target.written);
    writing_.run([this, rows] {
        const auto start = std::chrono::steady_clock::now();
        written_ = Guarded([&]() -> Result {
            for (Target& target : targets_)
                VELTO_TRY(Write(target, rows));
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
    tbb::parallel_invoke(
        [&] { written = Guarded([&] { return target.writer->WriteRows(target.written.data(), rows); }); },
        [&] {
            if (hashesPixels_)
                target.sum.Add(target.written.data(), static_cast<std::size_t>(rows) *
                                                          static_cast<std::size_t>(width_) *
                                                          static_cast<std::size_t>(target.channels) * sizeof(float));
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
