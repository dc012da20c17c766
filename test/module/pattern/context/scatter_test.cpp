#include "test/support/eval.h"

#include "velto/random.h"

#include <fmt/format.h>

#include <cmath>

namespace velto::test
{

using host::Json;

static constexpr UInt32 kSeed = 7;

static std::string Document(std::string_view inputs, int count, std::string_view nodes = "", UInt32 seed = kSeed)
{
    return fmt::format(
        R"({{"version": 1, "nodes": {{{} "s": {{"type": "net.velto.pattern.corenode.generator.scatter",
            "arguments": {{"count": {}}}, "inputs": {{"seed": {}, {}}}}}}},
            "outputs": {{"mask": "s.mask", "index": "s.index", "center": "s.center", "context": "s.resultContext"}}}})",
        nodes, count, seed, inputs);
}

// Items as they come, of a size that the test gives.
#define PLAIN                                                                                                          \
    R"("perItemRotation": 0, "perItemRandomRotation": 0, "perItemRandomScale": [0, 0], )"                              \
    R"("perItemRandomScaleUniform": 0, "perItemUniformScale": false, )"

static std::string Grid(int size)
{
    std::string samples;
    for (int y = 0; y < size; ++y)
    {
        for (int x = 0; x < size; ++x)
            samples += fmt::format(R"({}{{"uvw": [{}, {}, 0]}})", samples.empty() ? "" : ",", (x + 0.5) / size - 1.0,
                (y + 0.5) / size + 3.0);
    }
    return "[" + samples + "]";
}

namespace
{

// An item as the streams make it, with what stands in the documents below for the functions.
struct Item
{
    int number;
    double x, y;
    double angle;
    double scaleX, scaleY;
};

struct Settings
{
    double rotation = 0.0, randomRotation = 0.0;
    double scaleX = 0.1, scaleY = 0.1;
    double randomX = 0.0, randomY = 0.0, randomUniform = 0.0;
    bool uniform = false, tile = false, removeOverlaps = false;
    double skip = -1.0, density = -1.0; // below 0: not connected

    std::string Inputs() const
    {
        return fmt::format(R"("tile": {}, "removeOverlaps": {}, "perItemRotation": {}, "perItemRandomRotation": {},
            "perItemScale": [{}, {}], "perItemRandomScale": [{}, {}], "perItemRandomScaleUniform": {},
            "perItemUniformScale": {}{}{})",
            tile, removeOverlaps, rotation, randomRotation, scaleX, scaleY, randomX, randomY, randomUniform, uniform,
            skip < 0.0 ? "" : fmt::format(R"(, "perItemSkipProbability": {})", skip),
            density < 0.0 ? "" : fmt::format(R"(, "perItemDensity": {})", density));
    }
};

// Items and copies in the order of their making, without buckets.
class BruteForce
{
public:
    BruteForce(const Settings& settings, int count, UInt32 seed = kSeed) : settings_(settings)
    {
        RandomStream random(seed);
        for (int number = 0; number < count; ++number)
        {
            Item item{number, random.Next01(), random.Next01(), 0, 0, 0};
            if (settings.skip >= 0.0 && settings.skip > random.Next01())
                continue;
            item.angle = settings.rotation + settings.randomRotation * (2 * random.Next01() - 1);
            const double tx = 2 * random.Next01() - 1;
            const double ty = settings.uniform ? tx : 2 * random.Next01() - 1;
            item.scaleX = settings.scaleX + (settings.uniform ? settings.randomUniform : settings.randomX) * tx * 2;
            item.scaleY = settings.scaleY + (settings.uniform ? settings.randomUniform : settings.randomY) * ty * 2;
            for (int k = -1; k < (settings.tile ? 9 : 0); ++k)
            {
                Item copy = item;
                if (k >= 0)
                {
                    copy.x += k / 3 - 1;
                    copy.y += k % 3 - 1;
                }
                if (k != 4 && Reaches(copy) && !(settings.removeOverlaps && Overlaps(copy)))
                    items_.push_back(copy);
            }
        }
    }

    std::size_t Count() const { return items_.size(); }

