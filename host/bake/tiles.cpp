#include "tiles.h"

#include "host/system/guard.h"

#include <algorithm>
#include <chrono>

namespace velto::host
{

// A row is sampled in pieces, of about this time where samples take long: between them one can stop.
static constexpr std::chrono::milliseconds kLongPiece(8);

int BandRows(int width)
{
    constexpr int kBandPixels = 1 << 20;
    const int rows = std::max(kTileSide, kBandPixels / std::max(width, 1));
    return std::min(rows / kTileSide * kTileSide, 1024);
}

Result TileSampler::Create(Setup& setup, const ShadingContext& shared, const BakeView& view,
    std::vector<std::size_t> outputs, std::unique_ptr<TileSampler>& made)
{
    return Guarded([&]() -> Result {
        std::unique_ptr<TileSampler> sampler(new TileSampler(view));
        for (const std::size_t output : outputs)
        {
            const DataType* const type = setup.GetProgram().outputs[output].type;
            sampler->targets_.push_back({output, NumbersOf(type), ChannelsOf(type), {}, {}});
            if (view.supersample == 1)
                continue;
            Target& target = sampler->targets_.back();
            target.values.resize(static_cast<std::size_t>(target.numbers) * kTileSide);
            target.sums.resize(static_cast<std::size_t>(target.numbers) * kTileSide);
        }
        sampler->values_.resize(outputs.size());
        // Every thread's state starts from the picture's first sample, whichever tile the thread gets, or from its
        // middle, where a sphere's corner shows nothing.
        ShadingContext first = shared;
        if (!FillContext(view, 0.5, 0.5, first))
            FillContext(view, 0.5 * view.width, 0.5 * view.height, first);
        sampler->start_ = first;
        VELTO_TRY(ThreadSampler::Create(setup, shared, first, sampler->sampler_));
        made = std::move(sampler);
        return {};
    });
}

Result TileSampler::Sample(const Tile& tile, std::span<float* const> to, std::size_t pitch,
    const std::atomic<bool>* stop, TileFailure& failure)
{
    return Guarded([&]() -> Result {
        stop_ = stop;
        PrepareColumns(tile);
        for (int row = 0; row < tile.height && !IsStopped(); ++row)
        {
            int failed = 0;
            const std::size_t pixel = static_cast<std::size_t>(row) * pitch;
            const auto sample = view_.supersample == 1 ? &TileSampler::SampleDirectly : &TileSampler::SampleMeans;
            if (Result sampled = (this->*sample)(tile, tile.y + row, to, pixel, failed); sampled.IsError())
            {
                failure = {tile.x + failed, tile.y + row, failedNode_};
                return sampled;
            }
        }
        return {};
    });
}

SampleShape TileSampler::Shape(const Tile& tile)
{
    PrepareColumns(tile);
    for (std::size_t t = 0; t < targets_.size(); ++t)
    {
        const Target& target = targets_[t];
        const bool isDirect = view_.supersample == 1;
        const std::size_t size = isDirect ? sizeof(float) : sizeof(double);
        const int numbers = isDirect ? target.channels : target.numbers;
        values_[t] = {target.output, nullptr, static_cast<std::ptrdiff_t>(size) * numbers,
            isDirect ? ValueFormat::Float32 : ValueFormat::Float64};
    }
    sampler_->Sample(0, columns_[0].Fields(), values_).Ignore();
    return sampler_->LastShape();
}

void TileSampler::PrepareColumns(const Tile& tile)
{
    if (tile.x == x_ && tile.width == width_)
        return;
    x_ = tile.x;
    width_ = tile.width;
    columns_.clear();
    for (int i = 0; i < view_.supersample; ++i)
        columns_.emplace_back(view_, sampler_->Shared(), tile.x, (i + 0.5) / view_.supersample, tile.width);
}

// The row's samples before the pixel `most`, to where `values_` says for its first one that shows the shape.
Result TileSampler::SampleInto(SampleRow& row, int most, SampleFailure& failure)
{
    const int end = std::min(row.End(), most);
    if (row.Begin() >= end)
        return {};
    sampler_->SetShared(row.Shared());
    const std::span<const FieldArray> fields = row.Fields();
    for (int done = 0; done < end - row.Begin() && !IsStopped();)
    {
        const int count = std::min(piece_, end - row.Begin() - done);
        const auto start = std::chrono::steady_clock::now();
        Result sampled = SamplePiece(fields, done, count, failure);
        if (sampled.IsError())
            return sampled;
        const auto time = std::chrono::steady_clock::now() - start;
        if (time > kLongPiece)
            piece_ = std::max(piece_ / 2, 1);
        else if (time < kLongPiece / 4)
            piece_ = std::min(piece_ * 2, kTileSide);
        done += count;
    }
    return {};
}

Result TileSampler::SamplePiece(std::span<const FieldArray> fields, int begin, int count, SampleFailure& failure)
{
    if (begin == 0)
        return sampler_->Sample(static_cast<std::size_t>(count), fields, values_, &failure);
    pieceFields_.assign(fields.begin(), fields.end());
    for (FieldArray& field : pieceFields_)
        field.data = static_cast<const std::byte*>(field.data) + begin * field.stride;
    pieceValues_ = values_;
    for (ValueArray& value : pieceValues_)
        value.data = static_cast<std::byte*>(value.data) + begin * value.stride;
    Result sampled = sampler_->Sample(static_cast<std::size_t>(count), pieceFields_, pieceValues_, &failure);
    failure.sample += static_cast<std::size_t>(begin);
    return sampled;
}

Result TileSampler::SampleDirectly(const Tile& tile, int y, std::span<float* const> to, std::size_t pixel, int& failed)
{
    SampleRow& row = columns_[0];
    row.MoveTo(y + 0.5);
    const bool isWhole = row.End() - row.Begin() == tile.width;
    for (std::size_t t = 0; t < targets_.size(); ++t)
    {
        const Target& target = targets_[t];
        float* const first = to[t] + pixel * static_cast<std::size_t>(target.channels);
        if (!isWhole || target.channels != target.numbers)
            std::fill_n(first, tile.width * target.channels, 0.0f);
        values_[t] = {target.output, first + row.Begin() * target.channels,
            static_cast<std::ptrdiff_t>(sizeof(float)) * target.channels, ValueFormat::Float32};
    }
    SampleFailure failure;
    Result sampled = SampleInto(row, tile.width, failure);
    failed = row.Begin() + static_cast<int>(failure.sample);
    failedNode_ = failure.node;
    return sampled;
}

// Computes the samples of the pixels row by row. If several pixels fail, the first one is reported.
Result TileSampler::SampleMeans(const Tile& tile, int y, std::span<float* const> to, std::size_t pixel, int& failed)
{
    const int n = view_.supersample;
    for (std::size_t t = 0; t < targets_.size(); ++t)
    {
        Target& target = targets_[t];
        std::fill(target.sums.begin(), target.sums.end(), 0.0);
        values_[t] = {target.output, target.values.data(), static_cast<std::ptrdiff_t>(sizeof(double)) * target.numbers,
            ValueFormat::Float64};
    }
    Result first;
    int most = tile.width;
    for (int k = 0; k < n * n; ++k)
    {
        SampleRow& row = columns_[static_cast<std::size_t>(k % n)];
        row.MoveTo(y + (k / n + 0.5) / n);
        SampleFailure failure;
        Result sampled = SampleInto(row, most, failure);
        if (sampled.IsError())
        {
            first = sampled;
            most = row.Begin() + static_cast<int>(failure.sample);
            failedNode_ = failure.node;
        }
        const int end = std::min(row.End(), most);
        for (Target& target : targets_)
        {
            double* const sums = target.sums.data() + row.Begin() * target.numbers;
            for (int i = 0; i < (end - row.Begin()) * target.numbers; ++i)
                sums[i] += target.values[static_cast<std::size_t>(i)];
        }
    }
    failed = most;
    VELTO_TRY(first);
    const double share = 1.0 / (n * n);
    for (std::size_t t = 0; t < targets_.size(); ++t)
    {
        const Target& target = targets_[t];
        float* pixels = to[t] + pixel * static_cast<std::size_t>(target.channels);
        const double* sums = target.sums.data();
        for (int x = 0; x < tile.width; ++x, pixels += target.channels, sums += target.numbers)
        {
            for (int c = 0; c < target.channels; ++c)
                pixels[c] = c < target.numbers ? static_cast<float>(sums[c] * share) : 0.0f;
        }
    }
    return {};
}

} // namespace velto::host
