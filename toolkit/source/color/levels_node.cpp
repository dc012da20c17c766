// Stretches a range of a colour's channels to another, and bends the mid-tones between.
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

static ColorA Levels(In<"color", ColorA> x, In<"inBlack", Float> inBlack, In<"inWhite", Float> inWhite,
    In<"gamma", Float> gamma, In<"outBlack", Float> outBlack, In<"outWhite", Float> outWhite)
{
    const Float exponent = 1.0 / Max(*gamma, 0.001);
    const auto level = [&](Float c) {
        const Float share =
            *inBlack == *inWhite ? (c < inBlack ? 0.0 : 1.0) : Clamp01((c - inBlack) / (inWhite - inBlack));
        const Float bent = exponent == 1.0 ? share : std::pow(share, exponent);
        return outBlack * (1.0 - bent) + outWhite * bent;
    };
    return {level(x->r), level(x->g), level(x->b), x->a};
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.color.levels", Levels);

} // namespace velto::toolkit
