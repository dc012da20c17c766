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

// The coordinate where odd tiles run backwards: 1 is a turning point, and stays.
double FoldCoordinate(double c)
{
    const double folded = c - 2.0 * std::floor(c * 0.5);
    return folded > 1.0 ? 2.0 - folded : folded;
}

// The coordinate in its tile; what is no number becomes 0.
double WrapCoordinate(double c, std::uint8_t tileMode)
{
    const double wrapped = tileMode == kTileClamp    ? std::clamp(c, 0.0, 1.0)
                           : tileMode == kTileMirror ? FoldCoordinate(c)
                                                     : c - std::floor(c);
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

    void Add(const Channels& other, double weight)
    {
        for (int i = 0; i < 4; ++i)
            c[i] += other.c[i] * weight;
    }
};

// Reads texels of integers through tables, of floats as they are.
template <class T>
class Reader
{
public:
    Reader(const Pyramid<T>& pyramid, bool toLinear, bool isPremultiplied)
        : pyramid_(pyramid), toLinear_(toLinear && pyramid.Encoding().curve != Transfer::Curve::Linear),
          isPremultiplied_(isPremultiplied)
    {
        if constexpr (std::is_integral_v<T>)
        {
            table_ = pyramid.Decoded(toLinear);
            plain_ = pyramid.Decoded(false);
        }
    }

    // Linear light of colours that are still multiplied as they are encoded would be no mean of anything.
    const TexelLevel<T>& Level(int level) const { return pyramid_.Level(level, toLinear_ && !isPremultiplied_); }
    int LevelCount() const { return pyramid_.Count(); }

    Channels operator()(const T* texel) const
    {
        if (isPremultiplied_) [[unlikely]]
            return Unpremultiplied(texel);
        if constexpr (std::is_integral_v<T>)
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
    bool isPremultiplied_;
    const double* table_ = nullptr;
    const double* plain_ = nullptr;
};

template <class T>
class Sampler
{
public:
    Sampler(const Reader<T>& reader, const SampleRequest& request)
        : reader_(reader), borderU_(BorderOf(request.tileModeU, request.acrossTiles)),
          borderV_(BorderOf(request.tileModeV, request.acrossTiles)), u_(WrapCoordinate(request.u, request.tileModeU)),
          v_(WrapCoordinate(request.v, request.tileModeV)),
          // Of a box that is none, nothing; no box is larger than the picture.
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
    // The sides of the footprint in texels of the finest level.
    double TexelsU() const { return width_ * reader_.Level(0).width; }
    double TexelsV() const { return height_ * reader_.Level(0).height; }
    double Longer() const { return std::max(TexelsU(), TexelsV()); }

    double LevelFor(double texels) const
    {
        return texels <= 1.0 ? 0.0 : std::min(std::log2(texels), double(reader_.LevelCount() - 1));
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
        const double x = u * level.width - 0.5;
        const double y = v * level.height - 0.5;
        const double left = std::floor(x);
        const double top = std::floor(y);
        const double fx = x - left;
        const double fy = y - top;
        const int x0 = WrapTexel(static_cast<int>(left), level.width, borderU_);
        const int x1 = WrapTexel(static_cast<int>(left) + 1, level.width, borderU_);
        const int y0 = WrapTexel(static_cast<int>(top), level.height, borderV_);
        const int y1 = WrapTexel(static_cast<int>(top) + 1, level.height, borderV_);
        const Channels a = reader_(level.At(x0, y0));
        const Channels b = reader_(level.At(x1, y0));
        const Channels c = reader_(level.At(x0, y1));
        const Channels d = reader_(level.At(x1, y1));
        Channels mixed;
        for (int i = 0; i < 4; ++i)
        {
            const double upper = a.c[i] + (b.c[i] - a.c[i]) * fx;
            const double lower = c.c[i] + (d.c[i] - c.c[i]) * fx;
            mixed.c[i] = upper + (lower - upper) * fy;
        }
        return mixed;
    }

    static std::array<double, 4> CatmullRomWeights(double t)
    {
        return {t * (t * (1.0 - 0.5 * t) - 0.5), t * t * (1.5 * t - 2.5) + 1.0, t * (t * (2.0 - 1.5 * t) + 0.5),
            t * t * (0.5 * t - 0.5)};
    }

