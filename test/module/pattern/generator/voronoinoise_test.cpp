// Voronoi noise and flakes, which read the same cells.
#include "host/noise/noise.h"
#include "test/support/eval.h"
#include "velto/random.h"

#include <fmt/format.h>

#include <cmath>
#include <set>

namespace velto::test
{

namespace
{

struct Answer
{
    float f1;
    float f2;
    Int32 id;
};

// What the node should be told at a place of noise space.
Answer Ask(UInt32 seed, double x, double y, double z)
{
    const auto& noise = Bound<NoiseInterface>();
    const Ref<NoiseObject> object = Ref<NoiseObject>::Adopt(noise.Alloc());
    EXPECT_TRUE(noise.Init(object.Get(), seed, 10).IsOk());
    const float position[3] = {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
    float distances[2];
    Int32 ids[2];
    noise.Voronoi(object.Get(), position, 2, distances, ids);
    return {distances[0], distances[1], ids[0]};
}

double Number(const host::Json& results, std::string_view name, std::size_t i = 0)
{
    return Parse(Output(results, name, i)).AsNumber();
}

std::string Voronoi(std::string_view scale, bool randomColor = false, double borderWidth = 0.0, bool even = false)
{
    return R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.generator.voronoinoisepre", "inputs": {"seed": 3}},
        "v": {"type": "net.velto.pattern.corenode.generator.voronoinoise",
            "inputs": {"voronoinoise": {"from": "pre.voronoinoise"}, )" +
           fmt::format(R"("scale": {}, "randomColor": {}, "borderWidth": {}, "evenWidthBorder": {})", scale,
               randomColor, borderWidth, even) +
           R"(}}},
        "outputs": {"resultColor": "v.resultColor", "resultFloat": "v.resultFloat", "distance": "v.distance",
            "f1": "v.f1", "f2": "v.f2", "index": "v.index"}})";
}

std::string Flakes(std::string_view inputs)
{
    return R"({"version": 1, "nodes": {
        "pre": {"type": "net.velto.pattern.corenode.generator.voronoinoisepre", "inputs": {"seed": 3}},
        "f": {"type": "net.velto.pattern.corenode.generator.flakes",
            "inputs": {"voronoinoise": {"from": "pre.voronoinoise"}, )" +
           std::string(inputs) + R"(}}},
        "outputs": {"normal": "f.normal", "index": "f.index", "mask": "f.mask"}})";
}

std::string Places(int count, std::string_view more = "")
{
    std::string samples;
    for (int i = 0; i < count; ++i)
        samples +=
            fmt::format("{}{{\"uvw\": [{}, {}, {}]{}}}", i ? ", " : "[", i * 0.173 - 1.0, i * 0.0917, i * 0.031, more);
    return samples + "]";
}

class VoronoiNoiseTest : public ::testing::Test
{
protected:
    void SetUp() override { TheModule(); }
};

using FlakesTest = VoronoiNoiseTest;

TEST_F(VoronoiNoiseTest, DistancesAndIndexAreThoseOfTheNoise)
{
    const host::Json results = EvalJson(Voronoi("0.3"), Places(20));
    std::set<bool> signs;
    for (std::size_t i = 0; i < 20; ++i)
    {
        const double s = 1.0 / 0.3;
        const Answer answer = Ask(3, (static_cast<double>(i) * 0.173 - 1.0) * s, static_cast<double>(i) * 0.0917 * s,
            static_cast<double>(i) * 0.031 * s);
        EXPECT_EQ(answer.f1, Number(results, "f1", i));
        EXPECT_EQ(answer.f2, Number(results, "f2", i));
        EXPECT_EQ(answer.f2 - answer.f1, Number(results, "distance", i));
        EXPECT_EQ(std::to_string(answer.id), Output(results, "index", i));
        EXPECT_EQ("[1, 1, 1]", Output(results, "resultColor", i));
        signs.insert(answer.id < 0);
    }
    EXPECT_EQ(2u, signs.size()) << "identifiers of both signs";
}

TEST_F(VoronoiNoiseTest, ColoursBelongToTheIdentifier)
{
    const host::Json results = EvalJson(Voronoi("0.3", true), Places(5));
    for (std::size_t i = 0; i < 5; ++i)
    {
        RandomStream stream(static_cast<UInt32>(Parse(Output(results, "index", i)).AsInteger()));
        const double r = stream.Next01();
        const double g = stream.Next01();
        const double b = stream.Next01();
        EXPECT_TRUE(AreEqual(Parse(fmt::format("[{}, {}, {}]", r, g, b)), Parse(Output(results, "resultColor", i))));
        EXPECT_EQ(r, Number(results, "resultFloat", i));
    }
}

TEST_F(VoronoiNoiseTest, ABorderIsWhereTheDistancesAreNearlyEqual)
{
    const host::Json plain = EvalJson(Voronoi("0.3"), Places(30));
    for (std::size_t i = 0; i < 30; ++i)
    {
        // Just below and at the distance itself.
        const double gap = Number(plain, "distance", i);
        const std::string place = fmt::format(R"([{{"uvw": [{}, {}, {}]}}])", static_cast<double>(i) * 0.173 - 1.0,
            static_cast<double>(i) * 0.0917, static_cast<double>(i) * 0.031);
        const auto at = [&](double width) {
            return Output(EvalJson(Voronoi("0.3", false, width), place), "resultFloat");
        };
        EXPECT_EQ("1", at(std::nextafter(gap, 0.0))) << i;
        EXPECT_EQ("0", at(gap)) << i;
    }
}

TEST_F(VoronoiNoiseTest, AnEvenBorderIsWhereAnotherCellBegins)
{
    const host::Json results = EvalJson(Voronoi("0.3", false, 0.2, true), Places(60));
    std::set<std::string> seen;
    for (std::size_t i = 0; i < 60; ++i)
    {
        const double s = 1.0 / 0.3;
        const double x = (static_cast<double>(i) * 0.173 - 1.0) * s;
        const double y = static_cast<double>(i) * 0.0917 * s;
        const double z = static_cast<double>(i) * 0.031 * s;
        const bool isInside =
            Ask(3, x, y, z).id == Ask(3, x + 0.2, y, z).id && Ask(3, x, y, z).id == Ask(3, x, y + 0.2, z).id;
        EXPECT_EQ(isInside ? "1" : "0", Output(results, "resultFloat", i)) << i;
        seen.insert(Output(results, "resultFloat", i));
    }
    EXPECT_EQ(2u, seen.size());
}

TEST_F(VoronoiNoiseTest, NoScaleIsOneCell)
{
    const host::Json results = EvalJson(Voronoi("-1"), Places(3));
    const Answer origin = Ask(3, 0, 0, 0);
    for (const std::size_t i : {0u, 1u, 2u})
        EXPECT_EQ(std::to_string(origin.id), Output(results, "index", i));
}

TEST_F(VoronoiNoiseTest, TheSeedMakesTheCells)
{
    const host::Json results = EvalJson(Voronoi("0.3"),
        R"([{"uvw": [1, 2, 3]}, {"uvw": [1, 2, 3], "set": {"pre.seed": 4}}, {"uvw": [1, 2, 3], "set": {"pre.seed": 3}}])");
    EXPECT_NE(Output(results, "index", 0), Output(results, "index", 1));
    EXPECT_EQ(Output(results, "index", 0), Output(results, "index", 2));
}

TEST_F(VoronoiNoiseTest, WithoutATableTheFrameworksOwnCells)
{
    const host::Json results = EvalJson(R"({"version": 1, "nodes": {
        "v": {"type": "net.velto.pattern.corenode.generator.voronoinoise", "inputs": {"scale": 0.5}}},
        "outputs": {"index": "v.index", "f1": "v.f1"}})",
        R"([{"uvw": [1, 2, 3]}])");
    const Answer answer = Ask(0, 2, 4, 6);
    EXPECT_EQ(std::to_string(answer.id), Output(results, "index"));
    EXPECT_EQ(answer.f1, Number(results, "f1"));
}

