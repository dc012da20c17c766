// Moves, scales, rotates and tiles the texture coordinate of everything behind it.
#include "velto/node.h"

#include <cmath>

namespace velto::pattern
{

// Texture space to tiles, as an affine map.
struct Placement2dData
{
    Vector2d translation;
    Vector2d axisU{1.0, 0.0};
    Vector2d axisV{0.0, 1.0};
    Vector2d invRepetitions; // 0 where there are no repetitions
    Bool computed = false;

    Placement2dData() = default;
    Placement2dData(Vector2d offset, Vector2d length, Vector2d pivot, Float rotation, Vector2d repetitions);

    Vector2d Map(const Vector& uvw) const
    {
        return {translation.x + axisU.x * uvw.x + axisV.x * uvw.y, translation.y + axisU.y * uvw.x + axisV.y * uvw.y};
    }
};

static Float InverseOrZero(Float x)
{
    return x == 0.0 ? 0.0 : 1.0 / x;
}

Placement2dData::Placement2dData(Vector2d offset, Vector2d length, Vector2d pivot, Float rotation, Vector2d repetitions)
{
    const Float c = std::cos(rotation);
    const Float s = std::sin(rotation);
    // Columns of rotation times scale.
    const Vector2d m0{length.x * c, length.x * s};
    const Vector2d m1{-length.y * s, length.y * c};
    const Float determinant = m0.x * m1.y - m1.x * m0.y;
    Vector2d a0{1.0, 0.0};
    Vector2d a1{0.0, 1.0};
    Vector2d t;
    if (determinant != 0.0)
    {
        a0 = {m1.y / determinant, -m0.y / determinant};
        a1 = {-m1.x / determinant, m0.x / determinant};
        t = {-(a0.x * offset.x + a1.x * offset.y), -(a0.y * offset.x + a1.y * offset.y)};
    }
    t = {t.x - (a0.x * pivot.x + a1.x * pivot.y) + pivot.x, t.y - (a0.y * pivot.x + a1.y * pivot.y) + pivot.y};

    translation = {t.x * repetitions.x, t.y * repetitions.y};
    axisU = {a0.x * repetitions.x, a0.y * repetitions.y};
    axisV = {a1.x * repetitions.x, a1.y * repetitions.y};
    invRepetitions = {InverseOrZero(repetitions.x), InverseOrZero(repetitions.y)};
    computed = true;
}

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::Placement2dData, "net.velto.render.datatype.placement2ddata");

namespace velto::pattern
{

VELTO_PUBLISH_DATA_TYPE(Placement2dData);

VELTO_INTERNED_ID(kClamp, "clamp");
VELTO_INTERNED_ID(kRepeat, "repeat");
VELTO_INTERNED_ID(kMirror, "mirror");

static TileMode ToTileMode(const InternedId& id)
{
    return id == kClamp ? kTileClamp : id == kRepeat ? kTileRepeat : id == kMirror ? kTileMirror : kTileNone;
}

// Brings one axis into its tile, the neighbours by the tile index of the centre, so that a footprint does not jump at a
// border.
class Wrap
{
public:
    Wrap(TileMode mode, Float repetitions, Float centre) : mode_(mode), repetitions_(repetitions)
    {
        if (mode == kTileRepeat || mode == kTileMirror)
        {
            floor_ = std::floor(centre);
            tile_ = std::abs(floor_) < kLimit ? floor_ : Saturated(floor_);
            runsBackwards_ = mode == kTileMirror && IsOdd(tile_);
        }
    }

    Float Centre(Float y) const { return Place(y, floor_); }
    Float Neighbour(Float y) const { return Place(y, tile_); }

private:
    static constexpr Float kLimit = 9223372036854775808.0;

    // The index of a tile is a 64-bit integer that saturates, 0 for a NaN. The upper limit is odd, the lower even.
    static Float Saturated(Float whole) { return whole > 0.0 ? kLimit : whole < 0.0 ? -kLimit : 0.0; }
    static bool IsOdd(Float tile) { return tile == kLimit || (static_cast<Int>(tile) & 1) != 0; }

    Float Place(Float y, Float tile) const
    {
        switch (mode_)
        {
        case kTileClamp:
            return repetitions_ >= 0.0 ? Min(Max(y, 0.0), repetitions_) : Min(Max(y, repetitions_), 0.0);
        case kTileRepeat:
        case kTileMirror:
            y -= tile;
            return runsBackwards_ ? 1.0 - y : y;
        case kTileNone:
            break;
        }
        return y;
    }