    Channels Bicubic(int number) const
    {
        const TexelLevel<T>& level = reader_.Level(number);
        const double x = u_ * level.width - 0.5;
        const double y = v_ * level.height - 0.5;
        const int left = static_cast<int>(std::floor(x)) - 1;
        const int top = static_cast<int>(std::floor(y)) - 1;
        const auto weightsX = CatmullRomWeights(x - std::floor(x));
        const auto weightsY = CatmullRomWeights(y - std::floor(y));
        Channels sum;
        for (int j = 0; j < 4; ++j)
        {
            const int row = WrapTexel(top + j, level.height, borderV_);
            Channels line;
            for (int i = 0; i < 4; ++i)
                line.Add(reader_(level.At(WrapTexel(left + i, level.width, borderU_), row)),
                    weightsX[static_cast<std::size_t>(i)]);
            sum.Add(line, weightsY[static_cast<std::size_t>(j)]);
        }
        for (double& c : sum.c)
            c = std::max(c, 0.0); // the curve swings below what it passes through
        return sum;
    }

    template <class Look>
    Channels BetweenLevels(double at, const Look& look) const
    {
        const int finer = static_cast<int>(at);
        const double share = at - finer;
        Channels mixed = look(finer);
        if (share > 0.0)
        {
            const Channels coarser = look(finer + 1);
            for (int i = 0; i < 4; ++i)
                mixed.c[i] += (coarser.c[i] - mixed.c[i]) * share;
        }
        return mixed;
    }

    Channels AlongLongerSide() const
    {
        constexpr double kMostTaps = 16.0;
        const bool alongU = TexelsU() > TexelsV();
        const double longer = std::max(Longer(), 1.0);
        const double shorter = std::max({std::min(TexelsU(), TexelsV()), 1.0, longer / kMostTaps});
        const int taps = static_cast<int>(std::ceil(longer / shorter));
        const double level = LevelFor(shorter);
        Channels sum;
        for (int tap = 0; tap < taps; ++tap)
        {
            const double offset = (tap + 0.5) / taps - 0.5;
            const double u = alongU ? WrapNear(u_ + offset * width_, borderU_) : u_;
            const double v = alongU ? v_ : WrapNear(v_ + offset * height_, borderV_);
            sum.Add(BetweenLevels(level, [&](int number) { return Bilinear(number, u, v); }), 1.0 / taps);
        }
        return sum;
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
            begin = centre * texels - half;
            end = centre * texels + half;
        }
        int First() const { return static_cast<int>(std::floor(begin)); }
        int Behind() const { return static_cast<int>(std::ceil(end)); }
        double ShareOf(int texel) const
        {
            return (std::min(end, texel + 1.0) - std::max(begin, double(texel))) / (end - begin);
        }
    };

    Channels BoxMean() const
    {
        constexpr double kMostTexels = 8.0; // along a side, by taking a coarser level
        const int number = static_cast<int>(std::ceil(LevelFor(Longer() / kMostTexels)));
        const TexelLevel<T>& level = reader_.Level(number);
        const Run1d columns(u_, width_, level.width);
        const Run1d rows(v_, height_, level.height);
        Channels sum;
        for (int y = rows.First(); y < rows.Behind(); ++y)
        {
            Channels line;
            for (int x = columns.First(); x < columns.Behind(); ++x)
                line.Add(reader_(level.At(WrapTexel(x, level.width, borderU_), WrapTexel(y, level.height, borderV_))),
                    columns.ShareOf(x));
            sum.Add(line, rows.ShareOf(y));
        }
        return sum;
    }

    const Reader<T>& reader_;
    Border borderU_;
    Border borderV_;
    double u_;
    double v_;
    double width_;
    double height_;
};

} // namespace

ColorA SamplePicture(const Picture& picture, const SampleRequest& request)
{
    Channels channels = std::visit(
        [&]<class T>(const std::unique_ptr<Pyramid<T>>& pyramid) {
            const Reader<T> reader(
                *pyramid, request.toLinear, request.alpha == texture_alpha::kPremultipliedColorSpace);
            return Sampler<T>(reader, request).Run(request.interpolation);
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