    const Item* At(double x, double y) const
    {
        const double cellX = (std::floor(x * 16) + 0.5) / 16, cellY = (std::floor(y * 16) + 0.5) / 16;
        UInt32 record = 0;
        for (const Item& item : items_)
        {
            RandomStream random(kSeed + 124 * record++ + 123);
            if (settings_.density >= 0.0 && random.Next01() > settings_.density)
                continue;
            // A square that is turned before it is stretched may reach beyond its box, where it does not show.
            const auto [w, h] = Half(item);
            const bool isFiled = std::abs(cellX - item.x) <= w + 1.0 / 32 && std::abs(cellY - item.y) <= h + 1.0 / 32;
            const auto [u, v] = Local(item, x, y);
            if (isFiled && u >= 0 && u <= 1 && v >= 0 && v <= 1)
                return &item;
        }
        return nullptr;
    }

    static std::pair<double, double> Local(const Item& item, double x, double y)
    {
        const double c = std::cos(item.angle), s = std::sin(item.angle);
        const double dx = x - item.x, dy = y - item.y;
        return {(dx * c - dy * s) / item.scaleX + 0.5, (dx * s + dy * c) / item.scaleY + 0.5};
    }

private:
    // Half the sides of an item's box: a square, turned against the angle, then stretched.
    static std::pair<double, double> Half(const Item& item)
    {
        const double reach = 0.5 * (std::abs(std::cos(item.angle)) + std::abs(std::sin(item.angle)));
        return {std::abs(item.scaleX) * reach, std::abs(item.scaleY) * reach};
    }
    static bool Reaches(const Item& item)
    {
        const auto [w, h] = Half(item);
        return item.x + w >= 0 && item.x - w <= 1 && item.y + h >= 0 && item.y - h <= 1;
    }
    bool Overlaps(const Item& item) const
    {
        const auto [w, h] = Half(item);
        for (const Item& other : items_)
        {
            const auto [ow, oh] = Half(other);
            if (other.number != item.number && std::abs(item.x - other.x) <= w + ow &&
                std::abs(item.y - other.y) <= h + oh)
                return true;
        }
        return false;
    }

    Settings settings_;
    std::vector<Item> items_;
};

class ScatterLookUp : public ::testing::TestWithParam<Settings>
{
};

} // namespace

TEST_P(ScatterLookUp, FindsWhatBruteForceFinds)
{
    constexpr int kSize = 48;
    constexpr int kCount = 60;
    const BruteForce expected(GetParam(), kCount);
    const Json results = EvalJson(Document(GetParam().Inputs(), kCount), Grid(kSize));
    int hits = 0;
    for (int y = 0; y < kSize; ++y)
    {
        for (int x = 0; x < kSize; ++x)
        {
            const auto i = static_cast<std::size_t>(y * kSize + x);
            const double u = (x + 0.5) / kSize, v = (y + 0.5) / kSize;
            const Item* const item = expected.At(u, v);
            ASSERT_EQ(item ? "true" : "false", Output(results, "mask", i)) << u << ", " << v;
            ASSERT_EQ(std::to_string(item ? item->number + 1 : 0), Output(results, "index", i)) << u << ", " << v;
            const Json context = Parse(Output(results, "context", i));
            EXPECT_EQ(item != nullptr, context.Find("uvwValid")->AsBool());
            if (!item)
                continue;
            ++hits;
            const auto [lu, lv] = BruteForce::Local(*item, u, v);
            EXPECT_TRUE(AreEqual(Parse(fmt::format("[{}, {}, 0]", lu, lv)), *context.Find("uvw"), 1e-9));
            EXPECT_EQ(context.Find("uvw")->Write(), context.Find("uvwPlusDeltaV")->Write());
            EXPECT_TRUE(
                AreEqual(Parse(fmt::format("[{}, {}]", item->x, item->y)), Parse(Output(results, "center", i))));
        }
    }
    EXPECT_GT(hits, 100);
    EXPECT_LT(hits, kSize * kSize - 100);
}

INSTANTIATE_TEST_SUITE_P(Settings, ScatterLookUp,
    ::testing::Values(Settings{}, Settings{.tile = true}, Settings{.randomRotation = 3.0, .tile = true},
        Settings{.rotation = 0.5, .scaleX = 0.2, .scaleY = 0.05, .tile = true},
        Settings{.randomRotation = 1.0, .randomX = 0.02, .randomY = 0.04, .tile = true},
        Settings{.randomUniform = 0.04, .uniform = true, .tile = true},
        Settings{.randomRotation = 1.0, .scaleX = 0.15, .scaleY = 0.15, .tile = true, .removeOverlaps = true},
        Settings{.tile = true, .skip = 0.5}, Settings{.tile = true, .density = 0.5}, Settings{.removeOverlaps = true}));

