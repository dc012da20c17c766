// The arithmetic of the blend modes; docs/blend-modes.md has it in one table.
#include "blend.h"

#include "host/registry/registry.h"
#include "host/system/shipped.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <deque>
#include <stdexcept>
#include <string>

namespace velto::host
{

namespace
{

// --- Separable modes: one channel, `b` of the backdrop and `s` of the source. ---

Float Add(Float b, Float s)
{
    return b + s;
}

Float Average(Float b, Float s)
{
    return (b + s) * 0.5;
}

Float ColorBurn(Float b, Float s)
{
    if (b >= 1.0)
        return 1.0;
    return s <= 0.0 ? 0.0 : 1.0 - Min((1.0 - b) / s, 1.0);
}

Float ColorDodge(Float b, Float s)
{
    if (b <= 0.0)
        return 0.0;
    return s >= 1.0 ? 1.0 : Min(b / (1.0 - s), 1.0);
}

Float Darken(Float b, Float s)
{
    return Min(b, s);
}

Float Difference(Float b, Float s)
{
    return std::abs(b - s);
}

Float Divide(Float b, Float s)
{
    if (s == 0.0)
        return b > 0.0 ? 1.0 : 0.0;
    return b / s;
}

Float Exclusion(Float b, Float s)
{
    return b + s - 2.0 * b * s;
}

// The four quadratic modes are one curve with its arguments exchanged and inverted.
Float Reflect(Float b, Float s)
{
    return s >= 1.0 ? 1.0 : Min(b * b / (1.0 - s), 1.0);
}

Float Glow(Float b, Float s)
{
    return Reflect(s, b);
}

Float Freeze(Float b, Float s)
{
    return s <= 0.0 ? 0.0 : Max(1.0 - (1.0 - b) * (1.0 - b) / s, 0.0);
}

Float Heat(Float b, Float s)
{
    return Freeze(s, b);
}

Float Multiply(Float b, Float s)
{
    return b * s;
}

Float Screen(Float b, Float s)
{
    return b + s - b * s;
}

Float HardLight(Float b, Float s)
{
    return s <= 0.5 ? Multiply(b, 2.0 * s) : Screen(b, 2.0 * s - 1.0);
}

Float Overlay(Float b, Float s)
{
    return HardLight(s, b);
}

Float HardMix(Float b, Float s)
{
    return b + s >= 1.0 ? 1.0 : 0.0;
}

Float Hypot(Float b, Float s)
{
    return std::sqrt(b * b + s * s);
}

Float Levr(Float b, Float s)
{
    return Clamp01((b - 0.5) * (2.0 * s) + 0.5);
}

Float Lighten(Float b, Float s)
{
    return Max(b, s);
}

Float LinearBurn(Float b, Float s)
{
    return Max(b + s - 1.0, 0.0);
}

Float LinearDodge(Float b, Float s)
{
    return Min(b + s, 1.0);
}

Float PinLight(Float b, Float s)
{
    return s <= 0.5 ? Min(b, 2.0 * s) : Max(b, 2.0 * s - 1.0);
}

Float SoftLight(Float b, Float s)
{
    if (s <= 0.5)
        return b - (1.0 - 2.0 * s) * b * (1.0 - b);
    const Float d = b <= 0.25 ? ((16.0 * b - 12.0) * b + 4.0) * b : std::sqrt(b);
    return b + (2.0 * s - 1.0) * (d - b);
}

Float Stamp(Float b, Float s)
{
    return Clamp01(b + 2.0 * s - 1.0);
}

Float Subtract(Float b, Float s)
{
    return Max(b - s, 0.0);
}

Float VividLight(Float b, Float s)
{
    return s <= 0.5 ? ColorBurn(b, 2.0 * s) : ColorDodge(b, 2.0 * s - 1.0);
}

// --- Modes of the whole colour, after the Compositing and Blending specification of the W3C. ---

Float Luminosity(const Color& c)
{
    return 0.3 * c.r + 0.59 * c.g + 0.11 * c.b;
}

Float Largest(const Color& c)
{
    return Max(Max(c.r, c.g), c.b);
}

Float Smallest(const Color& c)
{
    return Min(Min(c.r, c.g), c.b);
}

template <class F>
Color PerChannel(const Color& c, F f)
{
    return {f(c.r), f(c.g), f(c.b)};
}

// The colour moved to the luminosity `l`, and drawn towards that grey as far as it leaves the range 0 to 1.
Color WithLuminosity(const Color& colour, Float l)
{
    const Float d = l - Luminosity(colour);
    Color c = PerChannel(colour, [d](Float x) { return x + d; });
    const Float most = Largest(c);
    // A grey out of range has no colour in range: for such a backdrop only the side that can be held is held.
    if (const Float least = Smallest(c); least < 0.0 && least < l)
        c = PerChannel(c, [=](Float x) { return l + (x - l) * Max(l, 0.0) / (l - least); });
    if (most > 1.0 && most > l)
        c = PerChannel(c, [=](Float x) { return l + (x - l) * Max(1.0 - l, 0.0) / (most - l); });
    return c;
}

Float Saturation(const Color& c)
{
    return Largest(c) - Smallest(c);
}

Color WithSaturation(const Color& c, Float s)
{
    const Float least = Smallest(c);
    const Float range = Largest(c) - least;
    if (!(range > 0.0))
        return {};
    return PerChannel(c, [=](Float x) { return (x - least) * s / range; });
}

Color BlendColor(const Color& b, const Color& s)
{
    return WithLuminosity(s, Luminosity(b));
}

Color BlendHue(const Color& b, const Color& s)
{
    return WithLuminosity(WithSaturation(s, Saturation(b)), Luminosity(b));
}

Color BlendSaturation(const Color& b, const Color& s)
{
    return WithLuminosity(WithSaturation(b, Saturation(s)), Luminosity(b));
}

Color BlendLuminance(const Color& b, const Color& s)
{
    return WithLuminosity(b, Luminosity(s));
}

Color Darker(const Color& b, const Color& s)
{
    return Luminosity(s) < Luminosity(b) ? s : b;
}

Color Lighter(const Color& b, const Color& s)
{
    return Luminosity(s) > Luminosity(b) ? s : b;
}

template <Float (*F)(Float, Float)>
Color Separable(const Color& b, const Color& s)
{
    return {F(b.r, s.r), F(b.g, s.g), F(b.b, s.b)};
}

// --- From a mode to a pixel. Colours are not multiplied by their alpha. ---

Color RgbOf(const ColorA& c)
{
    return {c.r, c.g, c.b};
}

// Source-over of a source of alpha `alpha`, with the blended colour where it and the backdrop overlap.
template <Color (*Mode)(const Color&, const Color&)>
ColorA Composite(const ColorA& b, const ColorA& s, Float opacity)
{
    const Float alpha = s.a * opacity;
    if (alpha == 0.0)
        return b;
    if (b.a == 0.0)
        return {s.r, s.g, s.b, alpha};
    const Color mixed = Mode(RgbOf(b), RgbOf(s));
    if (b.a == 1.0 && alpha == 1.0)
        return {mixed.r, mixed.g, mixed.b, 1.0};
    const Float total = b.a + alpha * (1.0 - b.a);
    if (total == 0.0)
        return {b.r, b.g, b.b, 0.0};
    const auto channel = [&](Float cb, Float cs, Float cm) {
        return ((1.0 - alpha) * b.a * cb + alpha * (1.0 - b.a) * cs + alpha * b.a * cm) / total;
    };
    return {channel(b.r, s.r, mixed.r), channel(b.g, s.g, mixed.g), channel(b.b, s.b, mixed.b), total};
}

template <Float (*F)(Float, Float)>
constexpr auto* kSeparable = &Composite<&Separable<F>>;

Color Source(const Color&, const Color& s)
{
    return s;
}

// Porter and Duff's "source xor destination".
ColorA Xor(const ColorA& b, const ColorA& s, Float opacity)
{
    const Float alpha = s.a * opacity;
    const Float ofSource = alpha * (1.0 - b.a);
    const Float ofBackdrop = b.a * (1.0 - alpha);
    const Float total = ofSource + ofBackdrop;
    if (total == 0.0)
        return {b.r, b.g, b.b, 0.0};
    const auto channel = [&](Float cb, Float cs) { return (ofBackdrop * cb + ofSource * cs) / total; };
    return {channel(b.r, s.r), channel(b.g, s.g), channel(b.b, s.b), total};
}

// What is in the folder has been blended over the backdrop already: it takes the backdrop's place, alpha and all.
ColorA PassFolder(const ColorA& b, const ColorA& s, Float opacity)
{
    return opacity == 1.0 ? s : Mix(b, s, opacity);
}

ColorA ApplyAlpha(const ColorA& b, const ColorA& s, Float opacity)
{
    return {b.r, b.g, b.b, b.a * (1.0 + (s.a - 1.0) * opacity)};
}

// A number in [0, 1) that depends on the values of both pixels, and on nothing else: a pixel looks the same whenever
// and wherever it is blended.
Float Threshold(const ColorA& b, const ColorA& s)
{
    UInt hash = 0x9E3779B97F4A7C15;
    for (const Float x : {b.r, b.g, b.b, b.a, s.r, s.g, s.b, s.a})
    {
        // Adding 0 makes one zero of the two. The rest is the finaliser of SplitMix64.
        hash += std::bit_cast<UInt>(x + 0.0) + 0x9E3779B97F4A7C15;
        hash = (hash ^ (hash >> 30)) * 0xBF58476D1CE4E5B9;
        hash = (hash ^ (hash >> 27)) * 0x94D049BB133111EB;
        hash ^= hash >> 31;
    }
    return static_cast<Float>(hash >> 11) * 0x1p-53;
}

ColorA Dissolve(const ColorA& b, const ColorA& s, Float opacity)
{
    return s.a * opacity > Threshold(b, s) ? ColorA{s.r, s.g, s.b, 1.0} : b;
}

constexpr BlendMode kModes[] = {
    {"add", kSeparable<Add>},
    {"applyalpha", &ApplyAlpha},
    {"average", kSeparable<Average>},
    {"color", &Composite<BlendColor>},
    {"colorburn", kSeparable<ColorBurn>},
    {"colordodge", kSeparable<ColorDodge>},
    {"darken", kSeparable<Darken>},
    {"darker", &Composite<Darker>},
    {"difference", kSeparable<Difference>},
    {"dissolve", &Dissolve},
    {"divide", kSeparable<Divide>},
    {"exclusion", kSeparable<Exclusion>},
    {"freeze", kSeparable<Freeze>},
    {"glow", kSeparable<Glow>},
    {"hardlight", kSeparable<HardLight>},
    {"hardmix", kSeparable<HardMix>},
    {"heat", kSeparable<Heat>},
    {"hue", &Composite<BlendHue>},
    {"hypot", kSeparable<Hypot>},
    {"levr", kSeparable<Levr>},
    {"lighten", kSeparable<Lighten>},
    {"lighter", &Composite<Lighter>},
    {"linearburn", kSeparable<LinearBurn>},
    {"lineardodge", kSeparable<LinearDodge>},
    {"luminance", &Composite<BlendLuminance>},
    {"multiply", kSeparable<Multiply>},
    {"over", &Composite<Source>},
    {"overlay", kSeparable<Overlay>},
    {"passfolder", &PassFolder},
    {"pinlight", kSeparable<PinLight>},
    {"reflect", kSeparable<Reflect>},
    {"saturation", &Composite<BlendSaturation>},
    {"screen", kSeparable<Screen>},
    {"softlight", kSeparable<SoftLight>},
    {"stamp", kSeparable<Stamp>},
    {"subtract", kSeparable<Subtract>},
    {"vividlight", kSeparable<VividLight>},
    {"xor", &Xor},
};

static_assert(std::size(kModes) == 38);
static_assert(std::is_sorted(
    std::begin(kModes), std::end(kModes), [](const BlendMode& a, const BlendMode& b) { return a.name < b.name; }));

// --- From a mode to a class and its handlers. ---

struct ModeClass : BlendClass
{
    explicit ModeClass(const BlendMode& blendMode);
    const BlendMode* mode;
};

// What a handler keeps.
struct HandlerState
{
    Float opacity;
};

template <std::size_t Mode>
Result BlendRun(const void* state, const PixelRun& destination, const ConstPixelRun& background,
    const ConstPixelRun& foreground, Int count, UInt32)
{
    const Float opacity = static_cast<const HandlerState*>(state)->opacity;
    auto* to = static_cast<std::byte*>(destination.pixels);
    const auto* b = static_cast<const std::byte*>(background.pixels);
    const auto* s = static_cast<const std::byte*>(foreground.pixels);
    for (; count > 0; --count)
    {
        *reinterpret_cast<ColorA*>(to) =
            kModes[Mode].blend(*reinterpret_cast<const ColorA*>(b), *reinterpret_cast<const ColorA*>(s), opacity);
        to += destination.stride;
        b += background.stride;
        s += foreground.stride;
    }
    return {};
}

// A function for each mode, so that the mode is part of the loop.
constexpr auto kRuns = []<std::size_t... I>(std::index_sequence<I...>)
{
    return std::array{&BlendRun<I>...};
}
(std::make_index_sequence<std::size(kModes)>());

Result MakeHandler(const BlendClass* self, const Id& format, const PixelChannels& channels, const Id& sourceFormat,
    const PixelChannels& sourceChannels, Float opacity, BlendPixelHandler* handler)
{
    VELTO_CHECK_ARGUMENT(format == pixel_format::kRgbaF64 && channels == kColorAChannels);
    VELTO_CHECK_ARGUMENT(sourceFormat == pixel_format::kRgbaF64 && sourceChannels == kColorAChannels);
    auto* const state = New<HandlerState>(opacity);
    if (!state)
        return OutOfMemory();
    const auto mode = static_cast<std::size_t>(static_cast<const ModeClass*>(self)->mode - kModes);
    *handler = {kRuns[mode], [](void* made) { Delete(static_cast<HandlerState*>(made)); }, state};
    return {};
}

ModeClass::ModeClass(const BlendMode& blendMode) : mode(&blendMode)
{
    getBlendPixelHandler = &MakeHandler;
}

} // namespace

VELTO_SHIP_FUNCTIONS(ShippedBlends, kRuns);

std::span<const BlendMode> BlendModes()
{
    return kModes;
}

void PublishBlendClasses()
{
    // Never ends, so that the registry may end after it.
    static const auto& classes = *new std::deque<ModeClass>(std::begin(kModes), std::end(kModes));
    for (const ModeClass& blendClass : classes)
    {
        const std::string name = "net.velto.render.blendmode." + std::string(blendClass.mode->name);
        if (FindEntry(registry::kBlendModeClasses.View(), name))
            continue;
        Data value;
        Result done = value.Set(BlendClassRef::Share(&blendClass));
        if (done.IsOk())
            done = Bound<RegistryInterface>().InsertEntry(registry::kBlendModeClasses, Id::OverStatic(name), value);
        if (done.IsError())
            throw std::runtime_error(std::string(done.Message()));
    }
}

const ImagePixelBlendInterface& ImagePixelBlendService()
{
    static constexpr ImagePixelBlendInterface service{
        .GetBlendPixelHandler = {+[](const BlendClass* blendClass, const Id& format, const PixelChannels& channels,
                                      const Id& sourceFormat, const PixelChannels& sourceChannels, Float opacity,
                                      BlendPixelHandler* handler) -> Result {
            if (!blendClass)
                return NullptrError();
            return blendClass->getBlendPixelHandler(
                blendClass, format, channels, sourceFormat, sourceChannels, opacity, handler);
        }},
    };
    return service;
}

} // namespace velto::host
