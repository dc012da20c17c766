// What a call of each colour and conversion node costs, beside the same formula in one loop.
#include "host/corenode/factory.h"
#include "host/corenode/group.h"
#include "host/registry/dictionary.h"
#include "host/registry/registry.h"
#include "host/text/interned.h"
#include "module/source/pattern/color/hsv.h"
#include "support/graph.h"
#include "velto/porttypes.h"

#include <cmath>

namespace velto::bench
{

namespace
{

constexpr const char* kPrefix = "net.velto.pattern.corenode.";

// A node with its slots, called without a graph around it.
class Node
{
public:
    explicit Node(const std::string& id, const DataDictionary& arguments = {})
    {
        // The module is loaded with the first graph.
        host::Graph graph;
        LoadGraph(R"({"version": 1, "nodes": {"n": {"type": "net.velto.pattern.corenode.strength"}},
            "outputs": {"o": "n.output"}})",
            graph);
        const Data* const entry = host::FindEntry(registry::kCoreNodes.View(), kPrefix + id);
        if (!entry || host::CreateGroup(*entry->As<CoreNodeFactory>(), arguments, group_).IsError())
            std::abort();
        const auto& access = host::AsHost(group_).access;
        frame_.resize(sizeof(FrameHead) + access.size() * sizeof(Slot));
        for (std::size_t i = 0; i < access.size(); ++i)
        {
            const DataTypeOperations& operations = access[i]->type->operations;
            offsets_.push_back(static_cast<UInt32>(sizeof(FrameHead) + i * sizeof(Slot)));
            ::new (&frame_[offsets_[i]]) Slot{std::malloc(operations.size), 0, 0};
            operations.construct(SlotOf(i).value);
            if (access[i]->name == "maskblend")
                *static_cast<Float*>(SlotOf(i).value) = 1.0;
            else if (access[i]->name.starts_with("mask"))
                *static_cast<Bool*>(SlotOf(i).value) = true;
        }
        record_ = host::AsHost(group_).record;
    }

    Slot& SlotOf(std::size_t index) { return *reinterpret_cast<Slot*>(&frame_[offsets_[index]]); }
    template <class T>
    T& Port(std::size_t index)
    {
        return *static_cast<T*>(SlotOf(index).value);
    }
    void SetId(std::size_t index, std::string_view text) { Port<InternedId>(index) = host::Intern(text); }

    Result Run() const
    {
        const Binding binding{const_cast<std::byte*>(frame_.data()), offsets_.data()};
        alignas(Result) std::byte memory[sizeof(Result)];
        auto* const result = reinterpret_cast<Result*>(memory);
        record_->compute(result, record_, &binding);
        return std::move(*result);
    }

private:
    Ref<MicroNodeGroup> group_;
    const MicroNode* record_ = nullptr;
    std::vector<UInt32> offsets_;
    std::vector<std::byte> frame_;
};

struct ByHandMask
{
    Float blend = 1.0;
    bool red = true;
    bool green = true;
    bool blue = true;
    bool alpha = true;

    ColorA operator()(const ColorA& x, const ColorA& y) const
    {
        const auto channel = [this](Float a, Float b, bool on) { return ((on ? b : a) - a) * blend + a; };
        return {channel(x.r, y.r, red), channel(x.g, y.g, green), channel(x.b, y.b, blue), channel(x.a, y.a, alpha)};
    }
    ColorA operator()(const ColorA& x, const Color& y) const { return (*this)(x, ColorA{y.r, y.g, y.b, x.a}); }
};

std::vector<ColorA> Colors()
{
    std::vector<ColorA> colors(kSamples);
    for (std::size_t i = 0; i < colors.size(); ++i)
    {
        const auto t = static_cast<Float>(i);
        colors[i] = {0.5 + 0.5 * std::sin(t), 0.5 + 0.5 * std::sin(2.0 * t + 1.0), 0.5 + 0.5 * std::sin(3.0 * t),
            0.5 + 0.4 * std::sin(5.0 * t)};
    }
    return colors;
}

