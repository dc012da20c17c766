// Random values that change from sample to sample, and stay the same for the same ray in the same frame.
#include "randomvalues.h"

namespace velto::pattern
{

static UInt FrameNumber(const ShadingContext& context)
{
    const Float time = context.time.seconds;
    const Float frame = time * context.frameRate;
    return static_cast<UInt>(Truncate<Int>(time >= 0.0 ? frame + 0.001 : frame - 0.001));
}

static UInt32 SampleNumber(const ShadingContext& context)
{
    const auto scaled = [](Float sum, Float factor) { return static_cast<UInt>(Truncate<Int>(sum * factor)); };
    const Vector& origin = context.rayOrigin;
    const Vector& direction = context.rayDirection;
    UInt n = (static_cast<UInt>(context.pixel[0]) + static_cast<UInt>(context.pixel[1])) * 43778;
    n += scaled(context.subpixel.x + context.subpixel.y, 23676.0);
    n += scaled(origin.x + origin.y + origin.z, 12644.0);
    n += scaled(direction.x + direction.y + direction.z, 94554.0);
    n += FrameNumber(context) * 74643;
    n += 123;
    return static_cast<UInt32>(n);
}

static void Random(In<"context", ShadingContext> context, In<"seed", Int> seed, In<"salt", Int> salt,
    In<"minimum", Float> minimum, In<"maximum", Float> maximum, RandomOutputs outputs)
{
    const UInt32 sample = IntegerHash32(SampleNumber(*context));
    const UInt32 s = IntegerHash32(sample + static_cast<UInt32>(*seed) + static_cast<UInt32>(*salt));
    outputs = RandomValues(RandomStream(s), minimum, maximum);
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.random", Random);

} // namespace velto::pattern
