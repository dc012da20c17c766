#include "levels.h"

#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <type_traits>

namespace velto::host
{

namespace
{

constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kLargePage = std::size_t(1) << 21;

std::align_val_t TexelAlignment(std::size_t bytes)
{
    return std::align_val_t(bytes >= kLargePage ? kLargePage : kCacheLine);
}

} // namespace

void* AllocateTexels(std::size_t bytes)
{
    void* const memory = ::operator new(bytes, TexelAlignment(bytes));
    if (bytes >= kLargePage)
        madvise(memory, bytes, MADV_HUGEPAGE); // small pages do as well
    return memory;
}

void FreeTexels(void* memory, std::size_t bytes)
{
    ::operator delete(memory, TexelAlignment(bytes));
}

double Transfer::ToLinear(double c) const
{
    switch (curve)
    {
    case Curve::Srgb:
        return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    case Curve::Rec709:
        return c < 0.081 ? c / 4.5 : std::pow((c + 0.099) / 1.099, 1.0 / 0.45);
    case Curve::Power:
        return c <= 0.0 ? c : std::pow(c, exponent);
    case Curve::Linear:
        break;
    }
    return c;
}

double Transfer::FromLinear(double c) const
{
    switch (curve)
    {
    case Curve::Srgb:
        return c <= 0.0031308 ? c * 12.92 : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055;
    case Curve::Rec709:
        return c < 0.018 ? c * 4.5 : 1.099 * std::pow(c, 0.45) - 0.099;
    case Curve::Power:
        return c <= 0.0 ? c : std::pow(c, 1.0 / exponent);
    case Curve::Linear:
        break;
    }
    return c;
}

namespace
{

template <class T>
constexpr double kTop = std::is_integral_v<T> ? double(std::numeric_limits<T>::max()) : 1.0;

// The values of all stored numbers, shared by the pictures of one depth and encoding.
template <class T>
std::shared_ptr<const std::vector<double>> DecodingTable(const Transfer& transfer)
{
    static std::mutex mutex;
    static std::map<std::pair<Transfer::Curve, double>, std::weak_ptr<const std::vector<double>>> tables;
    const std::lock_guard lock(mutex);
    std::weak_ptr<const std::vector<double>>& known = tables[{transfer.curve, transfer.exponent}];
    if (auto table = known.lock())
        return table;
    auto table = std::make_shared<std::vector<double>>(std::size_t(std::numeric_limits<T>::max()) + 1);
    for (std::size_t i = 0; i < table->size(); ++i)
        (*table)[i] = transfer.ToLinear(double(i) / kTop<T>);
    known = table;
    return table;
}

// How much of each texel of a row of `from` lies in one texel of a row of `to`.
struct Coverage
{
    int first = 0;
    std::vector<float> shares;
};

std::vector<Coverage> CoverRow(int from, int to)
{
    std::vector<Coverage> row(static_cast<std::size_t>(to));
    for (int i = 0; i < to; ++i)
    {
        const double begin = double(i) * from / to;
        const double end = double(i + 1) * from / to;
        Coverage& coverage = row[static_cast<std::size_t>(i)];
        coverage.first = static_cast<int>(begin);
        for (int k = coverage.first; k < from && k < end; ++k)
            coverage.shares.push_back(
                static_cast<float>((std::min(end, k + 1.0) - std::max(begin, double(k))) / (end - begin)));
    }
    return row;
}

// Reads and writes texels as numbers that can be averaged.
template <class T>
class Averaging
{
public:
    Averaging(const Pyramid<T>& pyramid, bool ofColors)
        : transfer_(ofColors ? pyramid.Encoding() : Transfer()), table_(nullptr), plain_(nullptr)
    {
        if constexpr (std::is_integral_v<T>)
        {
            table_ = pyramid.Decoded(ofColors);
            plain_ = pyramid.Decoded(false);
        }
    }

