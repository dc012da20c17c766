#include "host/noise/rendernoise.h"

#include "host/loader/services.h"
#include "host/noise/noisemath.h"
#include "host/registry/registry.h"
#include "host/system/allocator.h"
#include "test/support/numbers.h"
#include "velto/porttypes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <vector>

namespace velto::host
{

namespace
{

using test::Numbers;

class NoiseClassTest : public ::testing::TestWithParam<NoiseClass>
{
protected:
    void SetUp() override
    {
        Services();
        noise_ = MakeNoise(GetParam(), BestNoiseKernels());
        Init(1, 2.0, 0.5, 1.0);
    }

    void Init(UInt32 seed, Float lacunarity, Float gain, Float exponent)
    {
        DataDictionary settings;
        ASSERT_TRUE(Bound<DataDictionaryInterface>().Alloc(settings.Receive()).IsOk());
        ASSERT_TRUE(SetData(settings, noise_setting::kLacunarity, lacunarity).IsOk());
        ASSERT_TRUE(SetData(settings, noise_setting::kGain, gain).IsOk());
        ASSERT_TRUE(SetData(settings, noise_setting::kExponent, exponent).IsOk());
        ASSERT_TRUE(noise_->init(noise_.Get(), seed, kNoiseComplexity, settings.Get()).IsOk());
    }

    float At(
        float x, float y, float z, float time = 0, float octaves = 1, bool absolute = false, float filter = 0) const
    {
        return noise_->noise(noise_.Get(), x, y, z, time, octaves, absolute, filter);
    }
    float Flat(float x, float y, float time = 0, float octaves = 1, bool absolute = false, float filter = 0) const
    {
        return noise_->noise2d(noise_.Get(), x, y, time, octaves, absolute, filter);
    }
    // A field of one kind or the other.
    float In(bool isFlat, float x, float y, float z, float time = 0, float octaves = 1) const
    {
        return isFlat ? Flat(x, y, time, octaves) : At(x, y, z, time, octaves);
    }

    Ref<RenderNoiseInterface> noise_;
};

struct Statistics
{
    double mean = 0.0;
    double deviation = 0.0;
    double least = 1e9;
    double largest = -1e9;

