// Blend classes: the pixel arithmetic of a blend mode, found by its name.
#pragma once

#include "velto/datatype.h"

namespace velto
{

namespace pixel_format
{
// Four 64-bit floats a pixel, red, green, blue and alpha: a `ColorA`.
inline constexpr Id kRgbaF64{"net.velto.image.pixelformat.rgba.f64"};
} // namespace pixel_format

// Where the channels of a pixel lie.
struct PixelChannels
{
    UInt32 count = 0;
    UInt32 offsets[4] = {}; // in bytes: red, green, blue, alpha
    friend constexpr bool operator==(const PixelChannels&, const PixelChannels&) = default;
};

inline constexpr PixelChannels kColorAChannels{
    4, {offsetof(ColorA, r), offsetof(ColorA, g), offsetof(ColorA, b), offsetof(ColorA, a)}};

// Pixels one after another; `stride` in bytes, 0 for a single one.
struct PixelRun
{
    void* pixels = nullptr;
    UInt stride = 0;
};

struct ConstPixelRun
{
    const void* pixels = nullptr;
    UInt stride = 0;
};

// What a blend class makes for a pair of formats: two callables.
struct BlendPixelHandler
{
    // [any thread; sampling] Blends `count` pixels of `foreground` over those of `background` into `destination`, which
    // may be the run of either. `flags` is 0.
    Result (*blend)(const void* state, const PixelRun& destination, const ConstPixelRun& background,
        const ConstPixelRun& foreground, Int count, UInt32 flags) = nullptr;
    // [any thread] Ends `state`; called once, after the last blending.
    void (*release)(void* state) = nullptr;
    void* state = nullptr;
};

// A handler that several hold.
struct BlendPixelHandlerRecord : Object
{
    ~BlendPixelHandlerRecord()
    {
        if (handler.release)
            handler.release(handler.state);
    }

    BlendPixelHandler handler;
};

using BlendPixelHandlerRef = Ref<BlendPixelHandlerRecord>;

// What the registry of blend classes holds under the id of a mode.
struct BlendClass : Object
{
    // As `ImagePixelBlendInterface::GetBlendPixelHandler`.
    Result (*getBlendPixelHandler)(const BlendClass* self, const Id& format, const PixelChannels& channels,
        const Id& sourceFormat, const PixelChannels& sourceChannels, Float opacity,
        BlendPixelHandler* handler) = nullptr;
};

using BlendClassRef = Ref<const BlendClass>;

struct ImagePixelBlendInterface
{
    static constexpr Id kId{"net.velto.image.interface.imagepixelblend"};
    static constexpr Id kFramework{"net.velto.image.framework"};

    // [any thread] Fills `handler` for a destination and sources of these formats; the caller owes its release. The
    // foreground takes part to the share `opacity`. Illegal argument for a format that the class does not know, out of
    // memory; `handler` is then left alone. No class: nullptr.
    VELTO_METHOD(GetBlendPixelHandler,
        Result(const BlendClass* blendClass, const Id& format, const PixelChannels& channels, const Id& sourceFormat,
            const PixelChannels& sourceChannels, Float opacity, BlendPixelHandler* handler));
};
VELTO_USED_BY_INCLUDERS("velto/imagepixelblend.h", ImagePixelBlendInterface);

} // namespace velto

VELTO_HOST_DATA_TYPE(velto::BlendPixelHandlerRef, "net.velto.datatype.blendpixelhandlerref");
VELTO_HOST_DATA_TYPE(velto::BlendClassRef, "net.velto.image.datatype.blendclassref");