    TileMode mode_;
    bool runsBackwards_ = false;
    Float repetitions_;
    Float floor_ = 0.0;
    Float tile_ = 0.0;
};

static bool IsOnArea(Bool decal, Float position)
{
    return !decal || (position >= 0.0 && position <= 1.0);
}

static TileMode TileModeOf(TileMode mode, Bool decal, Float repetitions)
{
    // Samplers clamp at the border of a decal of one tile.
    return decal && std::abs(repetitions) <= 1.0 ? kTileClamp : mode;
}

// Settles the common case without a branch a component. What has the same bits and is not equal, a NaN, would give the
// same record again.
template <class T>
static bool AreSameBits(const T& a, const T& b)
{
    UInt bits[2][sizeof(T) / sizeof(UInt)];
    std::memcpy(bits[0], &a, sizeof(T));
    std::memcpy(bits[1], &b, sizeof(T));
    UInt difference = 0;
    for (std::size_t i = 0; i < std::size(bits[0]); ++i)
        difference |= bits[0][i] ^ bits[1][i];
    return difference == 0;
}

static void Placement2d(In<"context", ShadingContext> context, In<"localOffset", Vector2d> offset,
    In<"localLength", Vector2d> length, In<"localPivot", Vector2d> pivot, In<"localRotation", Float> rotation,
    In<"localRepetitions", Vector2d> repetitions, In<"localDecalU", Bool> decalU, In<"localDecalV", Bool> decalV,
    In<"localModeU", InternedId> modeU, In<"localModeV", InternedId> modeV, Out<"result", ShadingContext> result,
    State<"pdata", Placement2dData> pdata, State<"localOffsetCached", Vector2d> cachedOffset,
    State<"localLengthCached", Vector2d> cachedLength, State<"localPivotCached", Vector2d> cachedPivot,
    State<"localRotationCached", Float> cachedRotation, State<"localRepetitionsCached", Vector2d> cachedRepetitions)
{
    const TileMode tileModeU = ToTileMode(*modeU);
    const TileMode tileModeV = ToTileMode(*modeV);

    const bool isUnchanged = AreSameBits(*offset, *cachedOffset) & AreSameBits(*length, *cachedLength) &
                             AreSameBits(*pivot, *cachedPivot) & AreSameBits(*rotation, *cachedRotation) &
                             AreSameBits(*repetitions, *cachedRepetitions);
    if (!isUnchanged && (*offset != *cachedOffset || *length != *cachedLength || *pivot != *cachedPivot ||
                            *rotation != *cachedRotation || *repetitions != *cachedRepetitions))
    {
        pdata = Placement2dData(*offset, *length, *pivot, *rotation, *repetitions);
        cachedOffset = *offset;
        cachedLength = *length;
        cachedPivot = *pivot;
        cachedRotation = *rotation;
        cachedRepetitions = *repetitions;
    }

    const Vector uvw = context->uvw;
    const Vector nextU = context->uvwPlusDeltaU;
    const Vector nextV = context->uvwPlusDeltaV;
    const bool hasDeltas = nextU != uvw || nextV != uvw;

    const Vector2d y = pdata->Map(uvw);
    const bool inside =
        IsOnArea(*decalU, y.x * pdata->invRepetitions.x) && IsOnArea(*decalV, y.y * pdata->invRepetitions.y);

    const Wrap wrapU(tileModeU, repetitions->x, y.x);
    const Wrap wrapV(tileModeV, repetitions->y, y.y);
    const auto place = [&](const Vector2d& tiles) {
        return Vector2d{wrapU.Neighbour(tiles.x), wrapV.Neighbour(tiles.y)};
    };
    const bool hasFootprint = hasDeltas && inside;
    const Vector2d centre{wrapU.Centre(y.x), wrapV.Centre(y.y)};
    const Vector2d placedU = hasFootprint ? place(pdata->Map(nextU)) : centre;
    const Vector2d placedV = hasFootprint ? place(pdata->Map(nextV)) : centre;

    // After the arithmetic: by now what the caller wrote into the context has reached memory, and can be copied at full
    // width.
    CopyContext(*result, *context);
    const auto write = [](Vector& to, const Vector2d& from) {
        to.x = from.x;
        to.y = from.y;
        to.z = 0.0;
    };
    result->uvwValid = inside;
    write(result->uvw, centre);
    write(result->uvwPlusDeltaU, placedU);
    write(result->uvwPlusDeltaV, placedV);
    result->tileModeU = TileModeOf(tileModeU, *decalU, repetitions->x);
    result->tileModeV = TileModeOf(tileModeV, *decalV, repetitions->y);
}

VELTO_CORE_NODE("net.velto.render.corenode.placement2d", Placement2d);

} // namespace velto::pattern
