// Samples of a picture, tile by tile.
#pragma once

#include "rows.h"
#include "target.h"

#include "host/runtime/graph.h"

namespace velto::host
{

inline constexpr int kTileSide = SampleRow::kMost;

// A part of the picture, at most `kTileSide` square.
struct Tile
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// Few enough that a band of a picture is small, enough that every thread has tiles.
int BandRows(int width);

// The pixel at which a tile failed.
struct TileFailure
{
    int x = 0;
    int y = 0;
    const std::string* node = nullptr;
};

// One thread's way through tiles.
class TileSampler
{
public:
    static Result Create(Setup& setup, const ShadingContext& shared, const BakeView& view,
        std::vector<std::size_t> outputs, std::unique_ptr<TileSampler>& made);

    // Writes the mean of every pixel's samples: for each output to `to` and on, `pitch` pixels a row. Leaves the rest
    // alone once `stop` is true.
    Result Sample(const Tile& tile, std::span<float* const> to, std::size_t pitch, const std::atomic<bool>* stop,
        TileFailure& failure);

    // The shape of a row's samples, and where what nodes keep starts.
    SampleShape Shape(const Tile& tile);
    const ShadingContext& Start() const { return start_; }

    void UseKernel(std::shared_ptr<const SampleKernel> kernel) { sampler_->UseKernel(std::move(kernel)); }

    const EvaluationCounts& Counts() const { return sampler_->Counts(); }
    void TimeInto(NodeTimes* times) { sampler_->TimeInto(times); }

private:
    struct Target
    {
        std::size_t output;
        int numbers;
        int channels;
        std::vector<double> values; // of a row of samples
        std::vector<double> sums;   // of a row of pixels
    };

    explicit TileSampler(const BakeView& view) : view_(view) {}

    void PrepareColumns(const Tile& tile);
    Result SampleInto(SampleRow& row, int most, SampleFailure& failure);
    Result SamplePiece(std::span<const FieldArray> fields, int begin, int count, SampleFailure& failure);
    bool IsStopped() const { return stop_ && stop_->load(std::memory_order_relaxed); }
    Result SampleDirectly(const Tile& tile, int y, std::span<float* const> to, std::size_t pixel, int& failed);
    Result SampleMeans(const Tile& tile, int y, std::span<float* const> to, std::size_t pixel, int& failed);

    const BakeView& view_;
    std::vector<Target> targets_;
    std::unique_ptr<ThreadSampler> sampler_;
    ShadingContext start_;
    int x_ = -1; // of the tile that the columns are of
    int width_ = 0;
    std::vector<SampleRow> columns_; // by the sample's place within its pixel
    std::vector<ValueArray> values_;
    std::vector<FieldArray> pieceFields_;
    std::vector<ValueArray> pieceValues_;
    int piece_ = 4; // samples
    const std::atomic<bool>* stop_ = nullptr;
    const std::string* failedNode_ = nullptr;
};

} // namespace velto::host
