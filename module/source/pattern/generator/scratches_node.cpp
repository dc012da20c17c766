// Thin bent scratches in several layers, each layer on a grid of its own.
#include "../limits.h"
#include "truncate.h"
#include "velto/floor.h"
#include "velto/node.h"
#include "velto/random.h"

#include <cmath>
#include <numbers>

namespace velto::pattern
{

static constexpr Float kPi = std::numbers::pi;
static constexpr Float kTwoPi = 2.0 * std::numbers::pi;
static constexpr Int kMostLayers = 100'000;

struct ScratchShape
{
    Float bend;
    Float density;
    Float rotation;
    Float gamma;
    Float thickness;
    Float depth;
};

static UInt CellNumber(Int32 cellX, Int32 cellY, UInt seed, UInt layer)
{
    const auto wide = [](Int32 x) { return static_cast<UInt>(static_cast<Int>(x)); };
    const UInt x = wide(cellX);
    const UInt y = wide(cellY);
    return x + y + (x + 321 * layer) * (y + 123 * layer) + wide(cellX ^ cellY) + wide(cellX | cellY) + seed - 12345 +
           layer;
}

// 1 on the clean surface, lower in a scratch.
static Float Layer(Float x, Float y, RandomStream stream, const ScratchShape& shape)
{
    if (stream.Next01() > shape.density)
        return 1.0;
    const Float p = x - Floor(x);
    const Float r = y - Floor(y);
    const Float angle = (2.0 * stream.Next01() - 1.0) * kTwoPi * shape.rotation;
    const Float c = std::cos(angle);
    const Float s = std::sin(angle);
    const Float shift = 2.0 * stream.Next01() - 1.0;
    const Float across = p * c - r * s + shift;
    const Float along = p * s + r * c + shift;
    const Float bend = shape.bend * stream.Next01();
    const Float wave = std::sin(kPi * along) * bend;
    const Float width = stream.Next01() * shape.thickness * 0.05;
    const Float inside = width - std::abs(across - 0.5 + wave + wave);
    if (!(inside > 0.0))
        return 1.0;
    return Clamp01((std::pow(along, shape.gamma) * along * (1.0 - inside) - 1.0) * shape.depth + 1.0);
}

static Result Scratches(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local, In<"seed", Int> seed,
    In<"bend", Float> bend, In<"scale", Float> scale, In<"layers", Int> layers, In<"density", Float> density,
    In<"frequencystep", Float> frequencyStep, In<"rotation", Float> rotation, In<"gamma", Float> gamma,
    In<"thickness", Float> thickness, In<"depth", Float> depth, Out<"result", Float> result)
{
    VELTO_TRY(CheckLimit("layers", layers, kMostLayers));
    const ScratchShape shape{bend, density, rotation, gamma, thickness, depth};
    const Float cell = Max(scale * 0.01, 1e-7);
    const Float u = local->uvw.x * (1.0 / cell);
    const Float v = local->uvw.y * (1.0 / cell);
    const Float step = frequencyStep > 0.0 ? 1.0 / frequencyStep : 0.0;
    Float frequency = 1.0;
    Float removed = 0.0;
    // Once all is removed no layer brings anything back.
    for (Int layer = 1; layer <= layers && removed < 1.0; ++layer)
    {
        const Float x = u * frequency;
        const Float y = v * frequency;
        const Int32 cellX = Truncate<Int32>(Floor(x / cell) * cell);
        const Int32 cellY = Truncate<Int32>(Floor(y / cell) * cell);
        const UInt number = CellNumber(cellX, cellY, static_cast<UInt>(*seed), static_cast<UInt>(layer));
        const Float m = Layer(x, y, RandomStream(IntegerHash32(static_cast<UInt32>(number))), shape);
        frequency = frequency * step;
        // A marked sample keeps on sinking: every further layer at least doubles what is removed. A power without a
        // real value makes 1 - m NaN, which does not count.
        removed = removed + Max(removed, 1.0 - m);
    }
    result = Clamp01(1.0 - removed);
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.scratches", Scratches);

} // namespace velto::pattern
