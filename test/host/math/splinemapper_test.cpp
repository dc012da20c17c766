#include "host/math/splinemapper.h"

#include "host/loader/services.h"
#include "host/system/allocator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velto::test
{

namespace
{

class SplineMapperTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        host::Services();
        ASSERT_TRUE(mappers.Alloc(mapper.Receive()).IsOk());
        mappers.SetRange(mapper.Get(), {0, 0}, {1, 1});
    }

    void Add(double x, double y, SplineInterpolation interpolation, Vector2d left = {}, Vector2d right = {})
    {
        BaseArray<SplineKnot>* knots = nullptr;
        ASSERT_TRUE(mappers.GetKnotsRW(mapper.Get(), &knots).IsOk());
        ASSERT_TRUE(knots->Append({{x, y}, interpolation, left, right}).IsOk());
    }

    double At(double x) { return mappers.GetPoint(mapper.Get(), x).y; }

    const SplineMapperInterface& mappers = host::SplineMapperService();
    Ref<SplineMapper> mapper;
};

} // namespace

// A curve has one height for every x, however far its tangents reach, and runs through its ends.
TEST_F(SplineMapperTest, BezierCurvesAreFunctions)
{
    for (const double reach : {0.0, 0.2, 1.0, 5.0, -1.0})
    {
        ASSERT_TRUE(mappers.Alloc(mapper.Receive()).IsOk());
        Add(0, 0, SplineInterpolation::Bezier, {}, {reach, 0});
        Add(1, 1, SplineInterpolation::Bezier, {-reach, 0}, {});
        EXPECT_EQ(0.0, At(0));
        EXPECT_EQ(1.0, At(1));
        EXPECT_NEAR(0.5, At(0.5), 1e-12);
        double last = 0.0;
        for (int i = 1; i <= 1000; ++i)
        {
            const double y = At(i / 1000.0);
            ASSERT_GE(y, last - 1e-9) << i << ", tangents of " << reach;
            last = y;
        }
    }
    // With tangents along the line it is the line.
    ASSERT_TRUE(mappers.Alloc(mapper.Receive()).IsOk());
    Add(0, 0, SplineInterpolation::Bezier, {}, {0.3, 0.6});
    Add(0.5, 1, SplineInterpolation::Bezier, {-0.1, -0.2}, {});
    for (int i = 0; i <= 50; ++i)
        ASSERT_NEAR(i / 50.0, At(i / 100.0), 1e-12);
}

TEST_F(SplineMapperTest, CubicCurvesFollowTheTension)
{
    Add(0, 0, SplineInterpolation::Cubic);
    Add(0.25, 0.5, SplineInterpolation::Cubic);
    Add(0.75, 0.5, SplineInterpolation::Cubic);
    Add(1, 0, SplineInterpolation::Cubic);
    // Slopes of 2/3 and -2/3 over half a unit: Hermite's weight half way is an eighth each.
    EXPECT_NEAR(0.5 + 2.0 * 0.125 * 0.5 * (2.0 / 3.0), At(0.5), 1e-15);
    mappers.SetTension(mapper.Get(), 1.0);
    EXPECT_NEAR(0.5, At(0.5), 1e-15);
    EXPECT_NEAR(0.25, At(0.125), 1e-15);
    // The curve ends before knots without a number.
    mappers.SetTension(mapper.Get(), 0.0);
    const double before = At(0.9);
    Add(std::nan(""), 5, SplineInterpolation::Cubic);
    EXPECT_EQ(before, At(0.9));
    EXPECT_EQ(0.0, At(2.0));
}

TEST_F(SplineMapperTest, KnotsAreSortedAndKeepTheirOrderOnOnePlace)
{
    for (const int count : {5, 200})
    {
        ASSERT_TRUE(mappers.Alloc(mapper.Receive()).IsOk());
        for (int i = 0; i < count; ++i)
            Add(i == 3 ? std::nan("") : (count - i) / 3, i, SplineInterpolation::Linear);
        mappers.SortKnots(mapper.Get());
        BaseArray<SplineKnot>* knots = nullptr;
        ASSERT_TRUE(mappers.GetKnotsRW(mapper.Get(), &knots).IsOk());
        for (Int i = 1; i < knots->Count() - 1; ++i)
        {
            const Vector2d a = (*knots)[i - 1].position;
            const Vector2d b = (*knots)[i].position;
            ASSERT_TRUE(a.x < b.x || (a.x == b.x && a.y < b.y)) << i;
        }
        EXPECT_TRUE(std::isnan(knots->Last().position.x));
        for (const double x : {0.5, 1e300, std::nan(""), -std::numeric_limits<double>::infinity()})
            At(x); // does not fail
    }
}

TEST_F(SplineMapperTest, PositionsAreHeldToTheRangeWhicheverWayItIsGiven)
{
    for (const bool swapped : {false, true})
    {
        const Vector2d low{-1, 2};
        const Vector2d high{3, 4};
        mappers.SetRange(mapper.Get(), swapped ? high : low, swapped ? low : high);
        EXPECT_EQ((Vector2d{-1, 4}), mappers.ClampPosition(mapper.Get(), {-9, 9}));
        EXPECT_EQ((Vector2d{3, 2}), mappers.ClampPosition(mapper.Get(), {9, -9}));
        EXPECT_EQ((Vector2d{0, 3}), mappers.ClampPosition(mapper.Get(), {0, 3}));
    }
}

// A thread's next mapper takes over the room of the last one, and nothing else of it.
TEST_F(SplineMapperTest, MappersAreMadeFromOldOnes)
{
    Add(0, 0.3, SplineInterpolation::Linear);
    mappers.SetTension(mapper.Get(), 1.0);
    mappers.SetRange(mapper.Get(), {5, 5}, {6, 6});
    mapper = {};
    host::AllocationFault::FailAt(0, true);
    const bool made = mappers.Alloc(mapper.Receive()).IsOk();
    BaseArray<SplineKnot>* knots = nullptr;
    const bool resized = made && mappers.GetKnotsRW(mapper.Get(), &knots).IsOk() && knots->Resize(1).IsOk();
    host::AllocationFault::Disarm();
    ASSERT_TRUE(made && resized);
    EXPECT_EQ((Vector2d{0, 1}), mappers.ClampPosition(mapper.Get(), {-1, 5}));
    EXPECT_EQ(Vector2d{}, (*knots)[0].position);
}

} // namespace velto::test
