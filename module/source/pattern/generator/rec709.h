// XYZ to linear RGB of Rec. 709 primaries and a D65 white.
#pragma once

#include "velto/types.h"

namespace velto::pattern
{

inline Color Rec709FromXyz(Float x, Float y, Float z)
{
    const auto row = [&](Float32 a, Float32 b, Float32 c) { return Float(a) * x + Float(b) * y + Float(c) * z; };
    return {row(3.240479f, -1.53715f, -0.498535f), row(-0.969256f, 1.875991f, 0.041556f),
        row(0.055648f, -0.204043f, 1.057311f)};
}

} // namespace velto::pattern
