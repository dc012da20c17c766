// Makes a colour from the channels of two.
#include "velto/node.h"

namespace velto::pattern
{

VELTO_INTERNED_ID(kRed1, "red1");
VELTO_INTERNED_ID(kRed2, "red2");
VELTO_INTERNED_ID(kGreen1, "green1");
VELTO_INTERNED_ID(kGreen2, "green2");
VELTO_INTERNED_ID(kBlue1, "blue1");
VELTO_INTERNED_ID(kBlue2, "blue2");
VELTO_INTERNED_ID(kAlpha1, "alpha1");
VELTO_INTERNED_ID(kAlpha2, "alpha2");
VELTO_INTERNED_ID(kOne, "one");

static Float Component(const ColorA& x1, const ColorA& x2, const InternedId& id)
{
    if (id == kRed1)
        return x1.r;
    if (id == kGreen1)
        return x1.g;
    if (id == kBlue1)
        return x1.b;
    if (id == kAlpha1)
        return x1.a;
    if (id == kRed2)
        return x2.r;
    if (id == kGreen2)
        return x2.g;
    if (id == kBlue2)
        return x2.b;
    if (id == kAlpha2)
        return x2.a;
    return id == kOne ? 1.0 : 0.0;
}

static ColorA ShuffleCombine(In<"color1", ColorA> x1, In<"color2", ColorA> x2, In<"redComponent", InternedId> red,
    In<"greenComponent", InternedId> green, In<"blueComponent", InternedId> blue,
    In<"alphaComponent", InternedId> alpha)
{
    const auto component = [&](const InternedId& id) { return Component(*x1, *x2, id); };
    return {component(*red), component(*green), component(*blue), component(*alpha)};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.shufflecombine", ShuffleCombine);

} // namespace velto::pattern
