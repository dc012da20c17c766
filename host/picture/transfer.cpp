#include "transfer.h"

#include "velto/srgb.h"

#include <cmath>

namespace velto::host
{

double Transfer::ToLinear(double c) const
{
    switch (curve)
    {
    case Curve::Srgb:
        return LinearFromSrgb(c);
    case Curve::Rec709:
        return c < 0.081 ? c / 4.5 : std::pow((c + 0.099) / 1.099, 1.0 / 0.45);
    case Curve::Power:
        return c <= 0.0 ? c : std::pow(c, exponent);
    case Curve::Linear:
        break;
    }
    return c;
}

double Transfer::FromLinear(double c) const
{
    switch (curve)
    {
    case Curve::Srgb:
        return SrgbFromLinear(c);
    case Curve::Rec709:
        return c < 0.018 ? c * 4.5 : 1.099 * std::pow(c, 0.45) - 0.099;
    case Curve::Power:
        return c <= 0.0 ? c : std::pow(c, 1.0 / exponent);
    case Curve::Linear:
        break;
    }
    return c;
}

} // namespace velto::host
