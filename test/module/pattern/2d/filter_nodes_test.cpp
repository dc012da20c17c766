#include "test/support/eval.h"
#include "velto/types.h"

#include <fmt/format.h>

#include <cmath>

namespace velto::test
{

namespace
{

constexpr std::string_view kFullMask =
    R"("maskblend": 1, "maskred": true, "maskgreen": true, "maskblue": true, "maskalpha": true)";
constexpr std::string_view kPartMask =
    R"("maskblend": 0.5, "maskred": true, "maskgreen": false, "maskblue": false, "maskalpha": true)";

// A filter, with the pre node that fills its raster if inputs for one are given, over tiles of half a unit: (1, 2, 4,
// 0.5) where both or none of u and v are above one half, else nothing.
std::string Filter(std::string_view type, std::string_view inputs, std::string_view preInputs = "")
{
    const std::string id = fmt::format("net.velto.pattern.corenode.2d.{}", type);
    std::string nodes = R"("tiles": {"type": "net.velto.pattern.corenode.generator.checkerboard",
        "inputs": {"color1": [1, 2, 4, 0.5], "color2": [0, 0, 0, 0]}})";
    std::string outputs = R"("result": "filter.result")";
    std::string all = fmt::format(R"("color": {{"from": "tiles.result"}}, {})", inputs);
    if (!preInputs.empty())
    {
        nodes += fmt::format(
            R"(, "pre": {{"type": "{}pre", "inputs": {{"color": {{"from": "tiles.result"}}, {}}}}})", id, preInputs);
        all += R"(, "imageData": {"from": "pre.imageData"})";
        outputs += R"(, "raster": "pre.imageData")";
    }
    return fmt::format(R"({{"version": 1, "nodes": {{{}, "filter": {{"type": "{}", "inputs": {{{}}}}}}},
        "outputs": {{{}}}}})",
        nodes, id, all, outputs);
}

std::string At(Float u, Float v, std::string_view more = "")
{
    return fmt::format(
        R"([{{"uvw": [{0}, {1}, 0], "uvwPlusDeltaU": [{0}, {1}, 0], "uvwPlusDeltaV": [{0}, {1}, 0]{2}}}])", u, v, more);
}

void ExpectResult(const host::Json& results, std::string_view expected, std::size_t i = 0, double tolerance = 0.0)
{
    EXPECT_TRUE(AreEqual(Parse(expected), Parse(Output(results, "result", i)), tolerance)) << "sample " << i;
}

// The tiles' colour times `share`.
void ExpectShare(const host::Json& results, Float share, std::size_t i = 0, double tolerance = 0.0)
{
    ExpectResult(results, fmt::format("[{}, {}, {}, {}]", share, share * 2, share * 4, share / 2), i, tolerance);
}

host::Json Kernel(std::string_view resolution, std::array<int, 9> weights, std::string_view more, std::string_view mask)
{
    std::string inputs = fmt::format(R"("resolution": {}, {}, {})", resolution, more, mask);
    for (int i = 0; i < 9; ++i)
        inputs += fmt::format(R"(, "kernel{}{}": {})", i / 3, i % 3, weights[i]);
    return EvalJson(Filter("kernel", inputs), At(0.4, 0.6));
}

TEST(Kernel, WeighsNeighboursAlongUFirst)
{
    constexpr std::array<int, 9> kPowers{1, 2, 4, 8, 16, 32, 64, 128, 256};
    const auto at = [&](const char* resolution) {
        return Kernel(resolution, kPowers, R"("normalize": false)", kFullMask);
    };
    ExpectShare(at("[4, 4]"), 1 + 8 + 128 + 256);
    EXPECT_EQ(Evaluations(at("[4, 4]"), "tiles"), 10);
    // Neighbours lie no further than 1 apart, where the tiles repeat.
    ExpectShare(at("[0.1, 4]"), 1 + 8 + 64);
    ExpectShare(at("[4, -3]"), 64 + 128 + 256);
}