// Inside of the density a flake pulls the normal to one of its own, which its identifier gives.
TEST_F(FlakesTest, TurnTheNormalInsideTheDensity)
{
    const host::Json results = EvalJson(
        Flakes(R"("scale": 5, "density": 0.5, "intensity": 0.25)"), Places(11, R"(, "shadingNormal": [0.6, 0, 0.8])"));
    for (const std::size_t i : {0u, 9u})
        EXPECT_EQ("[0.6, 0, 0.8]", Output(results, "normal", i));
    EXPECT_EQ("-1479841807", Output(results, "index", 1));
    EXPECT_EQ("false", Output(results, "mask", 1));
    EXPECT_TRUE(AreEqual(Parse("[0.6725279820106875, 0.20505821655967987, 0.7110958031334426]"),
        Parse(Output(results, "normal", 1)), 1e-14));
    EXPECT_TRUE(AreEqual(Parse("[0.5351901940332738, 0.021611741241208883, 0.844455083974956]"),
        Parse(Output(results, "normal", 10)), 1e-14));
}

TEST_F(FlakesTest, Bounds)
{
    const char* const normal = R"(, "shadingNormal": [0, 0, 1])";
    const host::Json none = EvalJson(Flakes(R"("scale": 5, "density": 0, "intensity": 1)"), Places(10, normal));
    const host::Json flat = EvalJson(Flakes(R"("scale": 5, "density": 9, "intensity": 0)"), Places(10, normal));
    const host::Json one = EvalJson(Flakes(R"("scale": 0, "density": 9, "intensity": 1)"), Places(10, normal));
    for (std::size_t i = 0; i < 10; ++i)
    {
        EXPECT_EQ("0", Output(none, "index", i));
        EXPECT_EQ("false", Output(none, "mask", i));
        EXPECT_EQ("[0, 0, 1]", Output(none, "normal", i));
        EXPECT_EQ("[0, 0, 1]", Output(flat, "normal", i));
        EXPECT_EQ(std::to_string(Ask(3, 0, 0, 0).id), Output(one, "index", i));
    }
}

} // namespace

} // namespace velto::test