    explicit Statistics(const std::vector<double>& values)
    {
        for (const double v : values)
        {
            mean += v / static_cast<double>(values.size());
            least = std::min(least, v);
            largest = std::max(largest, v);
        }
        for (const double v : values)
            deviation += (v - mean) * (v - mean) / static_cast<double>(values.size());
        deviation = std::sqrt(deviation);
    }
};

TEST_P(NoiseClassTest, FillsItsRange)
{
    const bool isSigned = GetParam().isSigned;
    for (const bool isFlat : {false, true})
    {
        for (const float octaves : {1.0f, 5.5f})
        {
            Numbers numbers;
            std::vector<double> values;
            for (int i = 0; i < 20000; ++i)
                values.push_back(In(isFlat, numbers.Next(-300, 300), numbers.Next(-300, 300), numbers.Next(-300, 300),
                    i % 2 ? numbers.Next(0, 100) : 0.0f, octaves));
            const Statistics s(values);
            EXPECT_GE(s.least, isSigned ? -1.0 : 0.0);
            EXPECT_LE(s.largest, 1.0);
            EXPECT_GT(s.deviation, 0.07) << isFlat << ' ' << octaves;
            EXPECT_GT(s.largest - s.least, isSigned ? 1.0 : 0.45) << isFlat << ' ' << octaves;
        }
    }
}

TEST_P(NoiseClassTest, AbsoluteIsWithoutSign)
{
    Numbers numbers;
    for (int i = 0; i < 200; ++i)
    {
        const float x = numbers.Next(-9, 9);
        const float y = numbers.Next(-9, 9);
        EXPECT_EQ(std::abs(At(x, y, 0.3f, 0, 3)), At(x, y, 0.3f, 0, 3, true));
        EXPECT_EQ(std::abs(Flat(x, y, 0, 3)), Flat(x, y, 0, 3, true));
    }
}

// Along lines across hundreds of cells, in each of the directions that a value depends on.
TEST_P(NoiseClassTest, IsContinuous)
{
    constexpr float kStep = 1.0f / 1024.0f;
    // The steepest slopes are those of the classes with sharp edges.
    constexpr double kLargestStep = 0.05;
    for (const bool isFlat : {false, true})
    {
        for (const int direction : {0, 1, 2, 3})
        {
            int jumps = 0;
            float last = 0.0f;
            for (int i = 0; i < 60000; ++i)
            {
                const float t = static_cast<float>(i) * kStep;
                const float at[] = {
                    direction == 0 ? t - 20 : 3.3f, direction == 1 ? t - 20 : 0.7f, direction == 2 ? t - 20 : 1.9f};
                const float value = In(isFlat, at[0], at[1], at[2], direction == 3 ? t : 0.25f);
                jumps += i > 0 && std::abs(value - last) > kLargestStep;
                last = value;
            }
            const bool hasEdges = GetParam().hasEdges && !(GetParam().name == "box" && direction == 3);
            EXPECT_EQ(0, hasEdges ? 0 : jumps) << isFlat << ' ' << direction;
        }
    }
}

TEST_P(NoiseClassTest, OctavesFadeIn)
{
    Numbers numbers;
    for (int i = 0; i < 100; ++i)
    {
        const float x = numbers.Next(-9, 9);
        const float y = numbers.Next(-9, 9);
        const float z = numbers.Next(-9, 9);
        for (const float whole : {1.0f, 2.0f, 5.0f})
        {
            const float at = At(x, y, z, 0, whole);
            EXPECT_NEAR(at, At(x, y, z, 0, whole - 1e-4f), 0.02) << whole;
            EXPECT_NEAR(at, At(x, y, z, 0, whole + 1e-4f), 0.02) << whole;
        }
        EXPECT_EQ(At(x, y, z, 0, 16), At(x, y, z, 0, 1e9f));
        EXPECT_EQ(At(x, y, z, 0, 0), At(x, y, z, 0, -3));
    }
    // No octave, no pattern.
    std::vector<double> values;
    std::vector<double> whole;
    for (int i = 0; i < 2000; ++i)
    {
        const float x = numbers.Next(-90, 90);
        values.push_back(At(x, x * 0.7f, 3.1f, 0, 0));
        whole.push_back(At(x, x * 0.7f, 3.1f, 0, 1));
    }
    EXPECT_LT(Statistics(values).deviation, 1e-3);
    EXPECT_GT(Statistics(whole).deviation, 0.05);
}

TEST_P(NoiseClassTest, NothingRepeats)
{
    for (const bool isFlat : {false, true})
    {
        for (const int direction : {0, 1, 2, 3})
        {
            if (isFlat && direction == 2)
                continue;
            for (float period = 1.0f; period <= 256.0f; period += 1.0f)
            {
                int same = 0;
                for (int i = 0; i < 24; ++i)
                {
                    const float t = static_cast<float>(i) * 0.37f;
                    const auto at = [&](float shift) {
                        return In(isFlat, t + (direction == 0 ? shift : 0), 0.71f * t + (direction == 1 ? shift : 0),
                            1.3f + 0.2f * t + (direction == 2 ? shift : 0), 1.0f + (direction == 3 ? shift : 0), 2);
                    };
                    same += std::abs(at(0) - at(period)) < 1e-4f;
                }
                // Shapes with flat parts are alike there.
                EXPECT_LT(same, 22) << isFlat << ' ' << direction << ' ' << period;
            }
        }
    }
}

TEST_P(NoiseClassTest, DependsOnAllThatItIsGiven)
{
    Numbers numbers;
    std::map<std::string, int> changes;
    std::vector<std::pair<float, float>> places;
    std::vector<float> before;
    for (int i = 0; i < 200; ++i)
    {
        const float x = numbers.Next(-40, 40);
        const float y = numbers.Next(-40, 40);
        const float value = At(x, y, 0.6f, 0, 3);
        changes["x"] += At(x + 0.4f, y, 0.6f, 0, 3) != value;
        changes["y"] += At(x, y + 0.4f, 0.6f, 0, 3) != value;
        changes["z"] += At(x, y, 1.0f, 0, 3) != value;
        changes["time"] += At(x, y, 0.6f, 0.7f, 3) != value;
        changes["octaves"] += At(x, y, 0.6f, 0, 4) != value;
        changes["filter"] += At(x, y, 0.6f, 0, 3, false, 0.3f) != value;
        const float flat = Flat(x, y, 0, 3);
        changes["flat x"] += Flat(x + 0.4f, y, 0, 3) != flat;
        changes["flat y"] += Flat(x, y + 0.4f, 0, 3) != flat;
        places.emplace_back(x, y);
        before.push_back(value);
    }
    const std::tuple<const char*, UInt32, Float, Float, Float> settings[] = {{"seed", 2, 2.0, 0.5, 1.0},
        {"lacunarity", 1, 2.3, 0.5, 1.0}, {"gain", 1, 2.0, 0.8, 1.0}, {"exponent", 1, 2.0, 0.5, 1.7}};
    for (const auto& [name, seed, lacunarity, gain, exponent] : settings)
    {
        Init(seed, lacunarity, gain, exponent);
        for (std::size_t i = 0; i < places.size(); ++i)
            changes[name] += At(places[i].first, places[i].second, 0.6f, 0, 3) != before[i];
    }
    for (const auto& [name, count] : changes)
        EXPECT_GT(count, 40) << name;
}

// What one sample cannot show is gone, not turned into noise, and at no width does the whole grow darker or brighter.
TEST_P(NoiseClassTest, AFilterKeepsTheMean)
{
    // The nodes that sample the plane do so unfiltered: what counts there is the mean that less than one octave shows.
    for (const auto& [isFlat, octaves] : {std::pair(true, 1.0f), {false, 1.0f}, {false, 2.5f}, {false, 6.0f}})
    {
        for (const bool absolute : {true, false})
        {
            const auto field = [&, isFlat = isFlat, octaves = octaves](float filter) {
                Numbers numbers;
                std::vector<double> values;
                for (int i = 0; i < 20000; ++i)
                {
                    const float x = numbers.Next(-90, 90);
                    const float y = numbers.Next(-90, 90);
                    const float z = numbers.Next(-90, 90);
                    values.push_back(
                        isFlat ? Flat(x, y, 0, octaves, absolute, filter) : At(x, y, z, 0, octaves, absolute, filter));
                }
                return Statistics(values);
            };
            const double truth = field(0.0f).mean;
            for (const float filter : {0.1f, 0.3f, 0.4f, 0.5f, 0.7f, 2.0f})
                EXPECT_NEAR(truth, field(filter).mean, 0.02)
                    << "plane " << isFlat << " absolute " << absolute << " octaves " << octaves << " filter " << filter;
            EXPECT_LT(field(2.0f).deviation, 1e-3);
        }
    }
}

TEST_P(NoiseClassTest, StrangeNumbersGiveANumber)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const auto isGood = [](float value) { return value >= -1.0f && value <= 1.0f; };
    for (const bool isOdd : {false, true})
    {
        if (isOdd)
            Init(0, nan, -infinity, -1.0);
        for (const float x : {nan, infinity, -infinity, 1e30f, -4e9f, 3e7f, -0.0f})
        {
            EXPECT_TRUE(isGood(At(x, 1, 1, 1, 3))) << x;
            EXPECT_TRUE(isGood(At(1, 1, x, x, 3))) << x;
            EXPECT_TRUE(isGood(At(1, 1, 1, 1, x))) << x;
            EXPECT_TRUE(isGood(At(1, 1, 1, 1, 3, true, x))) << x;
            EXPECT_TRUE(isGood(Flat(x, 1, x, 3))) << x;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, NoiseClassTest, ::testing::ValuesIn(NoiseClasses().begin(), NoiseClasses().end()),
    [](const ::testing::TestParamInfo<NoiseClass>& info) { return std::string(info.param.name); });

// All kernels, still and moving, with octaves of every number, filters of every width and places that are no numbers.
TEST_P(NoiseClassTest, ManyAtOnceAreAsOneByOne)
{
    constexpr Int kCount = 61;
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    Numbers numbers;
    std::vector<float> x(kCount), y(kCount), z(kCount), filter(kCount), values(kCount);
    const auto fill = [&](Int i) {
        const auto at = static_cast<std::size_t>(i);
        const float size = i % 8 == 0 ? 1e9f : 10.0f;
        x[at] = i == 5 ? kNone : numbers.Next(-size, size);
        y[at] = i == 6 ? std::numeric_limits<float>::infinity() : numbers.Next(-size, size);
        z[at] = numbers.Next(-size, size);
        filter[at] = i % 4 == 0 ? 0.0f : i == 7 ? kNone : numbers.Next(0.0, 1.0);
    };
    for (const NoiseKernels* const kernels : AllNoiseKernels())
    {
        noise_ = MakeNoise(GetParam(), *kernels);
        Init(3, 1.9, 0.6, kernels == AllNoiseKernels()[0] ? 1.0 : 1.7);
        for (const float octaves : {0.0f, 0.4f, 1.0f, 2.5f, 8.0f, 20.0f})
        {
            for (const float time : {0.0f, 1.7f, 1e8f})
            {
                for (const bool isFlat : {false, true})
                {
                    for (Int i = 0; i < kCount; ++i)
                        fill(i);
                    const Bool isAbsolute = octaves != 2.5f;
                    std::vector<BlockArgument> arguments{{x.data(), 0}, {y.data(), 0}};
                    if (!isFlat)
                        arguments.push_back({z.data(), 0});
                    arguments.insert(
                        arguments.end(), {{&time, 1}, {&octaves, 1}, {&isAbsolute, 1}, {filter.data(), 0}});
                    NoiseBlockForms()[isFlat ? 1 : 0].second(noise_.Get(), kCount, arguments.data(), values.data());
                    for (std::size_t i = 0; i < values.size(); ++i)
                        ASSERT_EQ(isFlat ? Flat(x[i], y[i], time, octaves, isAbsolute, filter[i])
                                         : At(x[i], y[i], z[i], time, octaves, isAbsolute, filter[i]),
                            values[i])
                            << kernels->name << ", " << octaves << " octaves at " << x[i] << ", " << y[i] << ", "
                            << z[i] << ", filter " << filter[i];
                }
            }
        }
    }
}

TEST(RenderNoiseTest, ClassesAreInTheRegistryAndReportThatThereIsNoMemory)
{
    Services();
    for (const NoiseClass& noiseClass : NoiseClasses())
    {
        const std::string name = "net.velto.render.rendernoiseclass." + std::string(noiseClass.name);
        const Data* const entry = FindEntry(registry::kRenderNoiseClasses.View(), name);
        ASSERT_TRUE(entry) << name;
        const RenderNoiseClass* const found = entry->As<RenderNoiseClass>();
        ASSERT_TRUE(found) << name;
        RenderNoiseInterface* made = nullptr;
        AllocationFault::FailAt(0);
        const Result failed = (*found)->create(found->Get(), &made);
        AllocationFault::Disarm();
        EXPECT_EQ("net.velto.error.outofmemory", failed.Kind());
        EXPECT_EQ(nullptr, made);
    }
}

TEST(NoiseMathTest, PowersAreRight)
{
    for (const float base : {1e-20f, 0.001f, 0.3f, 0.70710678f, 0.7071068f, 0.9f, 0.99999f, 1.0f})
    {
        for (const double exponent : {0.01, 0.5, 1.0, 1.7, 3.0, 20.0})
            EXPECT_NEAR(std::pow(static_cast<double>(base), exponent), UnitPower(base, exponent),
                1e-6 * std::pow(static_cast<double>(base), exponent) + 1e-38);
    }
    EXPECT_EQ(0.0f, UnitPower(0.0f, 2.0));
    EXPECT_EQ(1.0f, UnitPower(0.0f, 0.0));
    EXPECT_EQ(1.0f, UnitPower(0.5f, -1.0));
}

} // namespace

} // namespace velto::host
