// Maps a number to a colour through knots, each with a position, a colour, a bias and an interpolation of its own.
#include "crc32c.h"
#include "gradientmath.h"
#include "velto/graphnodes.h"
#include "velto/node.h"

#include <algorithm>

namespace velto::pattern
{

struct SortedKnot
{
    Int index = 0; // the knot's number in port order
    Float position = 0.0;
};

struct SortedKnots : Object
{
    BaseArray<SortedKnot> sorted;
    BaseArray<Int> indices; // of each knot by its number: its place in `sorted`
};

using SortedKnotsRef = Ref<SortedKnots>;

} // namespace velto::pattern

VELTO_DATA_TYPE(velto::pattern::SortedKnotsRef, "net.velto.render.datatype.sortedknotsref");

namespace velto::pattern
{

VELTO_PUBLISH_DATA_TYPE(SortedKnotsRef);

// Knots at NaN come after all others, so that the order is a total one.
static bool LiesBefore(const SortedKnot& a, const SortedKnot& b)
{
    const bool nanA = a.position != a.position;
    const bool nanB = b.position != b.position;
    if (nanA || nanB)
        return nanA == nanB ? a.index < b.index : nanB;
    return a.position < b.position || (a.position == b.position && a.index < b.index);
}

static Result GradientPre(
    Once<"sortedKnots", SortedKnotsRef> sortedKnots, State<"crc", UInt32> crc, Variadic<"position", Float> position)
{
    if (!*sortedKnots)
    {
        *sortedKnots = MakeShared<SortedKnots>();
        if (!*sortedKnots)
            return OutOfMemory();
    }
    Crc32c sum;
    for (Int i = 0; i < position.Count(); ++i)
        sum.Add(position[i]);
    if (sum.Value() == *crc)
        return {};

    BaseArray<SortedKnot> sorted;
    BaseArray<Int> indices;
    VELTO_TRY(sorted.EnsureCapacity(position.Count()));
    VELTO_TRY(indices.Resize(position.Count()));
    for (Int i = 0; i < position.Count(); ++i)
        VELTO_TRY(sorted.Append({i, position[i]}));
    std::sort(sorted.begin(), sorted.end(), &LiesBefore);
    for (Int place = 0; place < sorted.Count(); ++place)
        indices[sorted[place].index] = place;
    (*sortedKnots)->sorted = std::move(sorted);
    (*sortedKnots)->indices = std::move(indices);
    crc = sum.Value();
    return {};
}

VELTO_INTERNED_ID(kLinear, "linear");
VELTO_INTERNED_ID(kSrgb, "srgb");
VELTO_INTERNED_ID(kNone, "none");
VELTO_INTERNED_ID(kLinearKnot, "linearknot");
VELTO_INTERNED_ID(kSmoothKnot, "smoothknot");
VELTO_INTERNED_ID(kBlend, "blend");
VELTO_INTERNED_ID(kCubicKnot, "cubicknot");
VELTO_INTERNED_ID(kCubicBias, "cubicbias");

// Turns colours into the space of interpolation, or back out of it.
template <ColorA (*Convert)(const ColorA&)>
static void BringToSpace(const InternedId& space, ColorA& color)
{
    if (space == kSrgb)
        color = Convert(color);
    else if (space != kLinear) [[unlikely]]
        Stop("Stop: Unsupported color space in gradient: @", space.View());
}

// The knots around one sample. Colours are fetched when a curve asks for them, since each may be a costly graph.
class GradientSegment
{
public:
    GradientSegment(const SortedKnots& knots, const ShadingContext& context, const InternedId& space,
        const Variadic<"color", ColorAFunction>& colors)
        : knots_(knots), context_(context), space_(space), colors_(colors)
    {
    }

    // Places the segment at x; the share of its length at which x lies goes to `t`. False: it has no length.
    bool Find(Float x, Float& t)
    {
        const SortedKnot* const behind = std::partition_point(knots_.sorted.begin(), knots_.sorted.end(),
            [x](const SortedKnot& knot) { return !(knot.position > x || (knot.position == x && knot.index > 0)); });
        const Int place = behind - knots_.sorted.begin();
        left = place < 2 ? 0 : place - 1;
        right = Min(knots_.indices[Number(left)] + 1, knots_.sorted.Count() - 1);
        const Float start = knots_.sorted[left].position;
        const Float span = knots_.sorted[right].position - start;
        t = (x - start) / span;
        return left != right && span != 0.0;
    }

    Int Number(Int place) const { return knots_.sorted[place].index; }

    // The colours of the places from `first` to before `end`. Fetched one by one into locals they take up to twice the
    // time: processors guess what a stack slot holds across the call, and guess wrong.
    Result Fetch(Int first, Int end, ColorA* colors) const
    {
        for (Int place = first; place < end; ++place, ++colors)
        {
            const Int number = Number(place);
            if (number >= colors_.Count())
                return NullptrError();
            *colors = kOpaqueBlack;
            VELTO_TRY(colors_[number].Invoke(*colors, context_));
            BringToSpace<&EncodeSrgb>(space_, *colors);
        }
        return {};
    }

