// Works on vectors: component by component, or on their lengths and directions.
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
VELTO_INTERNED_ID(kModulo, "modulo");
VELTO_INTERNED_ID(kMinimum, "minimum");
VELTO_INTERNED_ID(kMaximum, "maximum");
VELTO_INTERNED_ID(kAbsolute, "absolute");
VELTO_INTERNED_ID(kFloor, "floor");
VELTO_INTERNED_ID(kFraction, "fraction");
VELTO_INTERNED_ID(kScale, "scale");
VELTO_INTERNED_ID(kNormalise, "normalise");
VELTO_INTERNED_ID(kMix, "mix");
VELTO_INTERNED_ID(kRotate, "rotate");
VELTO_INTERNED_ID(kReflect, "reflect");
VELTO_INTERNED_ID(kProject, "project");
VELTO_INTERNED_ID(kCross, "cross");
VELTO_INTERNED_ID(kDot, "dot");
VELTO_INTERNED_ID(kLength, "length");
VELTO_INTERNED_ID(kDistance, "distance");

struct Operands
{
    const Vector& a;
    const Vector& b;
    const Vector& c;
    Float scale;
};

// Operations that give a number have it in all components.
using Function = Vector (*)(const Operands& of);

static Vector All(Float value)
{
    return {value, value, value};
}

static Float Length(const Vector& v)
{
    return std::sqrt(Dot(v, v));
}

static Vector Cross(const Vector& a, const Vector& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

static Vector Normalised(const Vector& v)
{
    const Float length = Length(v);
    return length == 0.0 ? Vector() : Vector{v.x / length, v.y / length, v.z / length};
}

// About an axis through the origin, against the clock for who looks down on it from its tip (O. Rodrigues).
static Vector Rotated(const Vector& v, const Vector& axis, Float angle)
{
    const Vector n = Normalised(axis);
    if (n == Vector())
        return v;
    const Float c = std::cos(angle);
    return v * c + Cross(n, v) * std::sin(angle) + n * (Dot(n, v) * (1.0 - c));
}

static Vector Projected(const Vector& a, const Vector& onto)
{
    return onto * Quotient(Dot(a, onto), Dot(onto, onto));
}

static Float Product(Float a, Float b)
{
    return a * b;
}

template <Float (*F)(Float, Float)>
static Vector Each(const Operands& of)
{
    return {F(of.a.x, of.b.x), F(of.a.y, of.b.y), F(of.a.z, of.b.z)};
}

static void Write(const Vector& computed, const Out<"result", Vector>& result, const Out<"value", Float>& value)
{
    result = computed;
    value = computed.x;
}

template <Function F>
static void Compute(In<"a", Vector> a, In<"b", Vector> b, In<"c", Vector> c, In<"scale", Float> scale,
    Out<"result", Vector> result, Out<"value", Float> value)
{
    Write(F({a, b, c, scale}), result, value);
}

template <Function F>
static Operation<Function> Row(const InternedId& name)
{
    return {&name, F, &TableOf<&Compute<F>>()};
}

static const Operation<Function> kOperations[] = {
    Row<+[](const Operands& of) { return of.a + of.b; }>(kAdd),
    Row<+[](const Operands& of) { return of.a - of.b; }>(kSubtract),
    Row<&Each<&Product>>(kMultiply),
    Row<&Each<&Quotient>>(kDivide),
    Row<+[](const Operands& of) { return Each<&Product>(of) + of.c; }>(kMultiplyAdd),
    Row<&Each<&Remainder>>(kModulo),
    Row<&Each<+[](Float a, Float b) { return Min(a, b); }>>(kMinimum),
    Row<&Each<+[](Float a, Float b) { return Max(a, b); }>>(kMaximum),
    Row<&Each<+[](Float a, Float) { return std::abs(a); }>>(kAbsolute),
    Row<&Each<+[](Float a, Float) { return Floor(a); }>>(kFloor),
    Row<&Each<+[](Float a, Float) { return Fraction(a); }>>(kFraction),
    Row<+[](const Operands& of) { return of.a * of.scale; }>(kScale),
    Row<+[](const Operands& of) { return Normalised(of.a); }>(kNormalise),
    Row<+[](const Operands& of) { return of.a * (1.0 - of.scale) + of.b * of.scale; }>(kMix),
    Row<+[](const Operands& of) { return Rotated(of.a, of.b, of.scale); }>(kRotate),
    Row<+[](const Operands& of) { return of.a - Projected(of.a, of.b) * 2.0; }>(kReflect),
    Row<+[](const Operands& of) { return Projected(of.a, of.b); }>(kProject),
    Row<+[](const Operands& of) { return Cross(of.a, of.b); }>(kCross),
    Row<+[](const Operands& of) { return All(Dot(of.a, of.b)); }>(kDot),
    Row<+[](const Operands& of) { return All(Length(of.a)); }>(kLength),
    Row<+[](const Operands& of) { return All(Length(of.a - of.b)); }>(kDistance),
};

static void VectorMath(In<"operation", InternedId> operation, In<"a", Vector> a, In<"b", Vector> b, In<"c", Vector> c,
    In<"scale", Float> scale, Out<"result", Vector> result, Out<"value", Float> value)
{
    Write(FindOperation(kOperations, operation).function({a, b, c, scale}), result, value);
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.maths.vectormath", VectorMath, .optimizer = &TakeOperation<kOperations>);

} // namespace velto::toolkit
