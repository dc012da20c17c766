// Shifts the mid-tones of a colour (bias) and steepens or flattens it about them (gain).
//
// C. Schlick, "Fast alternatives to Perlin's bias and gain functions", Graphics Gems IV, 1994.
#include "velto/mask.h"

namespace velto::pattern
{

static constexpr Float kMinBias = 0.0010000000474974513; // the 32-bit float nearest 0.001
static constexpr Float kMinGain = 9.999999747378752e-5;  // the 32-bit float nearest 0.0001
static constexpr Float kMaxGain = 0.9999;

static Float BiasGainCurve(Float x, Float b, Float g)
{
    const Float u = Clamp01(x / ((1.0 - x) * b + 1.0));
    const Float t = (1.0 - (u + u)) * g;
    return Clamp01(u < 0.5 ? u / (t + 1.0) : (t - u) / (t - 1.0));
}

static ColorA BiasGain(In<"color", ColorA> x, In<"bias", Float> bias, In<"gain", Float> gain)
{
    const Float b = 1.0 / Max(*bias, kMinBias) - 2.0;
    const Float g = 1.0 / Min(Max(*gain, kMinGain), kMaxGain) - 2.0;
    // Alpha takes the curve of bias 1 and gain 1.
    return {BiasGainCurve(x->r, b, g), BiasGainCurve(x->g, b, g), BiasGainCurve(x->b, b, g),
        BiasGainCurve(x->a, -1.0, -0.999899989999)};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.biasgain", Masked<BiasGain>);

} // namespace velto::pattern
