// Shifts a colour's hue, saturation and value, or gives it one hue throughout.
#include "hsv.h"
#include "velto/mask.h"

#include <numbers>

namespace velto::pattern
{

static constexpr Float kTurn = 2.0 * std::numbers::pi;

static ColorA ColorCorrection(In<"color", ColorA> x, In<"hue", Float> hue, In<"saturation", Float> saturation,
    In<"value", Float> value, In<"colorize", Bool> colorize)
{
    Color c{Max(x->r, 0.0), Max(x->g, 0.0), Max(x->b, 0.0)};
    const Float alpha = Max(x->a, 1.0);
    if (!colorize && hue == 0.0 && saturation == 0.0 && value == 0.0)
        return {c.r, c.g, c.b, alpha};

    const Float shift = hue / kTurn;
    const Hsv hsv = RgbToHsv(c);
    if (colorize)
        c = HsvToRgb({std::abs(shift), saturation + 1.0, hsv.v});
    else
        c = HsvToRgb({WrapHue(shift + hsv.h), Clamp01(saturation + hsv.s), hsv.v});
    c = ShiftValue(c, value);
    return {c.r, c.g, c.b, alpha};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.colorhsl", Masked<ColorCorrection>);

} // namespace velto::pattern
