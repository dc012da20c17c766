// Makes one number of a colour.
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

VELTO_INTERNED_ID(kRed, "red");
VELTO_INTERNED_ID(kGreen, "green");
VELTO_INTERNED_ID(kBlue, "blue");
VELTO_INTERNED_ID(kAlpha, "alpha");
VELTO_INTERNED_ID(kAverage, "average");
VELTO_INTERNED_ID(kLength, "length");
VELTO_INTERNED_ID(kSquaredLength, "squaredlength");
VELTO_INTERNED_ID(kLuminance, "luminance");
VELTO_INTERNED_ID(kSum, "sum");
VELTO_INTERNED_ID(kMin, "min");
VELTO_INTERNED_ID(kMax, "max");

static Float ColorToFloat(In<"color", ColorA> c, In<"mode", InternedId> mode, In<"useAlpha", Bool> useAlpha)
{
    const auto sum = [&] {
        const Float rgb = c->r + c->g + c->b;
        return useAlpha ? rgb + c->a : rgb;
    };
    const auto squaredLength = [&] {
        const Float rgb = c->r * c->r + c->g * c->g + c->b * c->b;
        return useAlpha ? rgb + c->a * c->a : rgb;
    };
    if (*mode == kRed)
        return c->r;
    if (*mode == kGreen)
        return c->g;
    if (*mode == kBlue)
        return c->b;
    if (*mode == kAlpha)
        return c->a;
    if (*mode == kAverage)
        return sum() * (useAlpha ? 0.25 : 0.3333333333333333);
    if (*mode == kLength)
        return std::sqrt(squaredLength());
    if (*mode == kSquaredLength)
        return squaredLength();
    if (*mode == kLuminance)
        return c->r * 0.2125 + c->g * 0.7154 + c->b * 0.0721;
    if (*mode == kSum)
        return sum();
    if (*mode == kMin)
    {
        const Float rgb = Min(Min(c->r, c->g), c->b);
        return useAlpha ? Min(rgb, c->a) : rgb;
    }
    if (*mode == kMax)
    {
        const Float rgb = Max(Max(c->r, c->g), c->b);
        return useAlpha ? Max(rgb, c->a) : rgb;
    }
    return 0.0;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.conversion.colortofloat", ColorToFloat);

} // namespace velto::pattern
