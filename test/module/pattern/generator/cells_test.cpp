#include "test/support/node_table.h"
#include "velto/random.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace velto::test
{

static std::string Cells(std::string_view pre, std::string_view cells, std::string_view more = "")
{
    return R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.2d.pointgenerator", "inputs": {)" +
           std::string(pre) + R"(}},
        "cells": {"type": "net.velto.pattern.corenode.generator.cells",
            "inputs": {"pointDistribution": {"from": "pre.pointDistribution"})" +
           std::string(cells) + "}}" + std::string(more) + R"(},
        "outputs": {"distance": "cells.distance", "direction": "cells.direction", "center": "cells.center",
            "f1": "cells.f1", "f2": "cells.f2", "index": "cells.index"}})";
}

static constexpr const char* kEven = R"("points": 30, "seed": 5, "strategy": "1")";

#define VELTO_CELLS(points, mode, exponent, more)                                                                      \
    R"({"points": )" #points R"(, "seed": 5, "distanceMode": ")" #mode R"(", "exponent": )" #exponent more "}"
#define VELTO_HERE R"({"uvw": [0.37, 0.61, 5]})"

NODE_TABLE(CellsTable, "cells",
    {
        {"random points", VELTO_CELLS(30, 0, 1, R"(, "strategy": "0")"),
            R"({"distance": 0.15022577974096235, "f1": 0.031409085344095033, "index": 7,
            "center": [0.21977457799948752, 0.6103278468362987]})",
            VELTO_HERE, 1e-14},
        {"beyond the square nothing repeats", VELTO_CELLS(30, 0, 1, ""),
            R"({"distance": 1.8058841966253596, "f2": 2.039325293038898, "index": 17})",
            R"({"uvw": [2.5, -1, 0], "uvwValid": false})", 1e-14},
        {"without an exponent the first of all wins", VELTO_CELLS(30, 5, 0, ""),
            R"({"distance": 1, "f1": 0, "f2": 1, "index": 0})", VELTO_HERE},
        {"on a point", VELTO_CELLS(2, 0, 1, ""), R"({"distance": 0, "direction": [0, 0], "index": 0})",
            R"({"uvw": [0.4664106664713472, 0.40401537385830855, 0]})", 1e-14},
        {"one point has no second", VELTO_CELLS(1, 1, 1, ""),
            R"({"index": 0, "f1": 1.7976931348623157e308, "f2": 1.7976931348623157e308})", VELTO_HERE},
        {"no points", VELTO_CELLS(0, 1, 1, ""),
            R"({"distance": 0, "direction": [0, 0], "center": [0, 0], "f1": 0, "f2": 0, "index": 0})", VELTO_HERE},
    });

static double RadicalInverse(std::uint32_t k, std::uint32_t base, double inverse)
{
    double sum = 0.0;
    for (double f = inverse; k != 0; k /= base, f *= inverse)
        sum += (k % base) * f;
    return sum;
}

static double Measure(char mode, double dx, double dy, double e)
{
    const double x = std::abs(dx);
    const double y = std::abs(dy);
    switch (mode)
    {
    case '0':
        return std::pow(std::sqrt(dx * dx + dy * dy), e);
    case '2':
        return std::pow(dx * dx + dx * dy + dy * dy, e);
    case '3':
        return std::pow(dx * dx - dx * dy + dy * dy, e);
    case '4':
        return std::pow(x + y, e);
    case '5':
        return std::pow(std::max(x, y), e);
    case '6':
        return std::pow(std::pow(x, e) + std::pow(y, e), 1.0 / e);
    default:
        return std::pow(dx * dx + dy * dy, e);
    }
}