// The node reads colour `in` from one array and writes its port `out` to another, as slots in a program are linked.
template <class T, class Hand>
void Measure(benchmark::State& state, Node& node, std::size_t in, std::size_t out, Hand hand)
{
    std::vector<ColorA> colors = Colors();
    std::vector<T> fromNode(kSamples);
    std::vector<T> fromHand(kSamples);
    double nodeSeconds = 0.0;
    double handSeconds = 0.0;
    ByHandMask mask;
    for (auto _ : state)
    {
        const Stopwatch nodeWatch;
        for (std::size_t i = 0; i < kSamples; ++i)
        {
            node.SlotOf(in).value = &colors[i];
            node.SlotOf(out).value = &fromNode[i];
            if (node.Run().IsError())
                return state.SkipWithError("a sample failed");
        }
        const double seconds = nodeWatch.Seconds();
        const Stopwatch handWatch;
        for (std::size_t i = 0; i < kSamples; ++i)
        {
            benchmark::DoNotOptimize(mask); // what the mask is, is not known ahead
            fromHand[i] = hand(colors[i], mask);
        }
        handSeconds += handWatch.Seconds();
        nodeSeconds += seconds;
        state.SetIterationTime(seconds);
        benchmark::ClobberMemory();
    }
    if (std::memcmp(fromNode.data(), fromHand.data(), kSamples * sizeof(T)) != 0)
        return state.SkipWithError("the values differ from those of the loop by hand");
    const double samples = static_cast<double>(state.iterations()) * kSamples;
    state.counters["node_ns"] = nodeSeconds / samples * 1e9;
    state.counters["hand_ns"] = handSeconds / samples * 1e9;
    state.counters["over_ns"] = (nodeSeconds - handSeconds) / samples * 1e9;
    state.counters["ratio"] = nodeSeconds / handSeconds;
}

void Contrast(benchmark::State& state)
{
    Node node("effect.contrast");
    node.Port<Float>(1) = 0.5;
    Measure<ColorA>(state, node, 0, 7, [](const ColorA& x, const ByHandMask& mask) {
        const auto steepen = [](Float c) { return Max((c - 0.5) * 1.5 + 0.5, 0.0); };
        return mask(x, ColorA{steepen(x.r), steepen(x.g), steepen(x.b), Max((x.a - 1.0) * 2.0 + 1.0, 1.0)});
    });
}
BENCHMARK(Contrast)->UseManualTime();

void ColorTemperature(benchmark::State& state)
{
    Node node("effect.colortemperature");
    node.Port<Float>(1) = 0.7;
    node.Port<Float>(2) = 0.3;
    Measure<ColorA>(state, node, 0, 8, [](const ColorA& x, const ByHandMask& mask) {
        return mask(x, Color{x.r + 0.7 * 0.1, x.g - 0.3 * 0.1, x.b - 0.7 * 0.1});
    });
}
BENCHMARK(ColorTemperature)->UseManualTime();

void WhiteBalance(benchmark::State& state)
{
    Node node("effect.whitebalance");
    node.Port<Color>(1) = {1.0, 0.9, 0.8};
    Color white{1.0, 0.9, 0.8};
    Measure<ColorA>(state, node, 0, 7, [&](const ColorA& x, const ByHandMask& mask) {
        benchmark::DoNotOptimize(white); // may vary from sample to sample
        const auto factor = [](Float c) { return c == 0.0 ? 0.0 : 1.0 / c; };
        return mask(x, Color{factor(white.r) * x.r, factor(white.g) * x.g, factor(white.b) * x.b});
    });
}
BENCHMARK(WhiteBalance)->UseManualTime();

void Unpremultiply(benchmark::State& state)
{
    Node node("effect.unpremultiply");
    Measure<ColorA>(state, node, 0, 6, [](const ColorA& x, const ByHandMask& mask) {
        const Float factor = 1.0 / x.a;
        return x.a == 0.0 ? mask(x, x) : mask(x, Color{x.r * factor, x.g * factor, x.b * factor});
    });
}
BENCHMARK(Unpremultiply)->UseManualTime();

void Shuffle(benchmark::State& state)
{
    Node node("effect.shuffle");
    node.SetId(1, "alpha");
    node.SetId(2, "blue");
    node.SetId(3, "red");
    node.SetId(4, "one");
    Measure<ColorA>(state, node, 0, 5, [](const ColorA& x, const ByHandMask&) { return ColorA{x.a, x.b, x.r, 1.0}; });
}
BENCHMARK(Shuffle)->UseManualTime();

void Strength(benchmark::State& state)
{
    Node node("strength");
    node.Port<Float>(1) = 0.7;
    Measure<ColorA>(state, node, 0, 2, [](const ColorA& x, const ByHandMask&) {
        return ColorA{x.r * 0.7, x.g * 0.7, x.b * 0.7, x.a};
    });
}
BENCHMARK(Strength)->UseManualTime();

