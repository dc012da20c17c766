#include "host/noise/noise.h"

#include "host/loader/services.h"
#include "host/noise/noisekernels.h"
#include "host/system/allocator.h"
#include "test/support/numbers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <vector>

namespace velto::host
{

namespace
{

using test::Numbers;

std::vector<NoisePoint> Points(int count)
{
    std::vector<NoisePoint> points;
    Numbers numbers;
    for (int i = 0; i < count; ++i)
        points.push_back({numbers.Next(-60, 60), numbers.Next(-60, 60), numbers.Next(-60, 60),
            i % 3 == 0 ? 0.0f : numbers.Next(-5, 40)});
    // On the lattice, where cells and corners tie.
    for (int i = 0; i < count / 10; ++i)
        points[static_cast<std::size_t>(i)] = {std::floor(points[static_cast<std::size_t>(i)].x),
            std::floor(points[static_cast<std::size_t>(i)].y) + 0.5f, std::floor(points[static_cast<std::size_t>(i)].z),
            0.0f};
    const float strange[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), 1e20f,
        -3e9f, 9.9e8f, -0.0f, 1e-40f};
    for (const float x : strange)
    {
        points.push_back({x, 0.3f, 0.7f, 0.0f});
        points.push_back({0.2f, x, x, x});
    }
    return points;
}

GradientBank Bank()
{
    GradientBank bank;
    Numbers numbers;
    for (int i = 0; i < kMaxOctaves; ++i)
    {
        bank.frequency[i] = std::ldexp(1.0f, i);
        bank.shiftX[i] = numbers.Next(0, 1);
        bank.shiftY[i] = numbers.Next(0, 1);
        bank.shiftZ[i] = numbers.Next(0, 1);
        bank.seed[i] = static_cast<UInt32>(i) * 77777u + 5u;
    }
    return bank;
}

// Everything that a set of kernels gives at a point.
struct Everything
{
    float fields[4 * kMaxOctaves] = {};
    float single[2] = {};
    NearestPoints nearest[3] = {};

    Everything(const NoiseKernels& kernels, const GradientBank& bank, const NoisePoint& point)
    {
        alignas(32) float values[kMaxOctaves] = {};
        int block = 0;
        for (const int count : {5, 16})
        {
            for (const auto gradients : {kernels.gradients3d, kernels.gradients2d})
            {
                gradients(bank, count, point, values);
                std::memcpy(fields + block++ * kMaxOctaves, values, sizeof(float) * static_cast<std::size_t>(count));
            }
        }
        single[0] = kernels.gradient3d(bank, point);
        single[1] = kernels.gradient2d(bank, point);
        kernels.nearest3d(3, point, nearest[0]);
        kernels.nearestMoving3d(3, point, nearest[1]);
        kernels.nearestMoving2d(3, point, nearest[2]);
    }
};

TEST(NoiseKernelsTest, AllInstructionSetsGiveTheSameBits)
{
    const auto all = AllNoiseKernels();
    const GradientBank bank = Bank();
    // On a machine that has them the wide vectors are compared, and used.
    EXPECT_NE(std::find(all.begin(), all.end(), &BestNoiseKernels()), all.end());
#if defined(__x86_64__)
    ASSERT_GE(all.size(), 2u);
    if (__builtin_cpu_supports("avx2"))
        EXPECT_STREQ("N_AVX2", BestNoiseKernels().name);
#endif
    for (const NoisePoint& point : Points(20000))
    {
        const Everything plain(*all[0], bank, point);
        EXPECT_EQ(plain.fields[0], plain.single[0]);
        EXPECT_EQ(plain.fields[kMaxOctaves], plain.single[1]);
        for (const NoiseKernels* const kernels : all)
        {
            const Everything other(*kernels, bank, point);
            ASSERT_EQ(0, std::memcmp(&plain, &other, sizeof(plain)))
                << kernels->name << " at " << point.x << ' ' << point.y << ' ' << point.z << ' ' << point.time;
        }
        for (const float value : plain.fields)
            ASSERT_LE(std::abs(value), 1.2f);
    }
}

// A distance changes by no more than the place moves; a cell that the search leaves out shows as a jump.
TEST(NoiseKernelsTest, NoPointIsMissed)
{
    const NoiseKernels& kernels = BestNoiseKernels();
    constexpr float kStep = 1.0f / 64.0f;
    Numbers numbers;
    std::set<Int32> ids;
    for (int line = 0; line < 600; ++line)
    {
        NoisePoint place{numbers.Next(-9, 9), numbers.Next(-9, 9), numbers.Next(-9, 9), 0.0f};
        NearestPoints last;
        kernels.nearest3d(21, place, last);
        for (int i = 0; i < 256; ++i)
        {
            (line % 3 == 0 ? place.x : line % 3 == 1 ? place.y : place.z) += kStep;
            NearestPoints nearest;
            kernels.nearest3d(21, place, nearest);
            ASSERT_LE(nearest.f1, nearest.f2);
            ASSERT_LE(std::abs(nearest.f1 - last.f1), kStep * 1.01f) << place.x << ' ' << place.y << ' ' << place.z;
            ASSERT_LE(std::abs(nearest.f2 - last.f2), kStep * 1.01f) << place.x << ' ' << place.y << ' ' << place.z;
            ids.insert(nearest.id1);
            last = nearest;
        }
    }
    EXPECT_GT(ids.size(), 1000u);
}

class NoiseServiceTest : public ::testing::Test
{
protected:
    void SetUp() override { Services(); }
    void TearDown() override { AllocationFault::Disarm(); }
};

TEST_F(NoiseServiceTest, ObjectsOfOneSeedAgree)
{
    const NoiseInterface& noise = NoiseService();
    const float at[] = {4.3f, -2.1f, 0.4f};
    const auto ask = [&](const NoiseObject* object) {
        float distances[2];
        Int32 ids[2];
        noise.Voronoi(object, at, 2, distances, ids);
        float nearest = 0.0f;
        Int32 id = 0;
        noise.Voronoi(object, at, 1, &nearest, &id);
        EXPECT_EQ(distances[0], nearest);
        EXPECT_EQ(ids[0], id);
        EXPECT_LE(distances[0], distances[1]);
        return ids[0];
    };
    const Ref<NoiseObject> zero = Ref<NoiseObject>::Adopt(noise.Alloc());
    const Ref<NoiseObject> one = Ref<NoiseObject>::Adopt(noise.Alloc());
    ASSERT_TRUE(noise.Init(zero.Get(), 0, 10).IsOk());
    ASSERT_TRUE(noise.Init(one.Get(), 1, 10).IsOk());
    EXPECT_EQ(ask(noise.GetDefault()), ask(zero.Get()));
    EXPECT_NE(ask(one.Get()), ask(zero.Get()));
    EXPECT_TRUE(noise.Init(nullptr, 0, 10).IsError());
}

TEST_F(NoiseServiceTest, WithoutMemoryThereIsNoObject)
{
    AllocationFault::FailAt(0);
    EXPECT_EQ(nullptr, NoiseService().Alloc());
}

} // namespace

} // namespace velto::host
