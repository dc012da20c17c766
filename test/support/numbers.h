// Numbers that look random and are the same in every run.
#pragma once

#include "velto/types.h"

namespace velto::test
{

class Numbers
{
public:
    float Next(float from, float to)
    {
        state_ = state_ * 69069 + 1;
        return from + (to - from) * (static_cast<float>(state_ >> 8) * 0x1p-24f);
    }

private:
    UInt32 state_ = 11;
};

} // namespace velto::test