void ColorToFloat(benchmark::State& state)
{
    Node node("conversion.colortofloat");
    node.SetId(1, "luminance");
    Measure<Float>(state, node, 0, 3,
        [](const ColorA& x, const ByHandMask&) { return x.r * 0.2125 + x.g * 0.7154 + x.b * 0.0721; });
}
BENCHMARK(ColorToFloat)->UseManualTime();

void Exposure(benchmark::State& state)
{
    Node node("effect.exposure");
    node.Port<Float>(1) = 0.7;
    node.Port<Float>(2) = 0.1;
    node.Port<Float>(3) = 1.0;
    Float stops = 0.7;
    Measure<ColorA>(state, node, 0, 9, [&](const ColorA& x, const ByHandMask& mask) {
        benchmark::DoNotOptimize(stops); // may vary from sample to sample
        const Float gain = std::exp2(stops);
        return mask(x, ColorA{gain * x.r + 0.1, gain * x.g + 0.1, gain * x.b + 0.1, x.a + 1.0});
    });
}
BENCHMARK(Exposure)->UseManualTime();

void BiasGain(benchmark::State& state)
{
    Node node("effect.biasgain");
    node.Port<Float>(1) = 0.3;
    node.Port<Float>(2) = 0.6;
    Float bias = 0.3;
    Float gain = 0.6;
    Measure<ColorA>(state, node, 0, 8, [&](const ColorA& x, const ByHandMask& mask) {
        benchmark::DoNotOptimize(bias);
        benchmark::DoNotOptimize(gain);
        const auto curve = [](Float c, Float b, Float g) {
            const Float u = Clamp01(c / ((1.0 - c) * b + 1.0));
            const Float t = (1.0 - (u + u)) * g;
            return Clamp01(u < 0.5 ? u / (t + 1.0) : (t - u) / (t - 1.0));
        };
        const Float b = 1.0 / bias - 2.0;
        const Float g = 1.0 / gain - 2.0;
        return mask(x, ColorA{curve(x.r, b, g), curve(x.g, b, g), curve(x.b, b, g), curve(x.a, -1.0, -0.999899989999)});
    });
}
BENCHMARK(BiasGain)->UseManualTime();

void InvertColor(benchmark::State& state)
{
    Node node("effect.invertcolor");
    Measure<ColorA>(state, node, 0, 6, [](const ColorA& x, const ByHandMask& mask) {
        return mask(x, ColorA{1.0 - x.r, 1.0 - x.g, 1.0 - x.b, 1.0 - x.a});
    });
}
BENCHMARK(InvertColor)->UseManualTime();

void Premultiply(benchmark::State& state)
{
    Node node("effect.premultiply");
    Measure<ColorA>(state, node, 0, 6, [](const ColorA& x, const ByHandMask& mask) {
        return mask(x, Color{x.r * x.a, x.g * x.a, x.b * x.a});
    });
}
BENCHMARK(Premultiply)->UseManualTime();

void ShuffleCombine(benchmark::State& state)
{
    Node node("effect.shufflecombine");
    node.SetId(2, "alpha1");
    node.SetId(3, "blue1");
    node.SetId(4, "red1");
    node.SetId(5, "one");
    Measure<ColorA>(state, node, 0, 6, [](const ColorA& x, const ByHandMask&) { return ColorA{x.a, x.b, x.r, 1.0}; });
}
BENCHMARK(ShuffleCombine)->UseManualTime();

void Transform2d(benchmark::State& state)
{
    Node node("effect.transform2d");
    node.Port<Float>(2) = 0.3;
    node.Port<Vector2d>(3) = {2.0, 3.0};
    Float angle = 0.3;
    Measure<Vector2d>(state, node, 0, 5, [&](const ColorA& x, const ByHandMask&) {
        benchmark::DoNotOptimize(angle);
        const Float s = std::sin(angle);
        const Float c = std::cos(angle);
        return Vector2d{(x.r * c - x.g * s) * 2.0 + 0.0, (x.r * s + x.g * c) * 3.0 + 0.0};
    });
}
BENCHMARK(Transform2d)->UseManualTime();

// One component comes from the sample, the others are 0.
template <class T>
void Compose(benchmark::State& state, const char* id, std::size_t out)
{
    Node node(std::string("conversion.") + id);
    Measure<T>(state, node, 0, out, [](const ColorA& x, const ByHandMask&) { return T{x.r}; });
}
void ComposeColor(benchmark::State& state)
{
    Compose<Color>(state, "composecolor", 3);
}
BENCHMARK(ComposeColor)->UseManualTime();