TEST(Kernel, NormalizesPositiveSumsAndLaysTheMaskOver)
{
    const auto weighed = [](int coloured, int other, std::string_view mask = kFullMask) {
        return Kernel("[4, 4]", {coloured, 0, 0, 0, other, 0, 0, 0, 0}, R"("normalize": true)", mask);
    };
    ExpectShare(weighed(3, 1), 0.75);
    ExpectShare(weighed(3, -3), 3.0);
    ExpectShare(weighed(-3, 1), -3.0);
    ExpectShare(weighed(0, 0), 0.0);
    ExpectResult(weighed(3, 1, kPartMask), "[0.375, 0, 0, 0.1875]");
}

TEST(AreaAverage, DividesByThePointsThatTheMaskLetsThrough)
{
    const auto average = [](std::string_view inputs) { return EvalJson(Filter("areaaverage", inputs)); };
    ExpectShare(average(R"("width": 4, "height": 2, "mask": 1)"), 0.5);
    ExpectShare(average(R"("width": 4, "height": 2, "mask": 0.5)"), 0.25);
    // Half of the points, by a luminance of 1.9317.
    ExpectShare(average(R"("width": 4, "height": 2, "mask": {"from": "tiles.result"})"), 1.9317, 0, 1e-15);
    for (const char* const nothing : {R"("width": 0, "height": 9, "mask": 1)", R"("width": 9, "height": 0, "mask": 1)",
             R"("width": 9, "height": 9, "mask": 0)", R"("width": 9, "height": 9, "mask": -1)"})
    {
        ExpectResult(average(nothing), "[0, 0, 0, 0]");
        EXPECT_EQ(Evaluations(average(nothing), "tiles"), 0) << nothing;
    }
    EXPECT_EQ(Evaluations(average(R"("width": 1000, "height": 3, "mask": 1, "renderMode": 2)"), "tiles"), 128 * 3);
}

TEST(AreaAverage, IsMadeOnceUnlessItLooksUnmade)
{
    const host::Json results = EvalJson(Filter("areaaverage", R"("width": 3, "height": 1, "mask": 1)"),
        R"([{"set": {"tiles.color1": [0, 0, 0, 1], "tiles.color2": [0, 0, 0, 1]}}, {}, {"set": {"tiles.color1": [3, 6, 12, 0]}}, {}])");
    for (const std::size_t i : {0u, 1u, 2u, 3u})
        EXPECT_EQ(Evaluations(results, "tiles", i), i < 3 ? 3 : 0) << i;
    ExpectResult(results, "[2, 4, 8, 0.3333333333333333]", 3, 1e-15);
}

// A raster of a pixel a tile.
TEST(Cache, LooksUpWithWrapping)
{
    const auto cached = [](std::string_view interpolation, Float u, Float v) {
        return EvalJson(Filter("cache", fmt::format(R"("interpolation": "{}")", interpolation),
                            R"("width": 2, "height": 2, "renderMode": 0)"),
            At(u, v));
    };
    ExpectShare(cached("nearest", -0.1, 0.8), 1.0);
    ExpectShare(cached("nearest", -1e-12, 0.0), 1.0); // wraps to 1, and so to 0
    ExpectShare(cached("nearest", 0.7, 2.3), 0.0);
    ExpectShare(cached("linear", 0.0, 0.25), 0.5);
    ExpectShare(cached("linear", 0.375, 0.25), 0.75);
    EXPECT_TRUE(AreEqual(Parse(Output(cached("linear", 0.0, 0.0), "raster")),
        Parse(R"({"type": "net.velto.render.datatype.bakedimagedataref", "width": 2, "height": 2})")));
    ExpectResult(EvalJson(Filter("cache", R"("interpolation": "linear")")), "[0, 0, 0, 1]");
}

// A row: what changes ahead of the sample, and what it gives.
struct Step
{
    const char* set;
    Float share;
};

void ExpectSteps(const std::string& document, std::initializer_list<Step> steps)
{
    std::string samples;
    for (const Step& step : steps)
        samples += (samples.empty() ? "[" : ",") + fmt::format(R"({{"uvw": [0.1, 0.1, 0], "set": {{{}}}}})", step.set);
    const host::Json results = EvalJson(document, samples + "]");
    for (std::size_t i = 0; i < steps.size(); ++i)
        ExpectShare(results, steps.begin()[i].share, i);
}