    Int left = 0;
    Int right = 0;

private:
    const SortedKnots& knots_;
    const ShadingContext& context_;
    const InternedId& space_;
    const Variadic<"color", ColorAFunction>& colors_;
};

template <class T, FixedString Name>
static Result CallOf(
    const Variadic<Name, FunctionOf<T>>& functions, Int number, const ShadingContext& context, T& value)
{
    if (number >= functions.Count())
        return NullptrError();
    return functions[number].Invoke(value, context);
}

enum class KnotMode : std::uint8_t
{
    None,
    Linear,
    Smooth,
    Blend,
    Cubic,
    CubicBias,
    Unknown,
};

static KnotMode ToMode(const InternedId& id)
{
    return id == kSmoothKnot   ? KnotMode::Smooth
           : id == kLinearKnot ? KnotMode::Linear
           : id == kNone       ? KnotMode::None
           : id == kBlend      ? KnotMode::Blend
           : id == kCubicKnot  ? KnotMode::Cubic
           : id == kCubicBias  ? KnotMode::CubicBias
                               : KnotMode::Unknown;
}

static Result CubicKnot(const GradientSegment& segment, Float u, Int last, ColorA& color)
{
    const Int first = Max<Int>(segment.left - 1, 0);
    const Int end = Min(segment.right + 1, last) + 1;
    ColorA colors[4]; // from the left knot's on, or from the one before it; a missing one is like its neighbour
    VELTO_TRY(segment.Fetch(first, end, colors));
    const ColorA* const c0 = colors + (segment.left - first);
    color = CatmullRom(colors[0], c0[0], c0[1], colors[end - first - 1], u);
    return {};
}

// The colour at the share `t` of a segment.
static Result Interpolate(const GradientSegment& segment, KnotMode mode, Float t, Float bias, Int last, ColorA& color)
{
    if (mode == KnotMode::Cubic)
        return CubicKnot(segment, BiasMap(t, bias), last, color);
    if (mode == KnotMode::Blend && bias > t)
        return segment.Fetch(segment.left, segment.left + 1, &color);

    ColorA ends[2];
    VELTO_TRY(segment.Fetch(segment.left, segment.right + 1, ends));
    const auto& [c0, c1] = ends;
    switch (mode)
    {
    case KnotMode::CubicBias:
        color = CubicBias(c0, c1, t, bias);
        break;
    case KnotMode::Blend:
        color = Mix(c0, c1, AfterBias(t, bias));
        break;
    case KnotMode::Smooth:
        color = Mix(c0, c1, SmoothStep01(BiasMap(t, bias)));
        break;
    default:
        color = Mix(c0, c1, BiasMap(t, bias));
        break;
    }
    return {};
}

static Result Gradient(In<"context", ShadingContext> context, In<"contextLocal", ShadingContext> local,
    Connected<"input", Float> input, In<"sortedKnots", SortedKnotsRef> sortedKnots,
    In<"colorspace", InternedId> colorSpace, Out<"result", ColorA> result, Variadic<"color", ColorAFunction> color,
    Variadic<"bias", FloatFunction> bias, Variadic<"interpolation", InternedIdFunction> interpolation)
{
    const SortedKnots* const knots = sortedKnots->Get();
    if (!knots || knots->sorted.IsEmpty() || !local->uvwValid)
    {
        result = kTransparentBlack;
        return {};
    }
    GradientSegment segment(*knots, *context, *colorSpace, color);
    ColorA mixed;
    Float t = 0.0;
    KnotMode mode = KnotMode::None;
    const bool hasLength = segment.Find(input.IsConnected() ? *input : local->uvw.x, t);
    const Int number = segment.Number(segment.left);
    if (hasLength)
    {
        InternedId id;
        VELTO_TRY(CallOf(interpolation, number, *context, id));
        mode = ToMode(id);
    }
    if (mode == KnotMode::None)
        VELTO_TRY(segment.Fetch(segment.left, segment.left + 1, &mixed));
    else
    {
        Float knotBias = 0.0;
        VELTO_TRY(CallOf(bias, number, *context, knotBias));
        if (mode == KnotMode::Unknown) [[unlikely]]
            return MakeError(error::kIllegalState, "Unknown gradient interpolation mode.");
        VELTO_TRY(Interpolate(segment, mode, t, knotBias, knots->sorted.Count() - 1, mixed));
    }
    BringToSpace<&DecodeSrgb>(*colorSpace, mixed);
    result = mixed;
    return {};
}

VELTO_CORE_NODE("net.velto.pattern.corenode.generator.gradientpre", GradientPre);
VELTO_CORE_NODE("net.velto.pattern.corenode.generator.gradient", Gradient);

// The first knot is opaque black at 0.
static Result FinalizeGradient(const MutableRoot& root)
{
    MutablePort inputs;
    MutablePort gradient;
    MutablePort knot;
    MutablePort child;
    VELTO_TRY(root.GetInputs(inputs));
    VELTO_TRY(inputs.FindPort("gradient", gradient));
    VELTO_TRY(gradient.FindPort("_0", knot));
    VELTO_TRY(knot.FindPort("color", child));
    VELTO_TRY(child.SetValue(port_attribute::kDefaultValue, kOpaqueBlack));
    VELTO_TRY(knot.FindPort("position", child));
    return child.SetValue(port_attribute::kDefaultValue, 0.0);
}

VELTO_DESCRIPTION_FINALIZER("net.velto.pattern.node.generator.gradient", &FinalizeGradient);

} // namespace velto::pattern
