#include "pyramid.h"

#include "velto/system.h"

#include <algorithm>
#include <map>

namespace velto::host
{

void* AllocateTexels(std::size_t bytes)
{
    void* const memory = Allocate(bytes);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

void FreeTexels(void* memory)
{
    Bound<SystemInterface>().Free(memory);
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

// Gives the rows of a level as numbers that can be averaged, and takes those of coarser ones. Colours that count by
// their alpha are multiplied by it. What is all but transparent counts next to nothing, so that colours are left where
// there is nothing else.
template <class T>
class RowForm
{
public:
    RowForm(const Pyramid<T>& pyramid, LevelKind kind)
        : pyramid_(pyramid), transfer_(kind.isLinear ? pyramid.Encoding() : Transfer()), kind_(kind)
    {
    }

    void Read(const TexelLevel<T>& level, int y, std::vector<float>& row) const
    {
        row.resize(static_cast<std::size_t>(level.width) * 4);
        float* to = row.data();
        for (int x = 0; x < level.width; ++x, to += 4)
        {
            const T* const texel = level.At(x, y);
            to[3] = static_cast<float>(texel[3] / kTopOf<T>);
            if (kind_.isByAlpha)
                to[3] = std::max(to[3], kLeast);
            for (int i = 0; i < 3; ++i)
                to[i] = kind_.isByAlpha ? Value(texel[i]) * to[3] : Value(texel[i]);
        }
    }

    void Write(const std::vector<float>& row, int y, TexelLevel<T>& level) const
    {
        const float* from = row.data();
        for (int x = 0; x < level.width; ++x, from += 4)
        {
            T* const texel = level.At(x, y);
            const bool up = ((x ^ y) & 1) != 0;
            for (int i = 0; i < 3; ++i)
                texel[i] = Stored<T>(transfer_.FromLinear(kind_.isByAlpha ? from[i] / from[3] : from[i]), up);
            texel[3] = Stored<T>(kind_.isByAlpha && from[3] < 2.0f * kLeast ? 0.0f : from[3], up);
        }
    }

private:
    static constexpr float kLeast = 1e-12f;

    float Value(T stored) const
    {
        if constexpr (std::is_integral_v<T>)
            return static_cast<float>(pyramid_.Decoded(kind_.isLinear)[stored]);
        else
            return static_cast<float>(transfer_.ToLinear(stored));
    }

    const Pyramid<T>& pyramid_;
    Transfer transfer_;
    LevelKind kind_;
};

// Makes the rows of all coarser levels as those of the finest pass by. Levels are made of what was before it was
// rounded to be kept, and no more than a row of each is held in this form.
template <class T>
class Coarsening
{
public:
    Coarsening(const RowForm<T>& form, std::vector<TexelLevel<T>>& levels, int width, int height)
        : form_(form), levels_(levels)
    {
        for (const TexelLevel<T>& level : levels)
        {
            steps_.push_back({CoverRow(width, level.width), CoverRow(height, level.height),
                std::vector<float>(static_cast<std::size_t>(level.width) * 4)});
            width = level.width;
            height = level.height;
        }
    }

    // Row `y` of the level before step number `number`.
    void Add(std::size_t number, int y, const std::vector<float>& row)
    {
        if (number == steps_.size())
            return;
        Step& step = steps_[number];
        // A row in the middle of an odd number belongs to two.
        while (step.made < levels_[number].height && y >= step.rows[static_cast<std::size_t>(step.made)].first)
        {
            const Coverage& cover = step.rows[static_cast<std::size_t>(step.made)];
            const auto at = static_cast<std::size_t>(y - cover.first);
            AddNarrowed(step, row, cover.shares[at]);
            if (at + 1 < cover.shares.size())
                return;
            form_.Write(step.sums, step.made, levels_[number]);
            Add(number + 1, step.made, step.sums);
            std::fill(step.sums.begin(), step.sums.end(), 0.0f);
            ++step.made;
        }
    }

private:
    struct Step
    {
        std::vector<Coverage> columns;
        std::vector<Coverage> rows;
        std::vector<float> sums;
        int made = 0; // rows
    };

    static void AddNarrowed(Step& step, const std::vector<float>& row, float share)
    {
        float* to = step.sums.data();
        for (const Coverage& column : step.columns)
        {
            const float* from = row.data() + static_cast<std::size_t>(column.first) * 4;
            for (const float part : column.shares)
            {
                for (int i = 0; i < 4; ++i)
                    to[i] += *from++ * (part * share);
            }
            to += 4;
        }
    }

    const RowForm<T>& form_;
    std::vector<TexelLevel<T>>& levels_;
    std::vector<Step> steps_;
};

} // namespace

template <class T>
Pyramid<T>::Pyramid(TexelLevel<T> finest, const Transfer& transfer) : finest_(std::move(finest)), transfer_(transfer)
{
    for (int side = std::max(finest_.width, finest_.height); side > 1; side /= 2)
        ++count_;
    for (int y = 0; y < finest_.height && isOpaque_; ++y)
    {
        for (int x = 0; x < finest_.width; ++x)
            isOpaque_ &= finest_.At(x, y)[3] == static_cast<T>(kTopOf<T>);
    }
    if constexpr (std::is_integral_v<T>)
    {
        plain_ = DecodingTable<T>({});
        linear_ = DecodingTable<T>(transfer);
    }
}

template <class T>
void Pyramid<T>::Make(Chain& chain, LevelKind kind) const
{
    std::vector<TexelLevel<T>> levels;
    levels.reserve(static_cast<std::size_t>(count_ - 1));
    for (int level = 1; level < count_; ++level)
        levels.emplace_back(std::max(finest_.width >> level, 1), std::max(finest_.height >> level, 1));
    const RowForm<T> form(*this, kind);
    Coarsening<T> coarsening(form, levels, finest_.width, finest_.height);
    std::vector<float> row;
    for (int y = 0; y < finest_.height; ++y)
    {
        form.Read(finest_, y, row);
        coarsening.Add(0, y, row);
    }
    chain.levels = std::move(levels);
}

template <class T>
const TexelLevel<T>& Pyramid<T>::Level(int level, LevelKind kind) const
{
    if (level <= 0)
        return finest_;
    kind.isLinear = kind.isLinear && transfer_.curve != Transfer::Curve::Linear;
    kind.isByAlpha = kind.isByAlpha && !isOpaque_;
    Chain& chain = chains_[(kind.isLinear ? 1 : 0) + (kind.isByAlpha ? 2 : 0)];
    try
    {
        std::call_once(chain.made, [&] { Make(chain, kind); });
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

UInt BytesOfAllLevels(UInt finest, const Transfer& transfer, bool isOpaque)
{
    const UInt chains = (transfer.curve == Transfer::Curve::Linear ? 1 : 2) * (isOpaque ? 1 : 2);
    return finest + finest / 3 * chains;
}

} // namespace velto::host

namespace velto
{

UInt Picture::Bytes() const
{
    return std::visit(
        [](const auto& pyramid) {
            const auto& texels = pyramid->Finest().texels;
            return host::BytesOfAllLevels(texels.size() * sizeof(texels[0]), pyramid->Encoding(), pyramid->IsOpaque());
        },
        texels);
}

UInt Picture::WholeBytes() const
{
    return std::visit(
        [this](const auto& pyramid) {
            const UInt texelBytes = 4 * sizeof(pyramid->Finest().texels[0]);
            return host::BytesOfAllLevels(static_cast<UInt>(width) * static_cast<UInt>(height) * texelBytes,
                pyramid->Encoding(), pyramid->IsOpaque());
        },
        texels);
}

} // namespace velto
