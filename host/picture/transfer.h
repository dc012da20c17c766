// How colours are encoded in a file.
#pragma once

namespace velto::host
{

// What turns encoded colours into linear light.
struct Transfer
{
    enum class Curve
    {
        Linear,
        Srgb,   // IEC 61966-2-1
        Rec709, // ITU-R BT.709
        Power,
    };

    Curve curve = Curve::Linear;
    double exponent = 1.0; // of Power

    double ToLinear(double c) const;
    double FromLinear(double c) const;
    friend bool operator==(const Transfer&, const Transfer&) = default;
};

} // namespace velto::host
