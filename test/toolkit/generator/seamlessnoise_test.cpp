#include "test/support/sampled_document.h"

#include "velto/porttypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace velto::test
{

namespace
{

class Numbers
{
public:
    // A multiple of 2^-30 from 0 to 1, which stays exact when small whole numbers are added.
    double Next()
    {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<double>(state_ >> 34) * 0x1p-30;
    }

private:
    UInt state_ = 11;
};

struct Setting
{
    std::string kind;
    Int periodU = 8;
    Int periodV = 8;
    Int periodW = 0;
    double octaves = 3;
    double lacunarity = 2;
    int seed = 1;
    double loop = 2;
};

class Noise : public SampledDocument
{
public:
    explicit Noise(const Setting& setting)
        : SampledDocument(fmt::format(R"({{"version": 1, "nodes": {{"n": {{"type": "seamlessnoise", "inputs": {{
            "kind": "{}", "periodU": {}, "periodV": {}, "periodW": {}, "octaves": {}, "lacunarity": {}, "seed": {},
            "loop": {}}}}}}}, "outputs": {{"n": "n.result"}}}})",
              setting.kind, setting.periodU, setting.periodV, setting.periodW, setting.octaves, setting.lacunarity,
              setting.seed, setting.loop))
    {
    }

    double At(double u, double v, double w = 0, double seconds = 0, double footprint = 0)
    {
        const auto* const value = SampledDocument::At<Float>({u, v, w}, footprint, seconds);
        return value ? *value : -1;
    }
};

struct Kind
{
    const char* name;
    double mean; // of one layer, in the plane
    double meanInSpace;
    bool jumps;
};

class SeamlessNoiseTest : public ::testing::TestWithParam<Kind>
{
};

// The third coordinate too where it counts, and time.
TEST_P(SeamlessNoiseTest, RepeatsToTheLastBit)
{
    const Int periods[][3] = {{1, 1, 0}, {3, 8, 0}, {7, 5, 2}};
    for (const auto& period : periods)
    {
        Noise noise({GetParam().name, period[0], period[1], period[2], 3.5});
        Numbers numbers;
        int differences = 0;
        for (int i = 0; i < 10000; ++i)
        {
            const double u = numbers.Next();
            const double v = numbers.Next();
            const double w = numbers.Next();
            const double t = numbers.Next();
            const double value = noise.At(u, v, w, t);
            differences += value != noise.At(u + 1, v, w, t) || value != noise.At(u, v + 1, w, t) ||
                           value != noise.At(u - 3, v + 2, w + 1, t + 2);
        }
        EXPECT_EQ(0, differences) << period[0] << ' ' << period[1] << ' ' << period[2];
    }
}

TEST_P(SeamlessNoiseTest, FillsItsRangeAndFadesToItsMean)
{
    for (const bool isFlat : {true, false})
    {
        for (const double octaves : {1.0, 5.0})
        {
            Noise noise({GetParam().name, 32, 32, isFlat ? 0 : 32, octaves});
            Numbers numbers;
            constexpr int kCount = 40000;
            double mean = 0;
            double square = 0;
            double least = 1;
            double most = 0;
            for (int i = 0; i < kCount; ++i)
            {
                const double value = noise.At(numbers.Next(), numbers.Next(), numbers.Next(), i % 2 * numbers.Next());
                mean += value / kCount;
                square += value * value / kCount;
                least = std::min(least, value);
                most = std::max(most, value);
            }
            SCOPED_TRACE(fmt::format("{} {} octaves: {:.4f} +- {:.4f}, {:.3f} to {:.3f}", isFlat ? "plane" : "space",
                octaves, mean, std::sqrt(square - mean * mean), least, most));
            if (octaves == 1.0)
                EXPECT_NEAR(isFlat ? GetParam().mean : GetParam().meanInSpace, mean, 0.02);
            EXPECT_GE(least, 0);
            EXPECT_LE(most, 1);
            EXPECT_GT(most - least, 0.45);
            EXPECT_GT(std::sqrt(square - mean * mean), 0.08);
            EXPECT_NEAR(mean, noise.At(0.3, 0.7, 0.1, 0, 1), std::string(GetParam().name) == "ridged" ? 0.06 : 0.02);
        }
    }
}

