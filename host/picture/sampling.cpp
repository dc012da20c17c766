#include "sampling.h"

#include <algorithm>
#include <cmath>

namespace velto::host
{

namespace
{

// What lies beside a tile, along one axis.
enum class Border
{
    Clamp,
    Repeat,
    Mirror,
};

Border BorderOf(std::uint8_t tileMode, bool acrossTiles)
{
    if (tileMode == kTileClamp || !acrossTiles)
        return Border::Clamp;
    return tileMode == kTileMirror ? Border::Mirror : Border::Repeat;
}

int WrapTexel(int i, int count, Border border)
{
    if (i >= 0 && i < count) [[likely]]
        return i;
    switch (border)
    {
    case Border::Repeat:
        i %= count;
        return i < 0 ? i + count : i;
    case Border::Mirror:
        i %= 2 * count;
        i = i < 0 ? i + 2 * count : i;
        return i < count ? i : 2 * count - 1 - i;
    case Border::Clamp:
        break;
    }
    return std::clamp(i, 0, count - 1);
}

// As `std::floor`, which is a call on processors of any age.
double Floor(double c)
{
    constexpr double kWholeFromHere = 0x1p52;
    if (!(std::abs(c) < kWholeFromHere)) [[unlikely]]
        return c;
    const auto whole = static_cast<double>(static_cast<std::int64_t>(c));
    return whole > c ? whole - 1.0 : whole;
}

// The coordinate where odd tiles run backwards: 1 is a turning point, and stays.
double FoldCoordinate(double c)
{
    const double folded = c - 2.0 * Floor(c * 0.5);
    return folded > 1.0 ? 2.0 - folded : folded;
}

// The coordinate in its tile; what is not finite becomes 0.
double WrapCoordinate(double c, std::uint8_t tileMode)
{
    const double wrapped = tileMode == kTileClamp    ? std::clamp(c, 0.0, 1.0)
                           : tileMode == kTileMirror ? FoldCoordinate(c)
                                                     : c - Floor(c);
    return wrapped >= 0.0 && wrapped <= 1.0 ? wrapped : 0.0;
}

// A place near the tile, brought into it.
double WrapNear(double c, Border border)
{
    switch (border)
    {
    case Border::Repeat:
        return WrapCoordinate(c, kTileRepeat);
    case Border::Mirror:
        return WrapCoordinate(c, kTileMirror);
    case Border::Clamp:
        break;
    }
    return std::clamp(c, 0.0, 1.0);
}

struct Channels
{
    double c[4] = {};

    double Alpha() const { return c[3]; }
};

// The weight of a colour that is all but transparent: enough for it to remain where there is nothing else.
constexpr double kLeastAlpha = 1e-30;

// A weighted mean. Where it goes by alpha, a colour counts by its alpha, too, so that nothing is seen of what is cut
// out.
template <bool kByAlpha>
class Mean
{
public:
    void Add(const Channels& other, double weight)
    {
        const double share = kByAlpha ? weight * std::max(other.Alpha(), kLeastAlpha) : weight;
        for (int i = 0; i < 3; ++i)
            sum_.c[i] += other.c[i] * share;
        sum_.c[3] += other.c[3] * weight;
        if constexpr (kByAlpha)
            visible_ += share;
    }
    void Add(const Mean& other, double weight)
    {
        for (int i = 0; i < 4; ++i)
            sum_.c[i] += other.sum_.c[i] * weight;
        visible_ += other.visible_ * weight;
    }

