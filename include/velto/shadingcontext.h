// What a renderer knows of one sample: the value that travels along context wires.
#pragma once

#include "velto/array.h"
#include "velto/url.h"

#include <limits>

namespace velto
{

struct RenderMessages;

// The directories in which relative file names are looked for, in order.
using SearchPathsType = BaseArray<Url>;

// What a pattern does outside of 0 to 1.
enum TileMode : std::uint8_t
{
    kTileNone,
    kTileClamp,
    kTileRepeat,
    kTileMirror,
};

// Nodes copy it whole and change the copy. Fields named `own...` are the render framework's and are carried along.
struct ShadingContext
{
    UInt own0[4] = {};
    // The surface point, and its neighbours along screen x and y.
    Vector samplePosition;
    Vector samplePositionPlusDeltaU;
    Vector samplePositionPlusDeltaV;
    UInt own1[6] = {};
    Vector geometricNormal;
    Vector secondNormal;
    Vector shadingNormal; // unit length
    UInt own2[2] = {};
    // Texture coordinate, and those of the two neighbours: places, not differences.
    Vector uvw;
    Vector uvwPlusDeltaU;
    Vector uvwPlusDeltaV;
    UInt own3[3] = {};
    Vector tangent;
    Vector bitangent;
    Bool uvwValid = false; // false: generators give their empty result
    std::uint8_t spare = 0;
    std::uint8_t tileModeU = kTileNone; // a TileMode
    std::uint8_t tileModeV = kTileNone;
    std::uint8_t own4[4] = {};
    UInt own5[2] = {};
    Int pixel[2] = {};
    Vector2d subpixel;
    TimeValue time;
    Float frameRate = 0.0; // frames a second
    Vector rayOrigin;
    Vector rayDirection;
    UInt own6 = 0;
    Float own7 = std::numeric_limits<Float>::max();
    UInt own8 = 0;
    Int32 own9 = -1;
    Int32 own10 = 0;
    // The rays of the neighbours.
    Vector rayOriginPlusDeltaU;
    Vector rayOriginPlusDeltaV;
    Vector rayDirectionPlusDeltaU;
    Vector rayDirectionPlusDeltaV;
    Float own11[5] = {1.0, 1.0, 1.0, 1.0, 1.0};
    std::uint8_t own12[8] = {1, 0, 1};
    Int own13[3] = {-1, -1, -1};
    UInt own14[2] = {};
    Bool filterOff = false; // colour treatment of pictures is off
    std::uint8_t own15[7] = {};
    UInt own16[2] = {};
    const SearchPathsType* searchPaths = nullptr;
    RenderMessages* renderMessages = nullptr; // null: nobody listens
};

static_assert(sizeof(ShadingContext) == 760);
static_assert(offsetof(ShadingContext, samplePosition) == 32);
static_assert(offsetof(ShadingContext, geometricNormal) == 152);
static_assert(offsetof(ShadingContext, shadingNormal) == 200);
static_assert(offsetof(ShadingContext, uvw) == 240);
static_assert(offsetof(ShadingContext, tangent) == 336);
static_assert(offsetof(ShadingContext, uvwValid) == 384);
static_assert(offsetof(ShadingContext, tileModeU) == 386);
static_assert(offsetof(ShadingContext, pixel) == 408);
static_assert(offsetof(ShadingContext, time) == 440);
static_assert(offsetof(ShadingContext, rayOrigin) == 456);
static_assert(offsetof(ShadingContext, own7) == 512);
static_assert(offsetof(ShadingContext, rayOriginPlusDeltaU) == 536);
static_assert(offsetof(ShadingContext, own12) == 672);
static_assert(offsetof(ShadingContext, filterOff) == 720);
static_assert(offsetof(ShadingContext, searchPaths) == 744);
static_assert(offsetof(ShadingContext, renderMessages) == 752);

// Copies a whole context. The size is hidden from the compiler, which would else spell the copy out as one slow `rep
// movs` where the library's copy uses the widest registers that the processor has.
inline void CopyContext(ShadingContext& to, const ShadingContext& from)
{
    std::size_t size = sizeof(ShadingContext);
#ifndef VELTO_BITCODE // where nothing is left of the copy
    asm("" : "+r"(size));
#endif
    std::memcpy(static_cast<void*>(&to), &from, size);
}

// A context of one's own to change. It begins as a copy, and is not made twice.
class ContextCopy
{
public:
    explicit ContextCopy(const ShadingContext& from) { CopyContext(context_, from); }
    ContextCopy(const ContextCopy&) = delete;
    ContextCopy& operator=(const ContextCopy&) = delete;

    ShadingContext& operator*() { return context_; }
    ShadingContext* operator->() { return &context_; }

private:
    union
    {
        ShadingContext context_;
    };
};

} // namespace velto