TEST(Cache, BakesAgainForAnotherSizeOnly)
{
    ExpectSteps(Filter("cache", R"("interpolation": "nearest")", R"("width": 2, "height": 2, "renderMode": 0)"),
        {{"", 1.0}, {R"("tiles.color1": [3, 6, 12, 1.5])", 1.0}, {R"("pre.width": 4)", 3.0},
            {R"("tiles.color1": [5, 10, 20, 2.5], "pre.renderMode": 1)", 5.0},             // live from here,
            {R"("tiles.color1": [7, 14, 28, 3.5])", 7.0}, {R"("pre.renderMode": 0)", 7.0}, // to here
            {R"("tiles.color1": [9, 18, 36, 4.5])", 7.0}, {R"("pre.width": 2, "pre.height": 4)", 9.0},
            {R"("pre.height": 0, "tiles.color1": [4, 8, 16, 2])", 4.0}});
}

TEST(Blur, BakesAgainForAnotherSizeOrAnEmptyRasterOnly)
{
    const std::string filter = fmt::format(R"("mode": "baked", "interpolation": "nearest", {})", kFullMask);
    ExpectSteps(Filter("blur", filter, R"("mode": "baked", "resolution": 0, "radius": 0, "renderMode": 0)"),
        {{"", 0.0}, {R"("pre.mode": "kernel", "pre.resolution": 4)", 0.0}, {R"("pre.mode": "baked")", 1.0},
            {R"("pre.radius": 9, "tiles.color1": [3, 6, 12, 1.5])", 1.0},
            {R"("pre.resolution": 128, "pre.radius": -9)", 3.0},
            {R"("pre.resolution": 129, "pre.renderMode": 1, "tiles.color1": [5, 10, 20, 2.5])", 3.0}});
    for (const char* const resolution : {"20000", "2147483648"})
    {
        const std::string huge = fmt::format(R"("mode": "baked", "resolution": {}, "radius": 0)", resolution);
        EXPECT_EQ(Output(EvalJson(Filter("blur", filter, huge)), "result"), "net.velto.error.outofmemory");
    }

    // A raster that could not grow has the size that was asked for, and no pixels to look at.
    const host::Json grown =
        EvalJson(Filter("blur", filter, R"("mode": "baked", "resolution": 4, "radius": 0, "renderMode": 0)"),
            R"([{"uvw": [0.1, 0.1, 0]}, {"uvw": [0.1, 0.1, 0], "set": {"pre.resolution": 2147483647}}, {}])");
    ExpectShare(grown, 1.0);
    EXPECT_EQ(Output(grown, "result", 1), "net.velto.error.outofmemory");
    ExpectResult(grown, "[0, 0, 0, 1]", 2);
}

TEST(Blur, BakedModeLooksUpTheBlurredRaster)
{
    const auto blurred = [](std::string_view pre, std::string_view interpolation, Float u, Float v) {
        return EvalJson(
            Filter("blur", fmt::format(R"("mode": "baked", "interpolation": "{}", {})", interpolation, kFullMask),
                fmt::format(R"("mode": "baked", {})", pre)),
            At(u, v));
    };
    constexpr std::string_view kSharp = R"("resolution": 2, "radius": 0)";
    ExpectShare(blurred(kSharp, "nearest", -0.1, 0.8), 1.0);
    ExpectShare(blurred(kSharp, "linear", 0.375, 0.25), 0.75);
    ExpectShare(blurred(kSharp, "anything", 0.375, 0.25), 0.75);
    ExpectResult(blurred(kSharp, "nearest", -1e-12, 0.2), "[0, 0, 0, 1]"); // wraps to 1, which is outside
    // Three boxes of three over 1, 1, 0, 0, whose edges go on each time.
    const Float edge = 22.0 / 27.0;
    ExpectShare(blurred(R"("resolution": 4, "radius": 9)", "nearest", 0.1, 0.1),
        edge * edge + (1.0 - edge) * (1.0 - edge), 0, 1e-15);
}

