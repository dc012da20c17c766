// Folds the texture coordinate around a centre into one running value, so that a gradient behind it becomes a ring, a
// box, a star, a polygon or a sweep.
#include "velto/node.h"

#include <cmath>
#include <numbers>

namespace velto::pattern
{

VELTO_INTERNED_ID(kAngular, "angular");
VELTO_INTERNED_ID(kRadial, "radial");
VELTO_INTERNED_ID(kCircular, "circular");
VELTO_INTERNED_ID(kBox, "box");
VELTO_INTERNED_ID(kStar, "star");
VELTO_INTERNED_ID(kPolygon, "n_angle");

static constexpr Float kTwoPi = 2.0 * std::numbers::pi;
static constexpr Float kInverseTwoPi = 0.15915494309189535;

// Where a point lies around the centre.
struct Folded
{
    Float running = 0.0;
    Float second = 0.0;
};

class Reprojection
{
public:
    Reprojection(Float rotation, const InternedId& mode, Int corners)
        : cos_(std::cos(-rotation)), sin_(std::sin(-rotation)), mode_(mode), corners_(static_cast<Float>(corners))
    {
        if (mode == kPolygon && corners != 0)
            halfWedge_ = kTwoPi / (2.0 * corners_);
    }

    Folded Fold(const Vector& uvw) const
    {
        const Float a = cos_ * (uvw.x - 0.5) - sin_ * (uvw.y - 0.5);
        const Float b = sin_ * (uvw.x - 0.5) + cos_ * (uvw.y - 0.5);
        if (mode_ == kAngular)
            return {b + 0.5, a + 0.5};
        if (mode_ == kRadial)
            return {Turn(a, b), Distance(a, b)};
        if (mode_ == kCircular)
            return {2.0 * Distance(a, b), 0.0};
        if (mode_ == kBox)
            return {2.0 * Max(std::abs(a), std::abs(b)), 0.0};
        if (mode_ == kStar)
            return {2.0 * Distance(std::abs(a) - 0.5, std::abs(b) - 0.5), 0.0};
        if (mode_ == kPolygon)
            return Polygon(a, b);
        return {a, b};
    }

private:
    static Float Distance(Float a, Float b) { return std::sqrt(a * a + b * b); }

    // The direction as a share of a full turn.
    static Float Turn(Float a, Float b)
    {
        Float angle = std::atan2(a, b);
        if (angle < 0.0)
            angle += kTwoPi;
        return angle * kInverseTwoPi;
    }

    Folded Polygon(Float a, Float b) const
    {
        const Float turn = Turn(a, b);
        Float f = turn * corners_;
        f -= std::floor(f);
        if (f > 0.5)
            f = 1.0 - f;
        const Float apothem = std::cos(halfWedge_);
        const Float inverse = apothem == 0.0 ? 0.0 : 1.0 / apothem;
        return {2.0 * Distance(a, b) * std::cos((1.0 - 2.0 * f) * halfWedge_) * inverse, turn};
    }

    Float cos_;
    Float sin_;
    InternedId mode_;
    Float corners_;
    Float halfWedge_ = 0.0;
};

static void Reproject(In<"context", ShadingContext> context, In<"rotation", Float> rotation,
    In<"mode", InternedId> mode, In<"tile", Bool> tile, In<"mirror", Bool> mirror, In<"reverse", Bool> reverse,
    In<"corners", Int> corners, In<"repetitions", Float> repetitions, Out<"result", ShadingContext> result)
{
    CopyContext(*result, *context);
    const Reprojection reprojection(rotation, mode, corners);
    const bool runsBackwards = reverse != (*mode == kStar);
    const bool swapped = *mode == kAngular;
    // All three points by the pass of the centre, so that a footprint does not jump at a border.
    Float pass = 0.0;
    const auto place = [&](const Folded& folded) -> Vector {
        Float s = folded.running;
        if (tile)
            s = s * repetitions - pass;
        if (mirror)
        {
            s = 2.0 * s;
            if (s > 1.0)
                s = 2.0 - s;
        }
        if (runsBackwards)
            s = 1.0 - s;
        return swapped ? Vector{folded.second, s, 0.0} : Vector{s, folded.second, 0.0};
    };

    const Folded centre = reprojection.Fold(context->uvw);
    if (tile)
        pass = std::floor(centre.running * repetitions);
    const Vector uvw = place(centre);
    result->uvw = uvw;
    if (context->uvwPlusDeltaU != uvw || context->uvwPlusDeltaV != uvw)
    {
        const auto neighbour = [&](const Vector& at) {
            Folded folded = reprojection.Fold(at);
            // Across the seam of a sweep the footprint would be almost a full turn.
            if (*mode == kRadial && std::abs(folded.running - centre.running) > 0.5)
                folded.running = centre.running;
            return place(folded);
        };
        result->uvwPlusDeltaU = neighbour(context->uvwPlusDeltaU);
        result->uvwPlusDeltaV = neighbour(context->uvwPlusDeltaV);
    }
    result->uvwValid = true;
    result->tileModeU = kTileNone;
    result->tileModeV = mirror ? kTileMirror : tile ? kTileRepeat : kTileNone;
}

VELTO_CORE_NODE("net.velto.render.corenode.gradientplacement", Reproject);

} // namespace velto::pattern
