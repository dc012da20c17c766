// The integer hash and the random stream that all generators share. Every use is exact to the bit.
#pragma once

#include "velto/types.h"

namespace velto
{

// R. Jenkins' 32-bit integer hash, but with arithmetic right shifts: they pull in the sign bit.
constexpr UInt32 IntegerHash32(UInt32 value)
{
    const auto shiftedRight = [](UInt32 h, int bits) { return static_cast<UInt32>(static_cast<Int32>(h) >> bits); };
    UInt32 h = value;
    h = h * 4097 + 0x7ed55d16u;
    h = h ^ 0xc761c23cu ^ shiftedRight(h, 19);
    h = h * 33 + 0x165667b1u;
    h = (h + 0xd3a2646cu) ^ (h << 9);
    h = h * 9 + 0xfd7046c5u;
    h = h ^ 0xb55a4f09u ^ shiftedRight(h, 16);
    return h;
}

static_assert(IntegerHash32(0) == 0x94b1d927u && IntegerHash32(1) == 0xb48681b6u && IntegerHash32(100) == 0xa29732d4u);

// A linear congruential stream.
class RandomStream
{
public:
    constexpr explicit RandomStream(UInt32 seed) : RandomStream(FromState(Step(seed))) {}

    // A stream that takes up at `state` itself.
    static constexpr RandomStream FromState(UInt32 state)
    {
        RandomStream stream;
        stream.state_ = state;
        return stream;
    }

    // The next number in [0, 1).
    constexpr Float Next01()
    {
        state_ = Step(state_);
        return static_cast<Float>(state_) * 0x1p-32;
    }

    constexpr UInt32 State() const { return state_; }

private:
    constexpr RandomStream() = default;
    static constexpr UInt32 Step(UInt32 state) { return state * 69069 + 1; }

    UInt32 state_ = 0;
};

} // namespace velto
