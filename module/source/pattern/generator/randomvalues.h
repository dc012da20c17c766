// Four numbers of a random stream in all the types that ports may have.
#pragma once

#include "random.h"
#include "truncate.h"
#include "velto/node.h"

namespace velto::pattern
{

struct RandomValues
{
    Float c[4];

    RandomValues(RandomStream stream, Float minimum, Float maximum)
    {
        for (Float& value : c)
            value = stream.Next01() * (maximum - minimum) + minimum;
    }

    ColorA AsColorA() const { return {c[0], c[1], c[2], c[3]}; }
    Color AsColor() const { return {c[0], c[1], c[2]}; }
    Float AsFloat() const { return c[0]; }
    Int AsInt() const { return Truncate<Int>(c[0]); }
    Vector AsVector3() const { return {c[0], c[1], c[2]}; }
    Vector2d AsVector2() const { return {c[0], c[1]}; }
    Bool AsBool() const { return c[0] >= 0.5; }
};

} // namespace velto::pattern
