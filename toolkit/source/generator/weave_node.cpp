// Threads that pass over and under each other.
#include "pulse.h"
#include "velto/footprint.h"
#include "velto/node.h"

#include <cmath>

namespace velto::toolkit
{

VELTO_INTERNED_ID(kTwill, "twill");
VELTO_INTERNED_ID(kBasket, "basket");
VELTO_INTERNED_ID(kSatin, "satin");

// A bond: where the warp lies on top, in a square of crossings that repeats.
struct Bond
{
    Int repeat;
    Int step;   // by which the warp's crossings move from row to row
    Int over;   // crossings in a row of the repeat with the warp on top
    Int bundle; // threads that go together

    bool IsWarpOnTop(Int warp, Int weft) const
    {
        const Int column = warp / bundle;
        const Int row = weft / bundle;
        return (column + (repeat - step) * row) % repeat < over;
    }
};

static Bond BondOf(const InternedId& name)
{
    if (name == kTwill)
        return {4, 1, 2, 1};
    if (name == kBasket)
        return {2, 1, 1, 2};
    if (name == kSatin)
        return {5, 2, 4, 1};
    return {2, 1, 1, 1};
}

// Whole repeats, so that the cloth tiles.
static Int ThreadCount(Int wanted, const Bond& bond)
{
    const Int repeat = bond.repeat * bond.bundle;
    return (CellCount(wanted) + repeat - 1) / repeat * repeat;
}

// One direction of threads at the sample.
struct Thread
{
    Int number;
    Float place; // across it, from its cell's border
    Float width; // of the footprint, in cells
    Int count;

    Thread(Float at, Float footprint, Int threads)
        : number(WrappedCell(Floor(at * static_cast<Float>(threads)), threads)),
          place(at * static_cast<Float>(threads) - Floor(at * static_cast<Float>(threads))),
          width(footprint * static_cast<Float>(threads)), count(threads)
    {
    }
};

// The height of a thread: round across, and waving along from crossing to crossing.
static Float ThreadHeight(const Thread& across, const Thread& along, Float bar, Float here, Float next)
{
    const Float x = bar > 0.0 ? (across.place - 0.5) / (0.5 * bar) : 1.0;
    const Float roundness = std::sqrt(Max(0.0, 1.0 - x * x));
    const Float t = SmoothRise(std::abs(along.place - 0.5));
    return 0.5 * roundness + 0.5 * (here + (next - here) * t);
}

static void Weave(In<"context", ShadingContext>, In<"contextLocal", ShadingContext> local,
    In<"warpColor", ColorA> warpColor, In<"weftColor", ColorA> weftColor, In<"gapColor", ColorA> gapColor,
    In<"warps", Int> warps, In<"wefts", Int> wefts, In<"bond", InternedId> bondName, In<"thickness", Float> thickness,
    Out<"result", ColorA> result, Out<"height", Float> height, Out<"mask", Float> mask, Out<"warp", Float> warpShare,
    Out<"index", Int> index)
{
    if (!local->uvwValid)
    {
        result = kTransparentBlack;
        height = 0.0;
        mask = 0.0;
        warpShare = 0.0;
        index = 0;
        return;
    }
    const Bond bond = BondOf(*bondName);
    const Vector footprint = Footprint<2>(*local);
    // Warp threads stand side by side along U and run along V.
    const Thread warp(local->uvw.x, footprint.x, ThreadCount(warps, bond));
    const Thread weft(local->uvw.y, footprint.y, ThreadCount(wefts, bond));
    const Float bar = Clamp01(thickness);
    const Float warpCover = PulseCoverage(warp.place, warp.width, bar);
    const Float weftCover = PulseCoverage(weft.place, weft.width, bar);
    const bool isWarpOnTop = bond.IsWarpOnTop(warp.number, weft.number);

    // The crossing to which the sample is next, along each thread.
    const auto beside = [](const Thread& thread) {
        const Int step = thread.place < 0.5 ? thread.count - 1 : 1;
        return (thread.number + step) % thread.count;
    };
    const auto top = [&](Int warpNumber, Int weftNumber) {
        return bond.IsWarpOnTop(warpNumber, weftNumber) ? 1.0 : 0.0;
    };
    const Float here = isWarpOnTop ? 1.0 : 0.0;
    const Float warpHeight = ThreadHeight(warp, weft, bar, here, top(warp.number, beside(weft)));
    const Float weftHeight = ThreadHeight(weft, warp, bar, 1.0 - here, 1.0 - top(beside(warp), weft.number));

    const Float over = isWarpOnTop ? warpCover : weftCover;
    const Float under = (isWarpOnTop ? weftCover : warpCover) * (1.0 - over);
    const Float share = isWarpOnTop ? over : under;
    // A sample that covers crossings sees the bond's mean.
    const Float clarity = Clarity(Max(warp.width, weft.width));
    const Float gaps = (1.0 - bar) * (1.0 - bar);
    const Float alone = bar * (1.0 - bar);
    const Float meanWarp = alone + bar * bar * static_cast<Float>(bond.over) / static_cast<Float>(bond.repeat);
    const Float seenWarp = meanWarp + (share - meanWarp) * clarity;
    const Float seenThread = (1.0 - gaps) + (over + under - (1.0 - gaps)) * clarity;
    const Float seenHeight = Max(warpCover * warpHeight, weftCover * weftHeight);

    const Float ofThreads = seenThread > 0.0 ? Clamp01(seenWarp / seenThread) : 0.0;
    result = Mix(*gapColor, Mix(*weftColor, *warpColor, ofThreads), seenThread);
    height = 0.5 + (seenHeight - 0.5) * clarity;
    mask = seenThread;
    warpShare = seenWarp;
    const bool isWarp = isWarpOnTop ? warpCover >= 0.5 || weftCover < 0.5 : weftCover < 0.5 && warpCover >= 0.5;
    index = isWarp ? warp.number : warp.count + weft.number;
}

VELTO_CORE_NODE("net.velto.toolkit.corenode.generator.weave", Weave);

} // namespace velto::toolkit