void ComposeVector2d(benchmark::State& state)
{
    Compose<Vector2d>(state, "composevector2", 2);
}
BENCHMARK(ComposeVector2d)->UseManualTime();

void ComposeVector(benchmark::State& state)
{
    Compose<Vector>(state, "composevector3", 3);
}
BENCHMARK(ComposeVector)->UseManualTime();

void ComposeVector4d(benchmark::State& state)
{
    Compose<Vector4d>(state, "composevector4", 4);
}
BENCHMARK(ComposeVector4d)->UseManualTime();

void ComposeColorA(benchmark::State& state)
{
    Node node("conversion.composecolora");
    for (const std::size_t component : {1, 2, 3})
        node.SlotOf(component).flags |= slot_flags::kNotConnected;
    node.Port<Float>(4) = 0.5;
    Measure<ColorA>(state, node, 0, 5, [](const ColorA& x, const ByHandMask&) { return ColorA{x.r, x.g, x.b, 0.5}; });
}
BENCHMARK(ComposeColorA)->UseManualTime();

void ConvertDegrees(benchmark::State& state)
{
    Node node("conversion.convertdegrees");
    node.SetId(1, "degtorad");
    Measure<Float>(state, node, 0, 2, [](const ColorA& x, const ByHandMask&) { return x.r * 0.017453292519943295; });
}
BENCHMARK(ConvertDegrees)->UseManualTime();

void SplitColorComponents(benchmark::State& state)
{
    Node node("conversion.splitcolorcomponents");
    Measure<Color>(state, node, 0, 2, [](const ColorA& x, const ByHandMask&) { return Color{x.r, x.g, x.b}; });
}
BENCHMARK(SplitColorComponents)->UseManualTime();

void SplitVectorComponents(benchmark::State& state)
{
    Node node("conversion.splitvectorcomponents");
    Measure<Vector>(state, node, 0, 2, [](const ColorA& x, const ByHandMask&) { return Vector{x.r, x.g, x.b}; });
}
BENCHMARK(SplitVectorComponents)->UseManualTime();

void VectorToFloat(benchmark::State& state)
{
    Node node("conversion.vectortofloat");
    node.SetId(1, "length");
    Measure<Float>(state, node, 0, 2,
        [](const ColorA& x, const ByHandMask&) { return std::sqrt(x.r * x.r + x.g * x.g + x.b * x.b + x.a * x.a); });
}
BENCHMARK(VectorToFloat)->UseManualTime();

void ColorCorrection(benchmark::State& state)
{
    using namespace pattern;
    Node node("effect.colorhsl");
    node.Port<Float>(1) = 0.4;
    node.Port<Float>(2) = 0.1;
    node.Port<Float>(3) = 0.2;
    Measure<ColorA>(state, node, 0, 10, [](const ColorA& x, const ByHandMask& mask) {
        const Hsv hsv = RgbToHsv({Max(x.r, 0.0), Max(x.g, 0.0), Max(x.b, 0.0)});
        const Color c =
            ShiftValue(HsvToRgb({WrapHue(0.4 / 6.283185307179586 + hsv.h), Clamp01(0.1 + hsv.s), hsv.v}), 0.2);
        return mask(x, ColorA{c.r, c.g, c.b, Max(x.a, 1.0)});
    });
}
BENCHMARK(ColorCorrection)->UseManualTime();

void SelectiveColorCorrection(benchmark::State& state)
{
    using namespace pattern;
    Node node("effect.colorcorrection");
    node.Port<Float>(4) = 0.4; // the hue of the greens
    Measure<ColorA>(state, node, 0, 30, [](const ColorA& x, const ByHandMask& mask) {
        Color c{Max(x.r, 0.0), Max(x.g, 0.0), Max(x.b, 0.0)};
        const Hsv hsv = RgbToHsv(c);
        const Color n =
            ShiftValue(HsvToRgb({WrapHue(0.4 / 6.283185307179586 + hsv.h), Clamp01(0.0 + hsv.s), hsv.v}), 0.0);
        const Float w =
            std::pow(std::abs(std::cos((hsv.h - 0.32) * 3.141592653589793)), 3.0) * Clamp01(std::pow(hsv.s, 0.05));
        const Float t = w <= 0.0 ? 0.0 : w >= 1.0 ? 1.0 : w * w * (3.0 - 2.0 * w);
        c = {(n.r - c.r) * t + c.r, (n.g - c.g) * t + c.g, (n.b - c.b) * t + c.b};
        return mask(x, Color{Max(c.r, 0.0), Max(c.g, 0.0), Max(c.b, 0.0)});
    });
}
BENCHMARK(SelectiveColorCorrection)->UseManualTime();

