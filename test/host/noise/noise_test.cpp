#include "host/noise/noise.h"

#include "host/loader/services.h"
#include "host/noise/noisekernels.h"
#include "host/system/allocator.h"

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

class Numbers
{
public:
    float Next(float from, float to)
    {
        state_ = state_ * 69069 + 1;
        return from + (to - from) * (static_cast<float>(state_ >> 8) * 0x1p-24f);
    }

private:
    UInt32 state_ = 7;
};

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

struct FeaturePoint
{
    Int32 id;
    double at[3];
};

// The feature point that is nearest to a place, from distances alone: it lies where the slope of the distance leads.
FeaturePoint Locate(const NoiseKernels& kernels, UInt32 seed, const double (&from)[3])
{
    const auto ask = [&](const double(&at)[3]) {
        NearestPoints nearest;
        kernels.nearest3d(
            seed, {static_cast<float>(at[0]), static_cast<float>(at[1]), static_cast<float>(at[2]), 0.0f}, nearest);
        return nearest;
    };
    double place[3] = {from[0], from[1], from[2]};
    FeaturePoint found{ask(from).id1, {}};
    // The second time from nearby, where the slope's rounding matters less.
    for (const double remainder : {0.1, 0.0})
    {
        constexpr double kStep = 1e-3;
        const double distance = ask(place).f1;
        for (int axis = 0; axis < 3; ++axis)
        {
            double next[3] = {place[0], place[1], place[2]};
            next[axis] += kStep;
            double last[3] = {place[0], place[1], place[2]};
            last[axis] -= kStep;
            found.at[axis] = place[axis] - distance * (double(ask(next).f1) - double(ask(last).f1)) / (2.0 * kStep);
        }
        for (int axis = 0; axis < 3; ++axis)
            place[axis] = found.at[axis] + remainder * (place[axis] - found.at[axis]);
    }
    return found;
}

// Every distance must be that of the nearest and the second nearest of all points that a dense search turns up.
TEST(NoiseKernelsTest, NearestPointsAreExact)
{
    const NoiseKernels& kernels = BestNoiseKernels();
    constexpr UInt32 kSeed = 21;
    // All points of a block of cells, with a margin of three cells about the places that are asked.
    std::vector<FeaturePoint> points;
    std::set<Int32> known;
    for (double x = -3.0; x < 4.0; x += 0.11)
    {
        for (double y = -3.0; y < 4.0; y += 0.11)
        {
            for (double z = -3.0; z < 4.0; z += 0.11)
            {
                const FeaturePoint point = Locate(kernels, kSeed, {x, y, z});
                NearestPoints nearest;
                kernels.nearest3d(kSeed,
                    {static_cast<float>(point.at[0]), static_cast<float>(point.at[1]), static_cast<float>(point.at[2]),
                        0.0f},
                    nearest);
                // A slope across a cell's wall leads nowhere.
                if (nearest.f1 < 5e-4f && nearest.id1 == point.id && known.insert(point.id).second)
                    points.push_back(point);
            }
        }
    }
    // One in each of the 343 cells, and some beyond the rim.
    EXPECT_GT(points.size(), 343u) << "cells";
    EXPECT_LT(points.size(), 800u) << points.size();
    Numbers numbers;
    for (int i = 0; i < 20000; ++i)
    {
        const NoisePoint place{numbers.Next(0, 1), numbers.Next(0, 1), numbers.Next(0, 1), 0.0f};
        std::pair<double, Int32> first{1e9, 0};
        std::pair<double, Int32> second{1e9, 0};
        for (const FeaturePoint& point : points)
        {
            const double d = std::hypot(point.at[0] - place.x, point.at[1] - place.y, point.at[2] - place.z);
            if (d < first.first)
            {
                second = first;
                first = {d, point.id};
            }
            else if (d < second.first)
                second = {d, point.id};
        }
        NearestPoints nearest;
        kernels.nearest3d(kSeed, place, nearest);
        ASSERT_NEAR(first.first, nearest.f1, 1e-4) << i;
        ASSERT_NEAR(second.first, nearest.f2, 1e-4) << i;
        if (second.first - first.first > 1e-3)
        {
            ASSERT_EQ(first.second, nearest.id1) << i;
        }
    }
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
