// Rearranges the channels of a colour.
#include "velto/node.h"

namespace velto::pattern
{

VELTO_INTERNED_ID(kRed, "red");
VELTO_INTERNED_ID(kGreen, "green");
VELTO_INTERNED_ID(kBlue, "blue");
VELTO_INTERNED_ID(kAlpha, "alpha");
VELTO_INTERNED_ID(kOne, "one");

static Float Component(const ColorA& x, const InternedId& id)
{
    return id == kRed ? x.r : id == kGreen ? x.g : id == kBlue ? x.b : id == kAlpha ? x.a : id == kOne ? 1.0 : 0.0;
}

static ColorA Shuffle(In<"color", ColorA> x, In<"redComponent", InternedId> red, In<"greenComponent", InternedId> green,
    In<"blueComponent", InternedId> blue, In<"alphaComponent", InternedId> alpha)
{
    return {Component(*x, *red), Component(*x, *green), Component(*x, *blue), Component(*x, *alpha)};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.effect.shuffle", Shuffle);

} // namespace velto::pattern
