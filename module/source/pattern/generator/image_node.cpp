// Shows a picture, a movie or a numbered sequence of pictures.
#include "velto/footprint.h"
#include "velto/imagesequence_cache.h"
#include "velto/message.h"
#include "velto/node.h"
#include "velto/texture.h"

#include <cmath>

namespace velto::pattern
{

VELTO_INTERNED_ID(kLinear, "linear");
VELTO_INTERNED_ID(kMip, "mip");
VELTO_INTERNED_ID(kRip, "rip");
VELTO_INTERNED_ID(kSat, "sat");
VELTO_INTERNED_ID(kBicubic, "bicubic");
VELTO_INTERNED_ID(kNone, "none");
VELTO_INTERNED_ID(kPremultipliedColorSpace, "premultipliedcolorspace");
VELTO_INTERNED_ID(kPremultiplied, "premultiplied");
VELTO_INTERNED_ID(kForce32Bit, "force32bit");
VELTO_INTERNED_ID(kRaw, "raw");
VELTO_INTERNED_ID(kLoop, "loop");
VELTO_INTERNED_ID(kPingPong, "pingpong");

static Int32 ToFilter(const InternedId& id)
{
    return id == kLinear    ? texture_filter::kLinear
           : id == kMip     ? texture_filter::kMip
           : id == kRip     ? texture_filter::kRip
           : id == kSat     ? texture_filter::kSat
           : id == kBicubic ? texture_filter::kBicubic
                            : texture_filter::kNone;
}

static Int32 ToAlpha(const InternedId& id)
{
    return id == kNone                      ? texture_alpha::kNone
           : id == kPremultipliedColorSpace ? texture_alpha::kPremultipliedColorSpace
           : id == kPremultiplied           ? texture_alpha::kPremultiplied
                                            : texture_alpha::kStraight;
}

// Truncates; a number that no integer holds becomes the nearest one that is held, NaN becomes 0.
static Int ToInt(Float value)
{
    constexpr Float kLimit = 9223372036854775808.0;
    if (value >= kLimit)
        return std::numeric_limits<Int>::max();
    if (value < -kLimit)
        return std::numeric_limits<Int>::min();
    return value == value ? static_cast<Int>(value) : 0;
}

// The number of a frame, safe from a product that falls just short of it.
static Int FrameAt(Float seconds, Float frameRate)
{
    return ToInt(seconds * frameRate + (seconds < 0.0 ? -0.001 : 0.001));
}

static Int SaturatingAdd(Int a, Int b)
{
    Int sum = 0;
    if (__builtin_add_overflow(a, b, &sum))
        return b < 0 ? std::numeric_limits<Int>::min() : std::numeric_limits<Int>::max();
    return sum;
}

// How an animation plays: which file and what time of it belong to a point in time.
struct Playback
{
    const InternedId& mode;
    Float start;
    Float end;
    Int frameStart;
    Int frameEnd;
    Float frameRate;

    static Result Show(const void* user, TimeValue clipLength, Url* url, TimeValue* time)
    {
        return static_cast<const Playback*>(user)->Select(clipLength.seconds, *url, time->seconds);
    }

private:
    Result Select(Float clipLength, Url& url, Float& time) const
    {
        const bool isSequence = frameEnd != frameStart && clipLength == 0.0;
        const Float period = isSequence ? SequenceLength() : clipLength;
        const Float position = Max((time < end ? time : end) - start, 0.0);
        if (period == 0.0)
        {
            time = 0.0;
            return {};
        }
        time = Min(period, PositionInPass(position, period));
        if (!isSequence)
            return {};
        Bool found = false;
        return SetSequenceFrame(url, Min(SaturatingAdd(frameStart, FrameAt(time, frameRate)), frameEnd), &found);
    }

    Float SequenceLength() const
    {
        if (frameRate == 0.0)
            return 0.0;
        const Float frames = static_cast<Float>(frameEnd) - static_cast<Float>(frameStart);
        return (mode == kPingPong ? frames : frames + 1.0) / frameRate;
    }