// The node skips points that cannot matter. That must not show, to the last bit, where powers lose digits neither.
TEST(CellsTest, MatchesAPlainSearch)
{
    constexpr std::uint32_t kPoints = 400;
    const std::uint32_t first = IntegerHash32(9);
    for (const char mode : {'0', '1', '2', '3', '4', '5', '6'})
    {
        for (const char* const exponent : {"1", "0.37", "1e-12", "3", "60", "400", "0", "-1e-12", "-0.5", "-7", "-400"})
        {
            const double e = std::stod(exponent);
            std::string samples;
            std::vector<std::pair<double, double>> places;
            for (int i = 0; i < 40; ++i)
            {
                places.emplace_back((i * 37 % 41) / 32.0 - 0.125, (i * 13 % 41) / 32.0 - 0.125);
                samples += fmt::format("{}{{\"uvw\": [{}, {}, 0]}}", i ? ", " : "[", places[i].first, places[i].second);
            }
            const host::Json results =
                EvalJson(Cells(R"("points": 400, "seed": 9, "strategy": "1")",
                             fmt::format(R"(, "distanceMode": "{}", "exponent": {})", mode, exponent)),
                    samples + "]");
            for (std::size_t i = 0; i < places.size(); ++i)
            {
                double nearest = std::numeric_limits<double>::max();
                double second = nearest;
                std::uint32_t index = 0;
                for (std::uint32_t j = 0; j < kPoints; ++j)
                {
                    const double d = Measure(mode, RadicalInverse(first + j, 2, 0.5) - places[i].first,
                        RadicalInverse(first + j, 3, 0.3333333333333333) - places[i].second, e);
                    if (d < nearest)
                    {
                        second = nearest;
                        nearest = d;
                        index = j;
                    }
                    else
                        second = std::min(second, d);
                }
                ASSERT_EQ(nearest, Parse(Output(results, "distance", i)).AsNumber())
                    << mode << ' ' << exponent << ' ' << i;
                ASSERT_EQ(second, Parse(Output(results, "f2", i)).AsNumber()) << mode << ' ' << exponent << ' ' << i;
                ASSERT_EQ(std::to_string(index), Output(results, "index", i)) << mode << ' ' << exponent << ' ' << i;
                if (nearest > 1e300 || second > 1e300)
                    continue;
                const double x = RadicalInverse(first + index, 2, 0.5);
                const double y = RadicalInverse(first + index, 3, 0.3333333333333333);
                const double length = std::hypot(places[i].first - x, places[i].second - y);
                const host::Json expected =
                    Parse(fmt::format(R"({{"center": [{}, {}], "direction": [{}, {}], "f1": {}}})", x, y,
                        (places[i].first - x) / length, (places[i].second - y) / length, second - nearest));
                ASSERT_TRUE(AreEqual(expected, *Entry(results, i).Find("outputs"), 1e-14));
            }
        }
    }
}

TEST(CellsTest, DensityThinsThePoints)
{
    const auto center = [](std::string_view pre) {
        const host::Json results =
            EvalJson(Cells(pre, R"(, "distanceMode": "0", "exponent": 1)"), R"([{"uvw": [0.3, 0.8, 0]}])");
        return Output(results, "center");
    };
    EXPECT_EQ("[0.2705525020137429, 0.7907615874428302]",
        center(R"("points": 4, "seed": 5, "strategy": "0", "distribution": 0.5)"));
    EXPECT_EQ("[0.3101606664713472, 0.8484598183027527]",
        center(R"("points": 6, "seed": 5, "strategy": "1", "distribution": 0.5)"));
    EXPECT_EQ("[0, 0]", center(R"("points": 50, "seed": 5, "strategy": "0", "distribution": 0)"));
    // A map that keeps a disc.
    const host::Json results = EvalJson(Cells(R"("points": 300, "seed": 5, "strategy": "1",
            "distribution": {"from": "disc.mask"})",
                                            R"(, "distanceMode": "5", "exponent": 1)",
                                            R"(, "disc": {"type": "net.velto.pattern.corenode.shape.circle",
            "inputs": {"scale": 1, "innersoftness": 0, "outersoftness": 0}})"),
        R"([{"uvw": [0, 0, 0]}, {"uvw": [1, 1, 0]}])");
    for (const std::size_t i : {0u, 1u})
    {
        const host::Json distance = Parse(Output(results, "distance", i));
        EXPECT_GT(distance.AsNumber(), 0.14) << i; // the corner of the square is 0.146 from the disc
    }
}

TEST(CellsTest, PointsAreMadeOnce)
{
    const host::Json results = EvalJson(Cells(kEven, R"(, "distanceMode": "0", "exponent": 1)"),
        R"([{"uvw": [0.37, 0.61, 0]}, {"uvw": [0.37, 0.61, 0], "set": {"pre.seed": 77}}])");
    EXPECT_EQ("24", Output(results, "index", 0));
    EXPECT_EQ(Output(results, "center", 0), Output(results, "center", 1));
}

TEST(CellsTest, AFailingDensityEndsTheMaking)
{
    const host::Json results = EvalJson(Cells(R"("points": 30, "seed": 5, "strategy": "1",
            "distribution": {"from": "board.result"})",
                                            R"(, "distanceMode": "0", "exponent": 1)",
                                            R"(, "board": {"type": "net.velto.pattern.corenode.generator.checkerboard",
            "inputs": {"color1": [1, 1, 1, 1]}})"),
        R"([{}, {"uvw": [0.3, 0.8, 0]}, {"uvw": [0.9, 0.1, 0], "set": {"pre.points": 31}}])");
    EXPECT_EQ("net.velto.error.nullptr", Output(results, "index"));
    // The points that were made stay, and are not made again.
    EXPECT_EQ("3", Output(results, "index", 1));
    EXPECT_EQ("[0.5601606664713472, 0.5151264849694196]", Output(results, "center", 1));
    EXPECT_EQ("0", Output(results, "index", 2));
    EXPECT_EQ("[0.4664106664713472, 0.40401537385830855]", Output(results, "center", 2));
}

} // namespace velto::test
