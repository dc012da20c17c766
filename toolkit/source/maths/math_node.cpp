// Works on one, two or three numbers.
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
VELTO_INTERNED_ID(kSign, "sign");
VELTO_INTERNED_ID(kFloor, "floor");
VELTO_INTERNED_ID(kCeiling, "ceiling");
VELTO_INTERNED_ID(kRound, "round");
VELTO_INTERNED_ID(kFraction, "fraction");
VELTO_INTERNED_ID(kSquareRoot, "squareroot");
VELTO_INTERNED_ID(kExponential, "exponential");
VELTO_INTERNED_ID(kLogarithm, "logarithm");
VELTO_INTERNED_ID(kSine, "sine");
VELTO_INTERNED_ID(kCosine, "cosine");
VELTO_INTERNED_ID(kTangent, "tangent");
VELTO_INTERNED_ID(kArcTangent2, "arctangent2");
VELTO_INTERNED_ID(kLessThan, "lessthan");
VELTO_INTERNED_ID(kGreaterThan, "greaterthan");
VELTO_INTERNED_ID(kCompare, "compare");
VELTO_INTERNED_ID(kWrap, "wrap");
VELTO_INTERNED_ID(kPingPong, "pingpong");

using Function = Float (*)(Float a, Float b, Float c);

template <Function F>
static Float Compute(In<"a", Float> a, In<"b", Float> b, In<"c", Float> c)
{
    return F(a, b, c);
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
    Row<+[](Float a, Float, Float) { return Sign(a); }>(kSign),
    Row<+[](Float a, Float, Float) { return Floor(a); }>(kFloor),
    Row<+[](Float a, Float, Float) { return -Floor(-a); }>(kCeiling),
    Row<+[](Float a, Float, Float) { return Round(a); }>(kRound),
    Row<+[](Float a, Float, Float) { return Fraction(a); }>(kFraction),
    Row<+[](Float a, Float, Float) { return SquareRoot(a); }>(kSquareRoot),
    Row<+[](Float a, Float, Float) { return std::exp(a); }>(kExponential),
    Row<+[](Float a, Float b, Float) { return Logarithm(a, b); }>(kLogarithm),
    Row<+[](Float a, Float, Float) { return std::sin(a); }>(kSine),
    Row<+[](Float a, Float, Float) { return std::cos(a); }>(kCosine),
    Row<+[](Float a, Float, Float) { return std::tan(a); }>(kTangent),
    Row<+[](Float a, Float b, Float) { return std::atan2(a, b); }>(kArcTangent2),
    Row<+[](Float a, Float b, Float) { return a < b ? 1.0 : 0.0; }>(kLessThan),
    Row<+[](Float a, Float b, Float) { return b < a ? 1.0 : 0.0; }>(kGreaterThan),
    Row<+[](Float a, Float b, Float c) { return std::abs(a - b) <= c ? 1.0 : 0.0; }>(kCompare),
    Row<+[](Float a, Float b, Float c) { return Wrapped(a, b, c); }>(kWrap),
    Row<+[](Float a, Float b, Float) { return PingPong(a, b); }>(kPingPong),
};

static Float Math(In<"operation", InternedId> operation, In<"a", Float> a, In<"b", Float> b, In<"c", Float> c)
{
    return FindOperation(kOperations, operation).function(a, b, c);
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.math", Math, .optimizer = &TakeOperation<kOperations>);

} // namespace velto::toolkit