    double Alpha() const { return sum_.Alpha(); }
    Channels Result() const
    {
        if constexpr (kByAlpha)
            return {{sum_.c[0] / visible_, sum_.c[1] / visible_, sum_.c[2] / visible_, sum_.c[3]}};
        else
            return sum_;
    }

private:
    Channels sum_;
    double visible_ = 0.0; // the weight that colours have
};

// Of two.
template <bool kByAlpha>
Channels Mixed(Channels a, const Channels& b, double share)
{
    double colorShare = share;
    if constexpr (kByAlpha)
    {
        const double ofB = share * (b.Alpha() + kLeastAlpha);
        colorShare = ofB / ((1.0 - share) * std::max(a.Alpha(), kLeastAlpha) + ofB);
    }
    for (int i = 0; i < 3; ++i)
        a.c[i] += (b.c[i] - a.c[i]) * colorShare;
    a.c[3] += (b.c[3] - a.c[3]) * share;
    return a;
}

// Of four in a square, `a` and `b` being the upper ones.
template <bool kByAlpha>
Channels MixedSquare(const Channels& a, const Channels& b, const Channels& c, const Channels& d, double x, double y)
{
    Channels mixed;
    const auto between = [&](int i) {
        const double upper = a.c[i] + (b.c[i] - a.c[i]) * x;
        const double lower = c.c[i] + (d.c[i] - c.c[i]) * x;
        return upper + (lower - upper) * y;
    };
    mixed.c[3] = between(3);
    if constexpr (kByAlpha)
    {
        const double both = x * y;
        const double ofB = (x - both) * b.Alpha();
        const double ofC = (y - both) * c.Alpha();
        const double ofD = both * d.Alpha();
        const double visible = ((1.0 - x) - (y - both)) * a.Alpha() + ofB + (ofC + ofD);
        if (visible > 0.0) [[likely]]
        {
            const double whole = 1.0 / visible;
            for (int i = 0; i < 3; ++i)
                mixed.c[i] =
                    a.c[i] + ((b.c[i] - a.c[i]) * ofB + (c.c[i] - a.c[i]) * ofC + (d.c[i] - a.c[i]) * ofD) * whole;
            return mixed;
        }
    }
    for (int i = 0; i < 3; ++i)
        mixed.c[i] = between(i);
    return mixed;
}

// A coordinate is rounded where it is divided by the size of a picture. What is nearer than this to the middle of a
// texel, or to its edge, lies there: at one texel a sample a picture is itself.
constexpr double kRounding = 1e-9;

double Settled(double c)
{
    const double whole = std::nearbyint(c);
    return std::abs(c - whole) < kRounding ? whole : c;
}

// The two texels on both sides of a coordinate, and how far it is from the first.
struct Between
{
    int first;
    double share;

    Between(double coordinate, int texels)
    {
        const double x = coordinate * texels - 0.5;
        const double whole = Floor(x);
        first = static_cast<int>(whole);
        share = x - whole;
        if (share > 1.0 - kRounding)
        {
            ++first;
            share = 0.0;
        }
        else if (share < kRounding)
            share = 0.0;
    }
};

// What alpha does to the colours of texels.
enum class AlphaUse
{
    None,
    Weighs,  // says how much each of them counts
    Divides, // takes out of each what it was multiplied by as it was encoded
};

// Reads texels of integers through tables, of floats as they are.
template <class T, AlphaUse kAlpha>
class Reader
{
public:
    Reader(const Pyramid<T>& pyramid, bool toLinear)
        : pyramid_(pyramid), toLinear_(toLinear && pyramid.Encoding().curve != Transfer::Curve::Linear),
          // Linear light of colours that are still multiplied as they are encoded would be no mean of anything.
          levels_{toLinear_ && kAlpha != AlphaUse::Divides, kAlpha == AlphaUse::Weighs}
    {
        if constexpr (std::is_integral_v<T>)
        {
            table_ = pyramid.Decoded(toLinear);
            plain_ = pyramid.Decoded(false);
        }
    }

    const TexelLevel<T>& Level(int level) const
    {
        return level <= 0 ? pyramid_.Finest() : pyramid_.Level(level, levels_);
    }
    int LevelCount() const { return pyramid_.Count(); }

    Channels operator()(const T* texel) const
    {
        if constexpr (kAlpha == AlphaUse::Divides)
            return Unpremultiplied(texel);
        else if constexpr (std::is_integral_v<T>)
            return {{table_[texel[0]], table_[texel[1]], table_[texel[2]], plain_[texel[3]]}};
        else if (toLinear_)
            return Linear({{texel[0], texel[1], texel[2], texel[3]}});
        else
            return {{texel[0], texel[1], texel[2], texel[3]}};
    }

private:
    // Colours that were multiplied as they are encoded must be divided before they are decoded.
    Channels Unpremultiplied(const T* texel) const
    {
        const double alpha = texel[3] / kTopOf<T>;
        Channels channels{{texel[0] / kTopOf<T>, texel[1] / kTopOf<T>, texel[2] / kTopOf<T>, alpha}};
        for (int i = 0; i < 3 && alpha > 0.0; ++i)
            channels.c[i] = std::is_integral_v<T> ? std::min(channels.c[i] / alpha, 1.0) : channels.c[i] / alpha;
        return toLinear_ ? Linear(channels) : channels;
    }

    Channels Linear(Channels channels) const
    {
        for (int i = 0; i < 3; ++i)
            channels.c[i] = pyramid_.Encoding().ToLinear(channels.c[i]);
        return channels;
    }