    float Read(T stored, int channel) const
    {
        if constexpr (std::is_integral_v<T>)
            return static_cast<float>(channel == 3 ? plain_[stored] : table_[stored]);
        else
            return channel == 3 ? stored : static_cast<float>(transfer_.ToLinear(stored));
    }
    T Write(float value, int channel) const
    {
        const double encoded = channel == 3 ? value : transfer_.FromLinear(value);
        if constexpr (std::is_integral_v<T>)
            return static_cast<T>(std::clamp(encoded, 0.0, 1.0) * kTop<T> + 0.5);
        else
            return static_cast<T>(encoded);
    }

private:
    Transfer transfer_;
    const double* table_;
    const double* plain_;
};

template <class T>
TexelLevel<T> Halve(const TexelLevel<T>& finer, const Averaging<T>& averaging)
{
    TexelLevel<T> level(std::max(finer.width / 2, 1), std::max(finer.height / 2, 1));
    const std::vector<Coverage> columns = CoverRow(finer.width, level.width);
    const std::vector<Coverage> rows = CoverRow(finer.height, level.height);
    for (int y = 0; y < level.height; ++y)
    {
        const Coverage& row = rows[static_cast<std::size_t>(y)];
        for (int x = 0; x < level.width; ++x)
        {
            const Coverage& column = columns[static_cast<std::size_t>(x)];
            float sum[4] = {};
            for (std::size_t j = 0; j < row.shares.size(); ++j)
            {
                for (std::size_t i = 0; i < column.shares.size(); ++i)
                {
                    const T* const texel =
                        finer.At(column.first + static_cast<int>(i), row.first + static_cast<int>(j));
                    for (int channel = 0; channel < 4; ++channel)
                        sum[channel] += averaging.Read(texel[channel], channel) * (column.shares[i] * row.shares[j]);
                }
            }
            for (int channel = 0; channel < 4; ++channel)
                level.At(x, y)[channel] = averaging.Write(sum[channel], channel);
        }
    }
    return level;
}

} // namespace

template <class T>
Pyramid<T>::Pyramid(TexelLevel<T> finest, const Transfer& transfer) : finest_(std::move(finest)), transfer_(transfer)
{
    for (int side = std::max(finest_.width, finest_.height); side > 1; side /= 2)
        ++count_;
    if constexpr (std::is_integral_v<T>)
    {
        plain_ = DecodingTable<T>({});
        linear_ = DecodingTable<T>(transfer);
    }
}

template <class T>
void Pyramid<T>::Make(Chain& chain, bool ofColors) const
{
    const Averaging<T> averaging(*this, ofColors);
    std::vector<TexelLevel<T>> levels;
    levels.reserve(static_cast<std::size_t>(count_ - 1));
    const TexelLevel<T>* finer = &finest_;
    for (int level = 1; level < count_; ++level)
    {
        levels.push_back(Halve(*finer, averaging));
        finer = &levels.back();
    }
    chain.levels = std::move(levels);
}

template <class T>
const TexelLevel<T>& Pyramid<T>::Level(int level, bool ofColors) const
{
    if (level <= 0)
        return finest_;
    Chain& chain = chains_[ofColors && transfer_.curve != Transfer::Curve::Linear ? 1 : 0];
    try
    {
        std::call_once(chain.made, [&] { Make(chain, ofColors); });
    }
    catch (const std::bad_alloc&)
    {
        return finest_; // and the next one tries again
    }
    return chain.levels[static_cast<std::size_t>(std::min(level, count_ - 1) - 1)];
}

template class Pyramid<std::uint8_t>;
template class Pyramid<std::uint16_t>;
template class Pyramid<float>;

UInt BytesOfAllLevels(UInt finest, const Transfer& transfer)
{
    const UInt chains = transfer.curve == Transfer::Curve::Linear ? 1 : 2;
    return finest + finest / 3 * chains;
}

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
    if (tileMode == 1 || !acrossTiles)
        return Border::Clamp;
    return tileMode == 3 ? Border::Mirror : Border::Repeat;
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
    const double wrapped = tileMode == 1   ? std::clamp(c, 0.0, 1.0)
                           : tileMode == 3 ? FoldCoordinate(c)
                                           : c - std::floor(c);
    return wrapped >= 0.0 && wrapped <= 1.0 ? wrapped : 0.0;
}

// A place near the tile, brought into it.
double WrapNear(double c, Border border)
{
    switch (border)
    {
    case Border::Repeat:
        return WrapCoordinate(c, 2);
    case Border::Mirror:
        return WrapCoordinate(c, 3);
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
        const double alpha = texel[3] / kTop<T>;
        Channels channels{{texel[0] / kTop<T>, texel[1] / kTop<T>, texel[2] / kTop<T>, alpha}};
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

velto::UInt velto::Picture::Bytes() const
{
    return std::visit(
        [](const auto& pyramid) {
            const auto& texels = pyramid->Finest().texels;
            return host::BytesOfAllLevels(texels.size() * sizeof(texels[0]), pyramid->Encoding());
        },
        texels);
}
