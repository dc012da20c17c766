// Moves, scales and rotates the texture coordinate as a point in space.
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

// The columns of a linear map.
struct Linear3d
{
    Vector x{1.0, 0.0, 0.0};
    Vector y{0.0, 1.0, 0.0};
    Vector z{0.0, 0.0, 1.0};

    Vector operator*(const Vector& v) const { return x * v.x + y * v.y + z * v.z; }
    Linear3d operator*(const Linear3d& m) const { return {*this * m.x, *this * m.y, *this * m.z}; }
};

static Vector Cross(const Vector& a, const Vector& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

static UInt32 RotationOrderOf(const Id& order)
{
    // By number: an order of the turned axes, and the reverse order of the fixed ones.
    static constexpr Id kOrders[][2] = {{"yxzlocal", "zxyglobal"}, {"xyzlocal", "zyxglobal"}, {"zxylocal", "yxzglobal"},
        {"xzylocal", "yzxglobal"}, {"yzxlocal", "xzyglobal"}, {"zyxlocal", "xyzglobal"}};
    for (UInt32 number = 0; number < std::size(kOrders); ++number)
    {
        if (order == kOrders[number][0] || order == kOrders[number][1])
            return number;
    }
    return 0;
}

// Left-handed rotations about the axes, multiplied in the order of that number.
static Linear3d Rotation(const Vector& angles, UInt32 order)
{
    if (angles == Vector())
        return {};
    const Float cosX = std::cos(angles.x);
    const Float sinX = std::sin(angles.x);
    const Float cosY = std::cos(angles.y);
    const Float sinY = std::sin(angles.y);
    const Float cosZ = std::cos(angles.z);
    const Float sinZ = std::sin(angles.z);
    const Linear3d x{{1.0, 0.0, 0.0}, {0.0, cosX, -sinX}, {0.0, sinX, cosX}};
    const Linear3d y{{cosY, 0.0, sinY}, {0.0, 1.0, 0.0}, {-sinY, 0.0, cosY}};
    const Linear3d z{{cosZ, -sinZ, 0.0}, {sinZ, cosZ, 0.0}, {0.0, 0.0, 1.0}};
    switch (order)
    {
    case 1:
        return x * y * z;
    case 2:
        return z * x * y;
    case 3:
        return x * z * y;
    case 4:
        return y * z * x;
    case 5:
        return z * y * x;
    default:
        return y * x * z;
    }
}

// Space to the pattern's own space, as an affine map: the inverse of the placement.
struct Placement3dData
{
    Vector translation;
    Vector axisX{1.0, 0.0, 0.0};
    Vector axisY{0.0, 1.0, 0.0};
    Vector axisZ{0.0, 0.0, 1.0};
    UInt32 rotationOrder = 0;
    Bool computed = false;

    Placement3dData() = default;
    Placement3dData(
        const Vector& position, const Vector& scale, const Vector& angles, UInt32 order, const Vector& pivot);

    Vector Map(const Vector& at) const
    {
        const auto along = [&](Float Vector::*axis) {
            return translation.*axis + axisX.*axis * at.x + axisY.*axis * at.y + axisZ.*axis * at.z;
        };
        return {along(&Vector::x), along(&Vector::y), along(&Vector::z)};
    }
};

Placement3dData::Placement3dData(
    const Vector& position, const Vector& scale, const Vector& angles, UInt32 order, const Vector& pivot)
    : rotationOrder(order), computed(true)
{
    Linear3d linear = Rotation(angles, order);
    linear = {linear.x * scale.x, linear.y * scale.y, linear.z * scale.z};
    const Vector moved = position + pivot - linear * pivot;

    const Float determinant = Dot(linear.x, Cross(linear.y, linear.z));
    if (determinant == 0.0)
        return;
    const Float inverse = 1.0 / determinant;
    // Rows of the inverse.
    const Vector rowX = Cross(linear.y, linear.z) * inverse;
    const Vector rowY = Cross(linear.z, linear.x) * inverse;
    const Vector rowZ = Cross(linear.x, linear.y) * inverse;
    axisX = {rowX.x, rowY.x, rowZ.x};
    axisY = {rowX.y, rowY.y, rowZ.y};
    axisZ = {rowX.z, rowY.z, rowZ.z};
    translation = {-Dot(rowX, moved), -Dot(rowY, moved), -Dot(rowZ, moved)};
}

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::Placement3dData, "net.velto.render.datatype.placement3ddata");

namespace velto::pattern
{

VELTO_PUBLISH_DATA_TYPE(Placement3dData);

static void Placement3d(In<"context", ShadingContext> context, In<"enableSpaceTransformation", Bool> enabled,
    In<"spacePosition", Vector> position, In<"spaceScale", Vector> scale, In<"spaceRotation", Vector> rotation,
    In<"spaceRotationOrder", Id> order, In<"pivot", Vector> pivot, Out<"result", ShadingContext> result,
    State<"pdata", Placement3dData> pdata, State<"spacePositionCached", Vector> cachedPosition,
    State<"spaceScaleCached", Vector> cachedScale, State<"spaceRotationCached", Vector> cachedRotation,
    State<"spaceRotationOrderCached", Id> cachedOrder, State<"pivotCached", Vector> cachedPivot)
{
    CopyContext(*result, *context);
    if (!enabled)
        return;

    if (*position != *cachedPosition || *scale != *cachedScale || *rotation != *cachedRotation ||
        *order != *cachedOrder || *pivot != *cachedPivot)
    {
        pdata = Placement3dData(position, scale, rotation, RotationOrderOf(order), pivot);
        cachedPosition = *position;
        cachedScale = *scale;
        cachedRotation = *rotation;
        cachedOrder = *order;
        cachedPivot = *pivot;
    }

    result->uvw = pdata->Map(context->uvw);
    result->uvwPlusDeltaU = pdata->Map(context->uvwPlusDeltaU);
    result->uvwPlusDeltaV = pdata->Map(context->uvwPlusDeltaV);
}

static constexpr UInt32 kStateOrder[] = {0, 1, 2, 3, 5, 4}; // the order of rotation last

VELTO_CORE_NODE("net.velto.render.corenode.placement3d", Placement3d, .stateOrder = kStateOrder);

} // namespace velto::pattern
