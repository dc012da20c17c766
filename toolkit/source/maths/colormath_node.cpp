// Works on the channels of colours, and leaves the first colour's alpha.
#include "numbers.h"
#include "operations.h"

#include <cmath>

namespace velto::toolkit
{

VELTO_INTERNED_ID(kAdd, "add");
VELTO_INTERNED_ID(kSubtract, "subtract");
VELTO_INTERNED_ID(kMultiply, "multiply");
VELTO_INTERNED_ID(kDivide, "divide");
VELTO_INTERNED_ID(kMultiplyAdd, "multiplyadd");
VELTO_INTERNED_ID(kPower, "power");
VELTO_INTERNED_ID(kModulo, "modulo");
VELTO_INTERNED_ID(kMinimum, "minimum");
VELTO_INTERNED_ID(kMaximum, "maximum");
VELTO_INTERNED_ID(kAbsolute, "absolute");
VELTO_INTERNED_ID(kDifference, "difference");
VELTO_INTERNED_ID(kClamp, "clamp");
VELTO_INTERNED_ID(kMix, "mix");
VELTO_INTERNED_ID(kFloor, "floor");
VELTO_INTERNED_ID(kFraction, "fraction");

using Function = Float (*)(Float a, Float b, Float c);

static ColorA Each(Function function, const ColorA& a, const ColorA& b, const ColorA& c)
{
    return {function(a.r, b.r, c.r), function(a.g, b.g, c.g), function(a.b, b.b, c.b), a.a};
}

template <Function F>
static ColorA Compute(In<"a", ColorA> a, In<"b", ColorA> b, In<"c", ColorA> c)
{
    return Each(F, a, b, c);
}

template <Function F>
static Operation<Function> Row(const InternedId& name)
{
    return {&name, F, &TableOf<&Compute<F>>()};
}

static const Operation<Function> kOperations[] = {
    Row<+[](Float a, Float b, Float) { return a + b; }>(kAdd),
    Row<+[](Float a, Float b, Float) { return a - b; }>(kSubtract),
    Row<+[](Float a, Float b, Float) { return a * b; }>(kMultiply),
    Row<+[](Float a, Float b, Float) { return Quotient(a, b); }>(kDivide),
    Row<+[](Float a, Float b, Float c) { return a * b + c; }>(kMultiplyAdd),
    Row<+[](Float a, Float b, Float) { return Power(a, b); }>(kPower),
    Row<+[](Float a, Float b, Float) { return Remainder(a, b); }>(kModulo),
    Row<+[](Float a, Float b, Float) { return Min(a, b); }>(kMinimum),
    Row<+[](Float a, Float b, Float) { return Max(a, b); }>(kMaximum),
    Row<+[](Float a, Float, Float) { return std::abs(a); }>(kAbsolute),
    Row<+[](Float a, Float b, Float) { return std::abs(a - b); }>(kDifference),
    Row<+[](Float a, Float b, Float c) { return Min(Max(a, b), Max(c, b)); }>(kClamp),
    Row<+[](Float a, Float b, Float c) { return a * (1.0 - c) + b * c; }>(kMix),
    Row<+[](Float a, Float, Float) { return Floor(a); }>(kFloor),
    Row<+[](Float a, Float, Float) { return Fraction(a); }>(kFraction),
};

static ColorA ColorMath(In<"operation", InternedId> operation, In<"a", ColorA> a, In<"b", ColorA> b, In<"c", ColorA> c)
{
    return Each(FindOperation(kOperations, operation).function, a, b, c);
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.colormath", ColorMath, .optimizer = &TakeOperation<kOperations>);

} // namespace velto::toolkit