    const Pyramid<T>& pyramid_;
    bool toLinear_;
    LevelKind levels_;
    const double* table_ = nullptr;
    const double* plain_ = nullptr;
};

template <class T, AlphaUse kAlpha>
class Sampler
{
public:
    Sampler(const Reader<T, kAlpha>& reader, const SampleRequest& request)
        : reader_(reader), borderU_(BorderOf(request.tileModeU, request.acrossTiles)),
          borderV_(BorderOf(request.tileModeV, request.acrossTiles)), u_(WrapCoordinate(request.u, request.tileModeU)),
          v_(WrapCoordinate(request.v, request.tileModeV)),
          // Nothing for an invalid box. No box is larger than the picture.
          width_(request.width > 0.0 ? std::min(request.width, 1.0) : 0.0),
          height_(request.height > 0.0 ? std::min(request.height, 1.0) : 0.0)
    {
    }

    Channels Run(Int32 interpolation) const
    {
        const auto bilinear = [this](int level) { return Bilinear(level, u_, v_); };
        const auto bicubic = [this](int level) { return Bicubic(level); };
        switch (interpolation)
        {
        case texture_filter::kLinear:
            return Bilinear(0, u_, v_);
        case texture_filter::kMip:
            return BetweenLevels(LevelFor(Longer()), bilinear);
        case texture_filter::kRip:
            return AlongLongerSide();
        case texture_filter::kSat:
            return BoxMean();
        case texture_filter::kBicubic:
            return BetweenLevels(LevelFor(Longer()), bicubic);
        default:
            return Nearest();
        }
    }

private:
    static constexpr bool kByAlpha = kAlpha == AlphaUse::Weighs;

    // The sides of the footprint in texels of the finest level.
    double TexelsU() const { return width_ * reader_.Level(0).width; }
    double TexelsV() const { return height_ * reader_.Level(0).height; }
    double Longer() const { return std::max(TexelsU(), TexelsV()); }

    double LevelFor(double texels) const
    {
        return texels <= 1.0 ? 0.0 : std::min(Settled(std::log2(texels)), double(reader_.LevelCount() - 1));
    }

    Channels Nearest() const
    {
        const TexelLevel<T>& level = reader_.Level(0);
        return reader_(level.At(std::min(static_cast<int>(u_ * level.width), level.width - 1),
            std::min(static_cast<int>(v_ * level.height), level.height - 1)));
    }

    Channels Bilinear(int number, double u, double v) const
    {
        const TexelLevel<T>& level = reader_.Level(number);
        const Between x(u, level.width);
        const Between y(v, level.height);
        const int x0 = WrapTexel(x.first, level.width, borderU_);
        const int x1 = WrapTexel(x.first + 1, level.width, borderU_);
        const int y0 = WrapTexel(y.first, level.height, borderV_);
        const int y1 = WrapTexel(y.first + 1, level.height, borderV_);
        const Channels a = reader_(level.At(x0, y0));
        const Channels b = reader_(level.At(x1, y0));
        const Channels c = reader_(level.At(x0, y1));
        const Channels d = reader_(level.At(x1, y1));
        return MixedSquare<kByAlpha>(a, b, c, d, x.share, y.share);
    }

    static std::array<double, 4> CatmullRomWeights(double t)
    {
        return {t * (t * (1.0 - 0.5 * t) - 0.5), t * t * (1.5 * t - 2.5) + 1.0, t * (t * (2.0 - 1.5 * t) + 0.5),
            t * t * (0.5 * t - 0.5)};
    }

    Channels Bicubic(int number) const
    {
        const TexelLevel<T>& level = reader_.Level(number);
        const Between x(u_, level.width);
        const Between y(v_, level.height);
        const auto weightsX = CatmullRomWeights(x.share);
        const auto weightsY = CatmullRomWeights(y.share);
        Mean<kByAlpha> sum;
        for (int j = 0; j < 4; ++j)
        {
            const int row = WrapTexel(y.first - 1 + j, level.height, borderV_);
            Mean<kByAlpha> line;
            for (int i = 0; i < 4; ++i)
                line.Add(reader_(level.At(WrapTexel(x.first - 1 + i, level.width, borderU_), row)),
                    weightsX[static_cast<std::size_t>(i)]);
            sum.Add(line, weightsY[static_cast<std::size_t>(j)]);
        }
        // The curve swings beyond what it passes through: where it leaves next to no alpha there is no colour in it.
        constexpr double kFaint = 1.0 / 64.0;
        Channels mixed = kByAlpha && sum.Alpha() < kFaint ? Bilinear(number, u_, v_) : sum.Result();
        mixed.c[3] = std::max(sum.Alpha(), 0.0);
        return mixed;
    }

