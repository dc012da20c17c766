#include "view.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velto::host
{

namespace
{

void FillPlane(const BakeView& view, double x, double y, ShadingContext& context)
{
    const Vector uvw{x / view.width, y / view.height, 0.0};
    const double step = 1.0 / view.supersample;
    const Vector nextU{(x + step) / view.width, uvw.y, 0.0};
    const Vector nextV{uvw.x, (y + step) / view.height, 0.0};
    context.uvw = uvw;
    context.uvwPlusDeltaU = nextU;
    context.uvwPlusDeltaV = nextV;
    context.samplePosition = uvw;
    context.samplePositionPlusDeltaU = nextU;
    context.samplePositionPlusDeltaV = nextV;
    context.geometricNormal = context.secondNormal = context.shadingNormal = {0.0, 0.0, 1.0};
    context.tangent = {1.0, 0.0, 0.0};
    context.bitangent = {0.0, 1.0, 0.0};
    context.rayDirection = context.rayDirectionPlusDeltaU = context.rayDirectionPlusDeltaV = {0.0, 0.0, -1.0};
    context.rayOrigin = {uvw.x, uvw.y, 1.0};
    context.rayOriginPlusDeltaU = {nextU.x, nextU.y, 1.0};
    context.rayOriginPlusDeltaV = {nextV.x, nextV.y, 1.0};
}

// The front of the unit sphere at a place of the picture, which shows -1 to 1 on its shorter side, y up.
bool OnSphere(const BakeView& view, double x, double y, Vector& position)
{
    const double half = 0.5 * std::min(view.width, view.height);
    position.x = (x - 0.5 * view.width) / half;
    position.y = -(y - 0.5 * view.height) / half;
    const double rest = 1.0 - position.x * position.x - position.y * position.y;
    position.z = std::sqrt(std::max(rest, 0.0));
    return rest >= 0.0;
}

// Longitude and latitude: u runs once around the y axis, v from the north pole down.
Vector SphereUv(const Vector& position)
{
    const double longitude = std::atan2(position.x, position.z);
    const double latitude = std::acos(std::clamp(position.y, -1.0, 1.0));
    return {0.5 + longitude / (2.0 * std::numbers::pi), latitude / std::numbers::pi, 0.0};
}

bool FillSphere(const BakeView& view, double x, double y, ShadingContext& context)
{
    Vector position;
    if (!OnSphere(view, x, y, position))
        return false;
    // A neighbour beyond the horizon is replaced by the one on the other side.
    const auto neighbour = [&](double dx, double dy) {
        Vector next;
        if (OnSphere(view, x + dx, y + dy, next))
            return next;
        OnSphere(view, x - dx, y - dy, next);
        return next;
    };
    const double step = 1.0 / view.supersample;
    const Vector nextU = neighbour(step, 0.0);
    const Vector nextV = neighbour(0.0, step);
    context.uvw = SphereUv(position);
    context.uvwPlusDeltaU = SphereUv(nextU);
    context.uvwPlusDeltaV = SphereUv(nextV);
    context.samplePosition = position;
    context.samplePositionPlusDeltaU = nextU;
    context.samplePositionPlusDeltaV = nextV;
    context.geometricNormal = context.secondNormal = context.shadingNormal = position;
    const double radius = std::sqrt(position.x * position.x + position.z * position.z);
    context.tangent = radius > 0.0 ? Vector{position.z / radius, 0.0, -position.x / radius} : Vector{1.0, 0.0, 0.0};
    // Up the meridian, against v, as on the plane whose pictures are seen with y up.
    const Vector& t = context.tangent;
    context.bitangent = {
        position.y * t.z - position.z * t.y, position.z * t.x - position.x * t.z, position.x * t.y - position.y * t.x};
    context.rayDirection = context.rayDirectionPlusDeltaU = context.rayDirectionPlusDeltaV = {0.0, 0.0, -1.0};
    context.rayOrigin = {position.x, position.y, 2.0};
    context.rayOriginPlusDeltaU = {nextU.x, nextU.y, 2.0};
    context.rayOriginPlusDeltaV = {nextV.x, nextV.y, 2.0};
    return true;
}

} // namespace

bool FillContext(const BakeView& view, double x, double y, ShadingContext& context)
{
    const double left = std::floor(x);
    const double top = std::floor(y);
    context.pixel[0] = static_cast<Int>(left);
    context.pixel[1] = static_cast<Int>(top);
    context.subpixel = {x - left, y - top};
    context.uvwValid = true;
    if (view.shape == BakeShape::Sphere)
        return FillSphere(view, x, y, context);
    FillPlane(view, x, y, context);
    return true;
}

} // namespace velto::host