// Along both axes, across the seam, and in time.
TEST_P(SeamlessNoiseTest, IsContinuous)
{
    if (GetParam().jumps)
        return;
    for (const Int periodW : {0, 4})
    {
        Noise noise({GetParam().name, 4, 4, periodW, 1});
        for (const int direction : {0, 1, 2, 3})
        {
            constexpr int kSteps = 40000;
            double last = 0;
            double largest = 0;
            for (int i = 0; i <= kSteps; ++i)
            {
                const double t = 2.0 * i / kSteps - 0.5;
                const double value = noise.At(direction == 0 ? t : 0.37, direction == 1 ? t : 0.61,
                    direction == 2 ? t : 0.13, direction == 3 ? t : 0.2);
                largest = std::max(largest, i > 0 ? std::abs(value - last) : 0.0);
                last = value;
            }
            EXPECT_LT(largest, 0.005) << direction;
        }
    }
}

TEST_P(SeamlessNoiseTest, LooksAlikeAlongBothAxes)
{
    Noise noise({GetParam().name, 16, 16, 0, 2});
    Numbers numbers;
    double along[3] = {};
    constexpr double kStep = 1.0 / 128;
    for (int i = 0; i < 20000; ++i)
    {
        const double u = numbers.Next();
        const double v = numbers.Next();
        const double toU = noise.At(u + kStep, v) - noise.At(u - kStep, v);
        const double toV = noise.At(u, v + kStep) - noise.At(u, v - kStep);
        along[0] += toU * toU;
        along[1] += toV * toV;
        along[2] += toU * toV;
    }
    EXPECT_NEAR(1.0, along[0] / along[1], 0.2);
    EXPECT_NEAR(0.0, along[2] / along[0], 0.12);
}

TEST_P(SeamlessNoiseTest, EverySettingCounts)
{
    const Setting setting{GetParam().name};
    const auto differs = [&](Setting other, double seconds = 0) {
        Noise noise(setting);
        Noise changed(other);
        Numbers numbers;
        int differences = 0;
        for (int i = 0; i < 100; ++i)
        {
            const double u = numbers.Next();
            const double v = numbers.Next();
            differences += noise.At(u, v) != changed.At(u, v, 0, seconds);
        }
        return differences;
    };
    const bool hasLayers = setting.kind != "gradient";
    Setting other = setting;
    other.seed = 2;
    EXPECT_GT(differs(other), 90);
    other = setting;
    other.periodU = 9;
    EXPECT_GT(differs(other), 90);
    other = setting;
    other.lacunarity = 2.4; // rounded
    EXPECT_EQ(0, differs(other));
    other.lacunarity = 2.6;
    EXPECT_EQ(hasLayers, differs(other) > 90);
    other = setting;
    other.octaves = 3.5;
    EXPECT_EQ(hasLayers, differs(other) > 90);
    EXPECT_GT(differs(setting, 0.4), 60); // a cell keeps its value
    other = setting;
    other.loop = 0;
    EXPECT_EQ(0, differs(other, 0.4));
}

INSTANTIATE_TEST_SUITE_P(Kinds, SeamlessNoiseTest,
    ::testing::Values(Kind{"value", 0.5, 0.5, false}, Kind{"gradient", 0.5, 0.5, false}, Kind{"fbm", 0.5, 0.5, false},
        Kind{"turbulence", 0.445, 0.424, false}, Kind{"ridged", 0.577, 0.594, false},
        Kind{"cells", 0.381, 0.464, false}, Kind{"cellborders", 0.275, 0.2, false}, Kind{"cellvalues", 0.5, 0.5, true}),
    [](const ::testing::TestParamInfo<Kind>& kind) { return std::string(kind.param.name); });

} // namespace

} // namespace velto::test