    Float PositionInPass(Float position, Float period) const
    {
        if (mode != kLoop && mode != kPingPong)
            return position;
        const Float pass = std::floor(position * (1.0 / period));
        const Float rest = position - pass * period;
        const bool runsBackwards = mode == kPingPong && std::fmod(pass, 2.0) != 0.0;
        return runsBackwards ? period - rest : rest;
    }
};

static Result LoadImage(const ShadingContext& context, const Url& url, const LayerSet& layers, bool force32Bit,
    TimeValue time, const Playback& playback, ThreadedTextureRef& front)
{
    Ref<Texture> texture;
    const FrameCallback callback{&Playback::Show, &playback};
    const Result loaded = Bound<TextureManagementInterface>().LoadTexture(
        url.Get(), context.searchPaths, force32Bit, layers.Get(), time, &callback, texture.Receive());
    if (loaded.IsError())
    {
        // From here on the default colour shows.
        VELTO_TRY(Bound<TextureInterface>().Alloc(texture.Receive()));
        if (!Path(url).empty() && context.renderMessages)
        {
            String text;
            VELTO_TRY(
                Bound<StringInterface>().Create(loaded.Message().data(), loaded.Message().size(), text.Receive()));
            VELTO_TRY(Bound<RenderMessageInterface>().AddMessage(context.renderMessages, text.Get()));
        }
    }
    const auto& fronts = Bound<ThreadedTextureInterface>();
    VELTO_TRY(fronts.Alloc(front.Receive()));
    return fronts.Init(front.Get(), texture.Get());
}

static Result Image(In<"context", ShadingContext> context, In<"url", Url> url, In<"layerSet", LayerSet> layers,
    In<"interpolation", InternedId> interpolation, In<"blur", Float> blur, In<"alpha", InternedId> alpha,
    In<"mode", InternedId> mode, In<"sampleAcrossTiles", Bool> sampleAcrossTiles,
    Connected<"movieTime", TimeValue> movieTime, In<"playbackMode", InternedId> playbackMode,
    In<"playbackStart", TimeValue> playbackStart, In<"playbackEnd", TimeValue> playbackEnd,
    In<"frameStart", Int> frameStart, In<"frameEnd", Int> frameEnd, In<"frameRate", Float> frameRate,
    In<"defaultColor", ColorA> defaultColor, Out<"result", ColorA> result, State<"texture", ThreadedTextureRef> texture,
    Used<"length", TimeValue> length, Used<"fps", Float> fps, Used<"width", Float> width, Used<"height", Float> height)
{
    if (!*texture)
    {
        const Playback playback{
            *playbackMode, playbackStart->seconds, playbackEnd->seconds, frameStart, frameEnd, frameRate};
        VELTO_TRY(LoadImage(*context, *url, *layers, *mode == kForce32Bit,
            movieTime.IsConnected() ? *movieTime : context->time, playback, *texture));
    }
    const auto& fronts = Bound<ThreadedTextureInterface>();
    if (!fronts.GetImage(texture->Get()))
    {
        result = *defaultColor;
        return {};
    }
    if (!context->uvwValid)
        result = kTransparentBlack;
    else
    {
        const Vector extent = Footprint<2>(*context);
        const bool treatsColors = *mode != kRaw && !context->filterOff;
        result = fronts.Sample(texture->Get(), context->uvw.x, context->uvw.y, extent.x + blur, extent.y + blur,
            context->tileModeU, context->tileModeV, ToFilter(interpolation), treatsColors, ToAlpha(alpha),
            sampleAcrossTiles);
    }
    if (width.IsUsed() || height.IsUsed() || fps.IsUsed() || length.IsUsed())
    {
        Int32 pixelsX = 0;
        Int32 pixelsY = 0;
        Float rate = 0.0;
        TimeValue duration;
        VELTO_TRY(fronts.GetDetails(texture->Get(), &pixelsX, &pixelsY, &rate, &duration));
        *width = pixelsX;
        *height = pixelsY;
        *fps = rate;
        *length = duration;
    }
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.image", Image);

} // namespace velto::pattern
