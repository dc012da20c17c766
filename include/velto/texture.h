// Pictures from files, and their colours by coordinate.
#pragma once

#include "velto/data.h"
#include "velto/porttypes.h"
#include "velto/shadingcontext.h"
#include "velto/string.h"

namespace velto
{

// Which layer of a file is read: the name of a part, or of a group of channels (`diffuse` for `diffuse.R` and so on),
// or the number of a part. Without a name it is the file's main picture.
struct LayerSetObject : Object
{
    String name;

    static Bool Equal(const Ref<LayerSetObject>& a, const Ref<LayerSetObject>& b)
    {
        return a && b && a->name == b->name;
    }
};

using LayerSet = Ref<LayerSetObject>;

// A picture, or none.
struct Texture : Object
{
};

// A sampling front of a texture for one instance of a graph.
struct ThreadedTexture : Object
{
};

using ThreadedTextureRef = Ref<ThreadedTexture>;

struct Picture;

// Asked which file to show, and what time of it. Gets the length of the clip that was found in the file (0: none), and
// the file and the time to change.
struct FrameCallback
{
    Result (*function)(const void* user, TimeValue clipLength, Url* url, TimeValue* time) = nullptr;
    const void* user = nullptr;
};

struct TextureManagementInterface
{
    static constexpr Id kId{"net.velto.render.interface.texturemanagement"};
    static constexpr Id kFramework{"net.velto.render.framework"};

    // [any thread; sampling] The picture in `url`, relative names being looked for in `searchPaths` (may be null) too.
    // `callback` runs on this thread, within the call. Pictures are decoded once and shared. The caller owns the
    // reference. Fails where there is no picture to show; the error's text names the file and the reason.
    VELTO_METHOD(LoadTexture,
        Result(const UrlObject* url, const SearchPathsType* searchPaths, Bool force32Bit, const LayerSetObject* layers,
            const TimeValue& time, const FrameCallback* callback, Texture** texture));
};
VELTO_USED_BY_INCLUDERS("velto/texture.h", TextureManagementInterface);

struct TextureInterface
{
    static constexpr Id kId{"net.velto.render.interface.texture"};
    static constexpr Id kFramework{"net.velto.render.framework"};

    // [any thread] A texture without a picture; the caller owns the reference.
    VELTO_METHOD(Alloc, Result(Texture** texture));
};
VELTO_USED_BY_INCLUDERS("velto/texture.h", TextureInterface);

// Numbers of the sampler's arguments.
namespace texture_filter
{
inline constexpr Int32 kNone = 0;    // the nearest texel
inline constexpr Int32 kLinear = 2;  // between four texels; the footprint has no effect
inline constexpr Int32 kMip = 3;     // linear, between the two levels that suit the footprint's longer side
inline constexpr Int32 kRip = 4;     // linear, several times along the longer side, the level suiting the shorter one
inline constexpr Int32 kSat = 5;     // the mean over the footprint
inline constexpr Int32 kBicubic = 6; // as mip, with a Catmull-Rom curve through sixteen texels
} // namespace texture_filter

namespace texture_alpha
{
inline constexpr Int32 kStraight = 0;                // colours are what the file holds
inline constexpr Int32 kNone = 1;                    // the same, and alpha is 1
inline constexpr Int32 kPremultipliedColorSpace = 2; // colours were multiplied by alpha as they are encoded
inline constexpr Int32 kPremultiplied = 3;           // colours were multiplied by alpha in linear light
} // namespace texture_alpha

struct ThreadedTextureInterface
{
    static constexpr Id kId{"net.velto.render.interface.threadedtexture"};
    static constexpr Id kFramework{"net.velto.render.framework"};

    // [any thread] A front that is not bound; the caller owns the reference.
    VELTO_METHOD(Alloc, Result(ThreadedTexture** front));
    // [one thread] Binds the two; the front holds the texture. Illegal argument without a texture.
    VELTO_METHOD(Init, Result(ThreadedTexture* front, Texture* texture));
    // [any thread; sampling] Borrows the picture, or null where there is none.
    VELTO_METHOD(GetImage, const Picture*(const ThreadedTexture* front));
    // [any thread; sampling] The colour at (u, v), v running downwards, of a front that holds a picture. `width` and
    // `height` are the sides of the footprint in texture coordinates; tile modes are those of a context. Beside the
    // tile lie the tile's neighbours where `acrossTiles` is set (mirrored in mode 3, none in mode 1), else its border
    // texels. The colour is straight, and where `toLinear` is set it is linear.
    VELTO_METHOD(Sample,
        ColorA(const ThreadedTexture* front, Float u, Float v, Float width, Float height, std::uint8_t tileModeU,
            std::uint8_t tileModeV, Int32 interpolation, Bool toLinear, Int32 alpha, Bool acrossTiles));
    // [any thread] Size in pixels as the file has it, frames a second and length of the animation (0: still). Illegal
    // state without a picture.
    VELTO_METHOD(GetDetails,
        Result(const ThreadedTexture* front, Int32* width, Int32* height, Float* framesPerSecond, TimeValue* length));
};
VELTO_USED_BY_INCLUDERS("velto/texture.h", ThreadedTextureInterface);

} // namespace velto

VELTO_HOST_DATA_TYPE(velto::LayerSet, "net.velto.image.datatype.layerset");
VELTO_HOST_DATA_TYPE(velto::ThreadedTextureRef, "net.velto.render.datatype.threadedtextureref");