    template <class Look>
    Channels BetweenLevels(double at, const Look& look) const
    {
        const int finer = static_cast<int>(at);
        const double share = at - finer;
        return share > 0.0 ? Mixed<kByAlpha>(look(finer), look(finer + 1), share) : look(finer);
    }

    Channels AlongLongerSide() const
    {
        constexpr double kMostTaps = 16.0;
        const bool alongU = TexelsU() > TexelsV();
        const double longer = std::max(Longer(), 1.0);
        const double shorter = std::max({std::min(TexelsU(), TexelsV()), 1.0, longer / kMostTaps});
        const int taps = static_cast<int>(std::ceil(longer / shorter - kRounding));
        const double level = LevelFor(shorter);
        const auto look = [&](double u, double v) {
            return BetweenLevels(level, [&](int number) { return Bilinear(number, u, v); });
        };
        if (taps == 1)
            return look(u_, v_);
        Mean<kByAlpha> sum;
        for (int tap = 0; tap < taps; ++tap)
        {
            const double offset = (tap + 0.5) / taps - 0.5;
            const double u = alongU ? WrapNear(u_ + offset * width_, borderU_) : u_;
            const double v = alongU ? v_ : WrapNear(v_ + offset * height_, borderV_);
            sum.Add(look(u, v), 1.0 / taps);
        }
        return sum.Result();
    }

    // The texels that a box covers along one axis.
    struct Run1d
    {
        double begin;
        double end;

        // A box is at least a texel long, which makes the mean of a point what lies between four texels.
        Run1d(double centre, double length, int texels)
        {
            const double half = 0.5 * std::max(length * texels, 1.0);
            begin = Settled(centre * texels - half);
            end = Settled(centre * texels + half);
        }
        int First() const { return static_cast<int>(std::floor(begin)); }
        int After() const { return static_cast<int>(std::ceil(end)); }
        double ShareOf(int texel) const
        {
            return (std::min(end, texel + 1.0) - std::max(begin, double(texel))) / (end - begin);
        }
    };

    Channels BoxMean() const
    {
        // The edges of a box are as sharp as the texels of its level are small.
        const double texels = std::max(std::min(TexelsU(), TexelsV()) / kAcross, Longer() / kAlong);
        const int number = static_cast<int>(std::ceil(LevelFor(texels)));
        const TexelLevel<T>& level = reader_.Level(number);
        const Run1d columns(u_, width_, level.width);
        const Run1d rows(v_, height_, level.height);
        Mean<kByAlpha> sum;
        for (int y = rows.First(); y < rows.After(); ++y)
        {
            Mean<kByAlpha> line;
            for (int x = columns.First(); x < columns.After(); ++x)
                line.Add(reader_(level.At(WrapTexel(x, level.width, borderU_), WrapTexel(y, level.height, borderV_))),
                    columns.ShareOf(x));
            sum.Add(line, rows.ShareOf(y));
        }
        return sum.Result();
    }

    // Texels along the sides of a box; they are got to by taking a coarser level.
    static constexpr double kAcross = 8.0;
    static constexpr double kAlong = 256.0;

    const Reader<T, kAlpha>& reader_;
    Border borderU_;
    Border borderV_;
    double u_;
    double v_;
    double width_;
    double height_;
};

template <AlphaUse kAlpha, class T>
Channels Look(const Pyramid<T>& pyramid, const SampleRequest& request)
{
    const Reader<T, kAlpha> reader(pyramid, request.toLinear);
    return Sampler<T, kAlpha>(reader, request).Run(request.interpolation);
}

} // namespace

ColorA SamplePicture(const Picture& picture, const SampleRequest& request)
{
    Channels channels = std::visit(
        [&](const auto& pyramid) {
            if (request.alpha == texture_alpha::kPremultipliedColorSpace)
                return Look<AlphaUse::Divides>(*pyramid, request);
            if (request.alpha == texture_alpha::kStraight && !pyramid->IsOpaque())
                return Look<AlphaUse::Weighs>(*pyramid, request);
            return Look<AlphaUse::None>(*pyramid, request);
        },
        picture.texels);
    if (request.alpha == texture_alpha::kPremultiplied && channels.c[3] > 0.0)
    {
        for (int i = 0; i < 3; ++i)
            channels.c[i] /= channels.c[3];
    }
    return {channels.c[0], channels.c[1], channels.c[2], request.alpha == texture_alpha::kNone ? 1.0 : channels.c[3]};
}

} // namespace velto::host
