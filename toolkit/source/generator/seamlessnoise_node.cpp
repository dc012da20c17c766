// Noise that repeats without a seam after every unit of texture space, and after every loop in time.
#include "lattice.h"
#include "velto/footprint.h"
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

// What the pre node makes of its inputs, with them.
struct SeamlessNoiseTable
{
    UInt32 seed = 0;
    Int periods[3] = {};
    Float lacunarity = 0.0;
    Float gain = 0.0;
    Bool computed = false;
    LatticeLayers layers;
    Float32 amplitude[kMostLayers] = {};
    // Of the layers before each, added up.
    Float32 sum[kMostLayers] = {};
    Float32 squares[kMostLayers] = {};
};

} // namespace velto::toolkit

VELTO_DATA_TYPE(velto::toolkit::SeamlessNoiseTable, "net.velto.toolkit.datatype.seamlessnoisetable");

namespace velto::toolkit
{

VELTO_PUBLISH_DATA_TYPE(SeamlessNoiseTable);

VELTO_INTERNED_ID(kValue, "value");
VELTO_INTERNED_ID(kGradient, "gradient");
VELTO_INTERNED_ID(kTurbulence, "turbulence");
VELTO_INTERNED_ID(kRidged, "ridged");
VELTO_INTERNED_ID(kCells, "cells");
VELTO_INTERNED_ID(kCellBorders, "cellborders");
VELTO_INTERNED_ID(kCellValues, "cellvalues");

// Finer lattices would be all noise to the last bits of a place.
static constexpr UInt kMostCells = UInt(1) << 22;

static void FillTable(SeamlessNoiseTable& table)
{
    UInt32 random = MixBits(table.seed + 0x9e3779b9u);
    const auto next = [&random] { return MixBits(random = random * 69069 + 0x9e3779b9u); };
    const Float wanted = table.lacunarity;
    const UInt step = wanted >= 1.5 ? static_cast<UInt>(Min(wanted + 0.5, 64.0)) : wanted > 0.0 ? 1 : 2;
    UInt cells[3];
    for (int axis = 0; axis < 3; ++axis)
        cells[axis] = static_cast<UInt>(Min(Max<Int>(table.periods[axis], axis < 2 ? 1 : 0), Int(kMostCells)));
    const Float32 fall = std::abs(table.gain) < 1e6 ? static_cast<Float32>(table.gain) : 0.5f;
    Float32 amplitude = 1.0f;
    LatticeLayers& layers = table.layers;
    for (int i = 0; i < kMostLayers; ++i)
    {
        layers.cellsU[i] = static_cast<UInt32>(cells[0]);
        layers.cellsV[i] = static_cast<UInt32>(cells[1]);
        layers.cellsW[i] = static_cast<UInt32>(cells[2]);
        layers.shiftU[i] = next();
        layers.shiftV[i] = next();
        layers.shiftW[i] = next();
        layers.seed[i] = next();
        table.amplitude[i] = std::abs(amplitude) > 1e-30f ? amplitude : 0.0f;
        if (i > 0)
        {
            table.sum[i] = table.sum[i - 1] + std::abs(table.amplitude[i - 1]);
            table.squares[i] = table.squares[i - 1] + table.amplitude[i - 1] * table.amplitude[i - 1];
        }
        amplitude = std::abs(amplitude) < 1e9f ? amplitude * fall : amplitude;
        for (UInt& count : cells)
        {
            if (count * step > kMostCells)
                amplitude = 0.0f;
            else
                count *= step;
        }
    }
}

static void SeamlessNoisePre(In<"seed", UInt32> seed, In<"periodU", Int> periodU, In<"periodV", Int> periodV,
    In<"periodW", Int> periodW, In<"lacunarity", Float> lacunarity, In<"gain", Float> gain,
    Once<"table", SeamlessNoiseTable> table)
{
    const Int periods[3] = {periodU, periodV, periodW};
    if (table->computed && table->seed == *seed && std::equal(periods, periods + 3, table->periods) &&
        table->lacunarity == *lacunarity && table->gain == *gain)
        return;
    table->seed = seed;
    std::copy(periods, periods + 3, table->periods);
    table->lacunarity = lacunarity;
    table->gain = gain;
    table->computed = true;
    FillTable(*table);
}

enum class Kind
{
    Value,
    Gradient,
    Fbm,
    Turbulence,
    Ridged,
    Cells,
    CellBorders,
    CellValues,
};

static Kind KindOf(const InternedId& type)
{
    if (type == kValue)
        return Kind::Value;
    if (type == kGradient)
        return Kind::Gradient;
    if (type == kTurbulence)
        return Kind::Turbulence;
    if (type == kRidged)
        return Kind::Ridged;
    if (type == kCells)
        return Kind::Cells;
    if (type == kCellBorders)
        return Kind::CellBorders;
    return type == kCellValues ? Kind::CellValues : Kind::Fbm;
}

// What one sample asks for.
struct Question
{
    LatticePlace at;
    Float32 octaves;
    Float32 width[2]; // of the sample's footprint, in units along U and V
};

// What the filter leaves of layers, by how many of their cells one sample covers, and what they count.
struct Weights
{
    alignas(32) Float32 amplitude[kMostLayers];
    alignas(32) Float32 keep[kMostLayers];
    Float32 sum = 0.0f;
    Float32 squares = 0.0f;
};

VELTO_INLINE void Weigh(const SeamlessNoiseTable& table, int count, const Question& question, Weights& weights)
{
    ForLayers(count, [&](int i) {
        const Float32 share = question.octaves - static_cast<Float32>(i);
        weights.amplitude[i] = table.amplitude[i] * Min(Max(share, 0.0f), 1.0f);
        const Float32 covered =
            0.5f * (question.width[0] * static_cast<Float32>(static_cast<Int32>(table.layers.cellsU[i])) +
                       question.width[1] * static_cast<Float32>(static_cast<Int32>(table.layers.cellsV[i])));
        const Float32 t = Min(Max((covered - 0.2f) * (1.0f / 0.6f), 0.0f), 1.0f);
        weights.keep[i] = 1.0f - t * t * (3.0f - 2.0f * t);
    });
    // All but the last layer count in full.
    const Float32 last = weights.amplitude[count - 1];
    weights.sum = table.sum[count - 1] + std::abs(last);
    weights.squares = table.squares[count - 1] + last * last;
}

// The means of shapes, in the plane and in space, to which the filter fades them. The tests measure them.
struct Mean
{
    Float32 plane;
    Float32 space;
};
static constexpr Mean kMeanSlope{0.234f, 0.2232f};
static constexpr Mean kMeanRidge{0.577f, 0.594f};
static constexpr Mean kMeanCell{0.381f, 0.464f};
static constexpr Mean kMeanBorder{0.275f, 0.2005f};

template <class Shape>
VELTO_INLINE Float32 Sum(const Weights& weights, int count, const Float32* values, Float32 mean, Shape shape)
{
    Float32 sum = 0.0f;
    for (int i = 0; i < count; ++i)
        sum += weights.amplitude[i] * (mean + weights.keep[i] * (shape(values[i]) - mean));
    return weights.sum > 0.0f ? sum / weights.sum : mean;
}

template <int kAxes, bool kMoves, class Shape>
VELTO_INLINE Float32 SumCells(
    const LatticeLayers& layers, const Weights& weights, int count, const LatticePlace& at, Float32 mean, Shape shape)
{
    alignas(32) Float32 values[kMostLayers];
    for (int i = 0; i < count; ++i)
        values[i] = weights.keep[i] > 0.0f ? shape(FindNearest<kAxes, kMoves>(layers, i, at)) : mean;
    return Sum(weights, count, values, mean, [](Float32 value) { return value; });
}

// Octave by octave, fine ridges only where coarse ones are (F. K. Musgrave, "Texturing and Modeling", 1994).
VELTO_INLINE Float32 RidgeSum(const Weights& weights, int count, const Float32* values, Float32 mean)
{
    Float32 sum = 0.0f;
    Float32 gate = 1.0f;
    for (int i = 0; i < count; ++i)
    {
        const Float32 crest = 1.0f - Min(1.0f, 1.1f * std::abs(values[i]));
        const Float32 ridge = mean + weights.keep[i] * (crest * crest - mean);
        sum += weights.amplitude[i] * gate * ridge;
        gate = Min(gate * ridge * 1.6f, 1.0f);
    }
    return weights.sum > 0.0f ? sum / weights.sum : mean;
}

template <int kAxes, bool kMoves>
VELTO_INLINE Float32 Answer(const SeamlessNoiseTable& table, Kind kind, const Question& question)
{
    const LatticeLayers& layers = table.layers;
    const int count = kind == Kind::Gradient ? 1 : static_cast<int>(std::ceil(question.octaves));
    const auto of = [](const Mean& mean) { return kAxes == 3 ? mean.space : mean.plane; };
    Weights weights;
    Weigh(table, count, question, weights);
    alignas(32) Float32 values[kMostLayers];
    if (kind < Kind::Cells)
    {
        kind == Kind::Value ? EvaluateLayers<kAxes, ValueCorner, kMoves>(layers, count, question.at, values)
                            : EvaluateLayers<kAxes, GradientCorner, kMoves>(layers, count, question.at, values);
    }
    const auto plain = [](Float32 value) { return value; };
    switch (kind)
    {
    case Kind::Value:
        return 0.5f + 0.5f * Sum(weights, count, values, 0.0f, plain);
    case Kind::Gradient:
        return 0.5f + 0.5f * weights.keep[0] * values[0];
    case Kind::Turbulence:
        return 1.9f * Sum(weights, count, values, of(kMeanSlope), [](Float32 value) { return std::abs(value); });
    case Kind::Ridged:
        return RidgeSum(weights, count, values, of(kMeanRidge));
    case Kind::Cells:
        return SumCells<kAxes, kMoves>(layers, weights, count, question.at, of(kMeanCell),
            [](const NearestInLattice& nearest) { return std::sqrt(nearest.f1) * 0.9f; });
    case Kind::CellBorders:
        return SumCells<kAxes, kMoves>(layers, weights, count, question.at, of(kMeanBorder),
            [](const NearestInLattice& nearest) { return std::sqrt(nearest.f2) - std::sqrt(nearest.f1); });
    case Kind::CellValues:
        return SumCells<kAxes, kMoves>(layers, weights, count, question.at, 0.5f,
            [](const NearestInLattice& nearest) { return static_cast<Float32>(MixBits(nearest.id) >> 8) * 0x1p-24f; });
    case Kind::Fbm:
        break;
    }
    // As lively whatever the number of layers is; the first has the amplitude 1.
    if (count == 1)
        return 0.5f + 0.55f * (weights.keep[0] * values[0]);
    return 0.5f +
           0.55f * Sum(weights, count, values, 0.0f, plain) * weights.sum / std::sqrt(Max(weights.squares, 1e-30f));
}

// The same bits with wider vectors where the processor has them. One compiler takes no other attribute beside the
// clones.
#if defined(VELTO_BITCODE) // which is compiled for one processor
#elif defined(__x86_64__) && defined(__clang__)
__attribute__((target_clones("avx2", "default")))
#elif defined(__x86_64__)
__attribute__((target_clones("avx2", "default"), flatten))
#endif
static Float32 AnswerForProcessor(const SeamlessNoiseTable& table, Kind kind, const Question& question)
{
    const bool isMoving = question.at.phase != 0;
    if (table.layers.cellsW[0] != 0)
        return isMoving ? Answer<3, true>(table, kind, question) : Answer<3, false>(table, kind, question);
    return isMoving ? Answer<2, true>(table, kind, question) : Answer<2, false>(table, kind, question);
}

static Float SeamlessNoise(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"kind", InternedId> kind, In<"octaves", Float> octaves, In<"loop", Float> loop, In<"turns", Int> turns,
    In<"table", SeamlessNoiseTable> table)
{
    if (!local->uvwValid || !table->computed)
        return 0.0;
    Question question{};
    question.at = {ShareOf(local->uvw.x), ShareOf(local->uvw.y), 0, 0};
    if (table->layers.cellsW[0] != 0)
        question.at.w = ShareOf(local->uvw.z);
    if (loop > 0.0)
        question.at.phase = ShareOf(local->time.seconds / loop) * static_cast<UInt32>(*turns);
    question.octaves = octaves > 1.0 ? static_cast<Float32>(Min(*octaves, Float(kMostLayers))) : 1.0f;
    const Vector width = Footprint<2>(*local);
    question.width[0] = static_cast<Float32>(Min(width.x, 1e9));
    question.width[1] = static_cast<Float32>(Min(width.y, 1e9));
    return Clamp01(AnswerForProcessor(*table, KindOf(*kind), question));
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.generator.seamlessnoisepre", SeamlessNoisePre);
VELTO_CORE_NODE("net.velto.toolkit.corenode.generator.seamlessnoise", SeamlessNoise);

} // namespace velto::toolkit