TEST(Scatter, ConnectedFunctionsDecide)
{
    const auto hits = [](std::string_view inputs) {
        const Json results =
            EvalJson(Document(PLAIN R"("perItemScale": [0.1, 0.1], )" + std::string(inputs), 60), Grid(24));
        int count = 0;
        for (std::size_t i = 0; i < 24 * 24; ++i)
            count += Output(results, "mask", i) == "true";
        return count;
    };
    const int all = hits(R"("tile": true)");
    EXPECT_GT(all, 150);
    EXPECT_EQ(0, hits(R"("perItemSkipProbability": 1)"));
    EXPECT_EQ(0, hits(R"("perItemDensity": 0)"));
    EXPECT_EQ(all, hits(R"("tile": true, "perItemDensity": 1)"));
    EXPECT_EQ(0, hits(R"("perItemShape": 0.49)"));
    EXPECT_EQ(all, hits(R"("tile": true, "perItemShape": 0.5)"));
}

TEST(Scatter, CountOfZeroIsOne)
{
    const std::string big = PLAIN R"("perItemScale": [9, 9])";
    EXPECT_EQ("1", Output(EvalJson(Document(big, 0)), "index"));
    EXPECT_EQ("1", Output(EvalJson(Document(big, 1)), "index"));
}

TEST(Scatter, StateStandsWhenTheSeedChanges)
{
    const Json results = EvalJson(Document(PLAIN R"("perItemScale": [0.3, 0.3], "tile": true)", 3),
        R"([{"uvw": [0.3, 0.3, 0]}, {"uvw": [0.3, 0.3, 0], "set": {"s.seed": 99}}])");
    EXPECT_EQ(Output(results, "index", 0), Output(results, "index", 1));
    EXPECT_EQ(Output(results, "center", 0), Output(results, "center", 1));
}

// A missing function ends the build; the look-up then goes on with what there is.
TEST(Scatter, AFailedBuildIsNotRepeated)
{
    const Json results = EvalJson(
        R"({"version": 1, "nodes": {"s": {"type": "net.velto.pattern.corenode.generator.scatter",
            "arguments": {"count": 5}, "inputs": {}}}, "outputs": {"mask": "s.mask"}})",
        "[{}, {}]");
    EXPECT_EQ("net.velto.error.nullptr", Output(results, "mask", 0));
    EXPECT_EQ("false", Output(results, "mask", 1));
}

// Rotation fails where an item lies on the first colour. What was made before stays, and shows.
TEST(Scatter, ABuildThatFailsHalfWayKeepsItsItems)
{
    constexpr int kSize = 24;
    constexpr UInt32 kLate = 5; // the ninth of its items is the first to fail
    const Settings settings{.scaleX = 0.2, .scaleY = 0.2};
    std::string inputs = settings.Inputs();
    const std::string rotation = R"("perItemRotation": 0)";
    inputs.replace(inputs.find(rotation), rotation.size(), R"("perItemRotation": {"from": "half.result"})");
    const Json results = EvalJson(Document(inputs, 20,
                                      R"("half": {"type": "net.velto.pattern.corenode.generator.checkerboard",
            "inputs": {"color2": [0, 0, 0, 1]}},)",
                                      kLate),
        "[{}," + Grid(kSize).substr(1));
    EXPECT_EQ("net.velto.error.nullptr", Output(results, "mask", 0));
    const BruteForce expected(settings, 8, kLate);
    for (int i = 0; i < kSize * kSize; ++i)
    {
        const Item* const item = expected.At((i % kSize + 0.5) / kSize, (i / kSize + 0.5) / kSize);
        ASSERT_EQ(
            std::to_string(item ? item->number + 1 : 0), Output(results, "index", static_cast<std::size_t>(i) + 1))
            << i;
    }
}

TEST(Scatter, BesideTheGridThereIsNothing)
{
    const Json results =
        EvalJson(Document(PLAIN R"("perItemScale": [9, 9])", 1), R"([{"uvw": ["nan", 0, 0]}, {"uvw": [0, "inf", 0]}])");
    for (std::size_t i = 0; i < 2; ++i)
        EXPECT_EQ("false", Output(results, "mask", i));
}

} // namespace velto::test