void ColorProfile(benchmark::State& state)
{
    Node node("conversion.colorprofile");
    node.SetId(1, "srgb");
    node.SetId(2, "linear");
    node.SetId(3, "forward");
    Measure<ColorA>(state, node, 0, 13, [](const ColorA& x, const ByHandMask& mask) {
        const auto decode = [](Float c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
        return mask(x, ColorA{decode(x.r), decode(x.g), decode(x.b), decode(x.a)});
    });
}
BENCHMARK(ColorProfile)->UseManualTime();

void ColorSpace(benchmark::State& state)
{
    Node node("conversion.colorspace");
    node.SetId(1, "rgb");
    node.SetId(2, "hsv");
    Measure<ColorA>(state, node, 0, 8, [](const ColorA& x, const ByHandMask& mask) {
        const pattern::Hsv hsv = pattern::RgbToHsv({x.r, x.g, x.b});
        return mask(x, Color{hsv.h, hsv.s, hsv.v});
    });
}
BENCHMARK(ColorSpace)->UseManualTime();

// Source-over, as the host's class has it.
ColorA Over(const ColorA& b, const ColorA& s)
{
    if (s.a == 0.0)
        return b;
    if (b.a == 0.0)
        return s;
    if (b.a == 1.0 && s.a == 1.0)
        return {s.r, s.g, s.b, 1.0};
    const Float total = b.a + s.a * (1.0 - b.a);
    if (total == 0.0)
        return {b.r, b.g, b.b, 0.0};
    const auto channel = [&](Float cb, Float cs) {
        return ((1.0 - s.a) * b.a * cb + s.a * (1.0 - b.a) * cs + s.a * b.a * cs) / total;
    };
    return {channel(b.r, s.r), channel(b.g, s.g), channel(b.b, s.b), total};
}

void BlendOver(benchmark::State& state)
{
    Node node("effect.blend");
    node.Port<ColorA>(1) = {0.9, 0.3, 0.2, 0.6};
    node.Port<Id>(2) = "net.velto.render.blendmode.over";
    ColorA foreground{0.9, 0.3, 0.2, 0.6};
    Measure<ColorA>(state, node, 0, 9, [&](const ColorA& x, const ByHandMask& mask) {
        benchmark::DoNotOptimize(foreground);
        return mask(x, Over(x, foreground));
    });
}
BENCHMARK(BlendOver)->UseManualTime();

void SixteenLayers(benchmark::State& state)
{
    constexpr std::size_t kLayers = 16;
    BaseArray<Id> names;
    for (std::size_t i = 0; i < kLayers; ++i)
    {
        Id name;
        Id::Create(std::to_string(i), name).Ignore();
        names.Append(name).Ignore();
    }
    DataDictionary arguments;
    Bound<DataDictionaryInterface>().Alloc(arguments.Receive()).Ignore();
    SetData(arguments, Id("layers"), names).Ignore();
    Node node("effect.layer", arguments);
    std::vector<ColorA> colors = Colors();
    for (std::size_t i = 0; i < kLayers; ++i)
    {
        node.Port<ColorA>(2 + i) = colors[i + 7];
        node.Port<Float>(2 + kLayers + i) = 0.5;
        node.Port<Bool>(2 + 2 * kLayers + i) = true;
        node.Port<Id>(2 + 3 * kLayers + i) = "net.velto.render.blendmode.over";
    }
    // The bottom layer varies.
    Measure<ColorA>(state, node, 2 + kLayers - 1, 0, [&](const ColorA& bottom, const ByHandMask&) {
        ColorA stack = kTransparentBlack;
        for (std::size_t i = kLayers; i-- > 0;)
        {
            ColorA layer = i + 1 == kLayers ? bottom : colors[i + 7];
            layer.a *= 0.5;
            stack = Over(stack, layer);
        }
        return stack;
    });
}
BENCHMARK(SixteenLayers)->UseManualTime();

} // namespace

} // namespace velto::bench
