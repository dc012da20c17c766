#include "pyramid.h"

#include <sys/mman.h>

#include <algorithm>
#include <map>

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
namespace
{

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
        (*table)[i] = transfer.ToLinear(double(i) / kTopOf<T>);
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
            return static_cast<T>(std::clamp(encoded, 0.0, 1.0) * kTopOf<T> + 0.5);
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