// Two cells a side, two to each hand: those beyond the edge are the cells at the edge.
TEST(Blur, KernelModeWeighsCellsByAGaussian)
{
    const Float sigma = 0.3 * 2;
    const Float one = std::exp(-0.5 / (sigma * sigma));
    const Float two = std::exp(-0.5 * 4.0 / (sigma * sigma));
    const Float near = 1.0 + one + two;
    const Float far = one + two;
    const host::Json results =
        EvalJson(Filter("blur", fmt::format(R"("mode": "kernel", "radius": 0.3, "resolution": 2, {})", kFullMask)),
            At(0.2, -0.8));
    ExpectShare(results, (near * near + far * far) / ((near + far) * (near + far)), 0, 1e-14);
    EXPECT_EQ(Evaluations(results, "tiles"), 1 + 5 * 5);
}

// What the sample is made of makes the seed; recorded.
TEST(Blur, StochasticModeDrawsFromTheSample)
{
    constexpr std::pair<const char*, Float> kRows[] = {{"", 0.4830139818169709},
        {R"(, "pixel": [3, 40], "subpixel": [0.5, 0.25])", 0.4191597691285111},
        {R"(, "pixel": [3, 40], "subpixel": [0.5, 0.25], "time": 1.5, "frameRate": 25)", 0.4342419917748601},
        {R"(, "rayOrigin": [-1, 0.5, 0.25], "rayDirection": [0, 0.5, -1], "time": -1.48, "frameRate": 25)",
            0.27188069700962686}};
    const std::string inputs = fmt::format(
        R"("mode": "stochastic", "radius": 0.35, "samples": 20, "seed": 5, "staticNoise": false, {})", kFullMask);
    for (const auto& [fields, share] : kRows)
        ExpectShare(EvalJson(Filter("blur", inputs), At(0.4, -0.3, fields)), share, 0, 1e-14);
}

TEST(Blur, ModesAtTheirLimits)
{
    const auto blurred = [](std::string_view inputs, std::string_view mask = kFullMask) {
        return EvalJson(Filter("blur", fmt::format("{}, {}", inputs, mask)), At(0.6, 0.8));
    };
    // One cell, whose centre lies on another tile than (0.6, 0.2) and the same as (0.6, 0.8).
    ExpectShare(
        EvalJson(Filter("blur", fmt::format(R"("mode": "kernel", "radius": 0, "resolution": 1, {})", kFullMask)),
            At(0.6, 0.2)),
        1.0);
    ExpectShare(blurred(R"("mode": "kernel", "radius": -0.1, "resolution": 1)"), 1.0); // rounds up to it
    ExpectShare(blurred(R"("mode": "kernel", "radius": -0.4, "resolution": 1)"), 0.0);
    ExpectShare(blurred(R"("mode": "kernel", "radius": -1e300, "resolution": 4)"), 0.0);
    for (const char* const resolution : {"0", "-4"})
        EXPECT_EQ(
            Output(blurred(fmt::format(R"("mode": "kernel", "radius": 0, "resolution": {})", resolution)), "result"),
            "net.velto.error.illegalargument");
    EXPECT_EQ(Evaluations(blurred(R"("mode": "kernel", "radius": 0.01, "resolution": 1000, "renderMode": 1)"), "tiles"),
        1 + 9 * 9);

    ExpectShare(blurred(R"("mode": "stochastic", "radius": 0.1, "samples": 0)"), 0.0);
    const host::Json unblurred = blurred(R"("mode": "stochastic", "radius": 0, "samples": 9)");
    ExpectShare(unblurred, 1.0);
    EXPECT_EQ(Evaluations(unblurred, "tiles"), 2);

    ExpectShare(blurred(R"("mode": "")"), 0.0);
    ExpectResult(blurred(R"("mode": "")", kPartMask), "[0.5, 2, 4, 0.25]");
    ExpectResult(blurred(R"("mode": "baked")", kPartMask), "[0, 0, 0, 1]"); // no raster, no mask
}

} // namespace

} // namespace velto::test
