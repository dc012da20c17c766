#include "module/source/pattern/generator/random.h"
#include "test/support/node_table.h"
#include "velto/types.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace velto::test
{

namespace
{

// Tiles of half a unit, color1 where both or none of u and v are above one half.
constexpr std::string_view kTiles = R"({"type": "net.velto.pattern.corenode.generator.checkerboard",
    "inputs": {"color1": [1, 2, 4, 0.5], "color2": [0, 0, 0, 0]}})";
constexpr std::string_view kFullMask =
    R"("maskblend": 1, "maskred": true, "maskgreen": true, "maskblue": true, "maskalpha": true)";

// One filter over the tiles.
std::string Filter(std::string_view type, std::string_view inputs)
{
    return fmt::format(R"({{"version": 1, "nodes": {{"tiles": {}, "filter": {{
        "type": "net.velto.pattern.corenode.2d.{}", "inputs": {{"color": {{"from": "tiles.result"}}, {}}}}}}},
        "outputs": {{"result": "filter.result"}}}})",
        kTiles, type, inputs);
}

// The filter with the pre node that fills its raster.
std::string BakedFilter(std::string_view type, std::string_view preInputs, std::string_view inputs)
{
    return fmt::format(R"({{"version": 1, "nodes": {{"tiles": {0}, "pre": {{
        "type": "net.velto.pattern.corenode.2d.{1}pre", "inputs": {{"color": {{"from": "tiles.result"}}, {2}}}}},
        "filter": {{"type": "net.velto.pattern.corenode.2d.{1}", "inputs": {{"color": {{"from": "tiles.result"}},
        "imageData": {{"from": "pre.imageData"}}, {3}}}}}}}, "outputs": {{"result": "filter.result"}}}})",
        kTiles, type, preInputs, inputs);
}

std::string At(Float u, Float v)
{
    return fmt::format(
        R"({{"uvw": [{0}, {1}, 0], "uvwPlusDeltaU": [{0}, {1}, 0], "uvwPlusDeltaV": [{0}, {1}, 0]}})", u, v);
}

void ExpectResult(const host::Json& results, std::string_view expected, std::size_t i = 0, double tolerance = 0.0)
{
    EXPECT_TRUE(AreEqual(Parse(expected), Parse(Output(results, "result", i)), tolerance)) << "sample " << i;
}

// The tiles' colour 1 times `share`.
void ExpectShare(const host::Json& results, Float share, std::size_t i = 0, double tolerance = 0.0)
{
    ExpectResult(results, fmt::format("[{}, {}, {}, {}]", share, share * 2, share * 4, share / 2), i, tolerance);
}

std::string Kernel(std::string_view resolution, std::string_view more)
{
    return Filter("kernel", fmt::format(R"("resolution": {}, "kernel00": 1, "kernel01": 2, "kernel02": 4, "kernel10": 8,
        "kernel11": 16, "kernel12": 32, "kernel20": 64, "kernel21": 128, "kernel22": 256, {})",
                                resolution, more));
}

TEST(Kernel, FirstDigitRunsAlongU)
{
    const std::string inputs = fmt::format(R"("normalize": false, {})", kFullMask);
    const std::string sample = "[" + At(0.4, 0.6) + "]";
    const host::Json quarter = EvalJson(Kernel("[4, 4]", inputs), sample);
    ExpectShare(quarter, 1 + 8 + 128 + 256);
    EXPECT_EQ(Evaluations(quarter, "tiles"), 10);
    // Neighbours lie no further than 1 apart, where the tiles repeat.
    ExpectShare(EvalJson(Kernel("[0.1, 4]", inputs), sample), 1 + 8 + 64);
    ExpectShare(EvalJson(Kernel("[4, -3]", inputs), sample), 64 + 128 + 256);
}

TEST(Kernel, NormalizesPositiveSumsOnly)
{
    const auto filtered = [](std::string_view weights) {
        return EvalJson(
            Filter("kernel", fmt::format(R"("resolution": [4, 4], "normalize": true, {}, {})", weights, kFullMask)),
            "[" + At(0.25, 0.25) + "]");
    };
    // Of the four direct neighbours, those at +1 are on the other tile.
    ExpectShare(filtered(R"("kernel01": 3, "kernel21": 1)"), 0.75);
    ExpectShare(filtered(R"("kernel01": 3, "kernel21": -3)"), 3.0);
    ExpectShare(filtered(R"("kernel01": -3, "kernel21": 1)"), -3.0);
    ExpectShare(filtered(R"("kernel01": 0)"), 0.0);
}

TEST(Kernel, LaysTheMaskOverItsInput)
{
    const auto masked = [](std::string_view mask) {
        return EvalJson(Filter("kernel", fmt::format(R"("resolution": [4, 4], "kernel11": 3, {})", mask)),
            "[" + At(0.2, 0.2) + "]");
    };
    ExpectResult(
        masked(R"("maskblend": 0.5, "maskred": true, "maskgreen": false, "maskblue": true)"), "[2, 2, 8, 0.5]");
    ExpectResult(masked(R"("maskblend": 2, "maskalpha": true)"), "[1, 2, 4, 2.5]");
}

TEST(AreaAverage, DividesByThePointsThatTheMaskLetsThrough)
{
    const auto average = [](std::string_view inputs, std::string_view samples = "[{}]") {
        return EvalJson(Filter("areaaverage", inputs), samples);
    };
    ExpectShare(average(R"("width": 2, "height": 2, "mask": 1)"), 0.5);
    ExpectShare(average(R"("width": 4, "height": 2, "mask": 0.5)"), 0.25);
    // Points lie at 1/6, 1/2, 5/6.
    ExpectShare(average(R"("width": 3, "height": 1, "mask": 1)"), 2 * (1.0 / 3.0));
    for (const char* const nothing : {R"("width": 0, "height": 9, "mask": 1)", R"("width": 9, "height": 0, "mask": 1)",
             R"("width": 9, "height": 9, "mask": 0)", R"("width": 9, "height": 9, "mask": -1)"})
    {
        const host::Json results = average(nothing);
        ExpectResult(results, "[0, 0, 0, 0]");
        EXPECT_LE(Evaluations(results, "tiles"), 0);
    }
    EXPECT_EQ(Output(average(R"("width": 1, "height": 1)"), "result"), "net.velto.error.nullptr");
    const host::Json preview = average(R"("width": 1000, "height": 3, "mask": 1, "renderMode": 2)");
    EXPECT_EQ(Evaluations(preview, "tiles"), 128 * 3);
}

TEST(AreaAverage, IsMadeOnceUnlessItLooksUnmade)
{
    const std::string twice = R"([{}, {"set": {"filter.width": 8}}, {}])";
    const host::Json made = EvalJson(Filter("areaaverage", R"("width": 3, "height": 1, "mask": 1)"), twice);
    EXPECT_EQ(Evaluations(made, "tiles", 0), 3);
    EXPECT_LE(Evaluations(made, "tiles", 1), 0);
    ExpectShare(made, 2 * (1.0 / 3.0), 2);
    // A mean whose channels add up to 1: color1 = (1, 2, 4, 0.5) at 1 / 7.5.
    const host::Json unmade =
        EvalJson(Filter("areaaverage", R"("width": 1, "height": 1, "mask": 0.13333333333333333)"), twice);
    EXPECT_EQ(Evaluations(unmade, "tiles", 2), 8);
}

// Samples of a raster of two by two pixels, each as large as a tile.
TEST(Cache, BakesAgainForAnotherSizeOnly)
{
    const std::string document =
        BakedFilter("cache", R"("width": 2, "height": 2, "renderMode": 0)", R"("interpolation": "nearest")");
    const std::string here = At(0.2, 0.2);
    const auto with = [&here](std::string_view set) {
        return here.substr(0, here.size() - 1) + fmt::format(R"(, "set": {{{}}}}})", set);
    };
    const host::Json results = EvalJson(
        document, "[" + here + "," + with(R"("tiles.color1": [3, 6, 12, 1.5])") + "," + with(R"("pre.width": 4)") +
                      "," + with(R"("tiles.color1": [5, 10, 20, 2.5], "pre.renderMode": 1)") + "," +
                      with(R"("tiles.color1": [7, 14, 28, 3.5], "pre.renderMode": 0)") + "," +
                      with(R"("tiles.color1": [9, 18, 36, 4.5], "pre.width": 2, "pre.height": 4)") + "," +
                      with(R"("tiles.color1": [11, 22, 44, 5.5], "pre.height": 0)") + "]");
    const Float expected[] = {1, 1, 3, 5, 7, 9, 11};
    for (std::size_t i = 0; i < std::size(expected); ++i)
        ExpectShare(results, expected[i], i);
    // Live without a raster.
    for (const std::size_t i : {3u, 6u})
        EXPECT_EQ(Evaluations(results, "tiles", i), 1);
}

TEST(Cache, LooksUpWithWrapping)
{
    const auto cached = [](std::string_view interpolation, Float u, Float v) {
        return EvalJson(
            BakedFilter("cache", R"("width": 2, "height": 2)", fmt::format(R"("interpolation": "{}")", interpolation)),
            "[" + At(u, v) + "]");
    };
    ExpectShare(cached("nearest", -0.1, 0.8), 1.0);
    ExpectShare(cached("nearest", 1.0, 0.0), 1.0);
    ExpectShare(cached("nearest", -1e-12, 0.0), 1.0); // wraps to 1, and so to 0
    ExpectShare(cached("nearest", 0.7, 2.3), 0.0);
    ExpectShare(cached("linear", 0.0, 0.25), 0.5);
    ExpectShare(cached("linear", 0.375, 0.25), 0.75);
}

TEST(Cache, WithoutRasterOrInput)
{
    const auto alone = [](std::string_view pre) {
        return EvalJson(
            fmt::format(R"({{"version": 1, "nodes": {{"pre": {{"type": "net.velto.pattern.corenode.2d.cachepre"}},
            "filter": {{"type": "net.velto.pattern.corenode.2d.cache", "inputs": {{"interpolation": "linear"{}}}}}}},
            "outputs": {{"result": "filter.result"}}}})",
                pre));
    };
    ExpectResult(alone(""), "[0, 0, 0, 1]");
    EXPECT_EQ(Output(alone(R"(, "imageData": {"from": "pre.imageData"})"), "result"), "net.velto.error.nullptr");
}

host::Json Blurred(std::string_view inputs, const std::string& sample)
{
    return EvalJson(Filter("blur", inputs), "[" + sample + "]");
}

TEST(Blur, KernelModeWeighsCellsByAGaussian)
{
    constexpr int kResolution = 7;
    for (const auto& [radius, u, v] : {std::tuple{0.05, 0.3, 0.9}, {0.11, 0.45, -1.7}, {0.3, 0.01, 0.6}})
    {
        const Float sigma = radius * kResolution;
        const int reach = static_cast<int>(std::ceil(sigma * 2.57));
        const int cellX = static_cast<int>((u - std::floor(u)) * kResolution);
        const int cellY = static_cast<int>((v - std::floor(v)) * kResolution);
        Float sum = 0.0;
        Float total = 0.0;
        for (int dx = -reach; dx <= reach; ++dx)
        {
            for (int dy = -reach; dy <= reach; ++dy)
            {
                const Float weight = std::exp(-0.5 * (dx * dx + dy * dy) / (sigma * sigma));
                // The middle cell's centre is not above one half.
                const bool isRight = std::clamp(cellX + dx, 0, kResolution - 1) > kResolution / 2;
                const bool isLow = std::clamp(cellY + dy, 0, kResolution - 1) > kResolution / 2;
                sum += isRight == isLow ? weight : 0.0;
                total += weight;
            }
        }
        const host::Json results = Blurred(
            fmt::format(R"("mode": "kernel", "radius": {}, "resolution": {}, {})", radius, kResolution, kFullMask),
            At(u, v));
        ExpectShare(results, sum / total, 0, 1e-14);
        EXPECT_EQ(Evaluations(results, "tiles"), 1 + (2 * reach + 1) * (2 * reach + 1));
    }
}

TEST(Blur, KernelModeAtItsLimits)
{
    const auto blurred = [](std::string_view inputs) {
        return Blurred(fmt::format(R"("mode": "kernel", {}, {})", inputs, kFullMask), At(0.6, 0.2));
    };
    // One cell, whose centre lies on another tile than the sample.
    ExpectShare(blurred(R"("radius": 0, "resolution": 1)"), 1.0);
    ExpectShare(blurred(R"("radius": -0.4, "resolution": 1)"), 0.0);
    ExpectShare(blurred(R"("radius": -1e300, "resolution": 4)"), 0.0);
    ExpectShare(blurred(R"("radius": -0.1, "resolution": 1)"), 1.0); // still rounds up to one cell
    EXPECT_EQ(Output(blurred(R"("radius": 0.1, "resolution": 0)"), "result"), "net.velto.error.illegalargument");
    EXPECT_EQ(Output(blurred(R"("radius": 0, "resolution": -4)"), "result"), "net.velto.error.illegalargument");
    EXPECT_EQ(Evaluations(blurred(R"("radius": 0.01, "resolution": 1000, "renderMode": 1)"), "tiles"), 1 + 9 * 9);
    EXPECT_EQ(Evaluations(blurred(R"("radius": 0.02, "resolution": 100, "renderMode": 1)"), "tiles"), 1 + 13 * 13);
}

TEST(Blur, StochasticModeDrawsFromTheSample)
{
    struct Row
    {
        const char* fields;
        Int sum; // of the seed's terms, without those of u and v
        bool staticNoise = true;
        Int seed = 0;
    };
    const Row rows[] = {
        {"", 0}, {R"(, "pixel": [3, 40], "subpixel": [0.5, 0.25])", 43 * 43778 + 17757},
        {R"(, "rayOrigin": [-1, 0.5, 0.25], "rayDirection": [0, 0.5, -1])", -3161 - 7275},
        {R"(, "time": 1.5, "frameRate": 25)", 37 * 74643, false},
        {R"(, "time": -1.5, "frameRate": 25)", -37 * 74643, false},
        {R"(, "time": 1.5, "frameRate": 25)", -12, true, -12},
        {R"(, "pixel": [4611686018427387904, 4611686018427387904])", 0}, // wraps
    };
    constexpr Float kU = 0.4;
    constexpr Float kV = -0.3;
    constexpr Float kReach = 2 * 0.35;
    constexpr int kSamples = 20;
    for (const Row& row : rows)
    {
        const Int sum = row.sum + static_cast<Int>(kU * 15362.567) + static_cast<Int>(kV * 13671.123);
        auto random = pattern::RandomStream::FromState(pattern::IntegerHash32(static_cast<UInt32>(sum)));
        Float total = 0.0;
        for (int i = 0; i < kSamples; ++i)
        {
            const Float x = kU + (2 * random.Next01() - 1) * kReach;
            const Float y = kV + (2 * random.Next01() - 1) * kReach;
            random.Next01();
            const bool isOnColor1 = (x - std::floor(x) > 0.5) == (y - std::floor(y) > 0.5);
            total += isOnColor1 ? std::exp(-0.5 * (x * x + y * y) * kReach * kReach) : 0.0;
        }
        std::string sample = At(kU, kV);
        sample.insert(sample.size() - 1, row.fields);
        const host::Json results = Blurred(
            fmt::format(R"("mode": "stochastic", "radius": 0.35, "samples": {}, "seed": {}, "staticNoise": {}, {})",
                kSamples, row.seed, row.staticNoise, kFullMask),
            sample);
        SCOPED_TRACE(row.fields);
        ExpectShare(results, total / kSamples, 0, 1e-14);
    }
}

TEST(Blur, WithoutSamplesRadiusOrMode)
{
    const auto blurred = [](std::string_view inputs) {
        return Blurred(fmt::format("{}, {}", inputs, kFullMask), At(0.2, 0.2));
    };
    ExpectShare(blurred(R"("mode": "stochastic", "radius": 0.1, "samples": 0)"), 0.0);
    for (const char* const radius : {"0", "-1"})
    {
        const host::Json results = blurred(fmt::format(R"("mode": "stochastic", "radius": {}, "samples": 9)", radius));
        ExpectShare(results, 1.0);
        EXPECT_EQ(Evaluations(results, "tiles"), 2);
    }
    ExpectShare(blurred(R"("mode": "", "radius": 0.1)"), 0.0);
    ExpectResult(Blurred(R"("mode": "", "maskblend": 0.5, "maskgreen": true, "maskalpha": true)", At(0.2, 0.2)),
        "[1, 1, 4, 0.25]");
    // Without a raster there is no mask stage either.
    ExpectResult(Blurred(R"("mode": "baked", "maskblend": 0)", At(0.2, 0.2)), "[0, 0, 0, 1]");
}

TEST(Blur, BakedModeReadsTheRasterOfItsPreNode)
{
    const auto blurred = [](std::string_view pre, std::string_view interpolation, Float u, Float v) {
        return EvalJson(BakedFilter("blur", fmt::format(R"("mode": "baked", {})", pre),
                            fmt::format(R"("mode": "baked", "interpolation": "{}", {})", interpolation, kFullMask)),
            "[" + At(u, v) + "]");
    };
    ExpectShare(blurred(R"("resolution": 2, "radius": 0)", "nearest", -0.1, 0.8), 1.0);
    ExpectShare(blurred(R"("resolution": 2, "radius": 0)", "nearest", 0.7, 2.3), 0.0);
    ExpectShare(blurred(R"("resolution": 2, "radius": 0)", "linear", 0.375, 0.25), 0.75);
    ExpectShare(blurred(R"("resolution": 2, "radius": 0)", "anything", 0.375, 0.25), 0.75);
    // Just below 0 the place wraps to 1, which is outside.
    ExpectResult(blurred(R"("resolution": 2, "radius": 0)", "nearest", -1e-12, 0.2), "[0, 0, 0, 1]");
    ExpectShare(blurred(R"("resolution": 0, "radius": 0)", "nearest", 0.2, 0.2), 0.0);
    // Four pixels a side in three boxes of three: weights 1, 3, 6, 7, 6, 3, 1 of 27, and the edge goes on.
    const Float left = (1 + 3 + 6 + 7 + 6) / 27.0;
    ExpectShare(blurred(R"("resolution": 4, "radius": 9)", "nearest", 0.1, 0.1), left * left + (1 - left) * (1 - left),
        0, 1e-15);
}

TEST(Blur, BakesAgainForAnotherSizeOrAnEmptyRasterOnly)
{
    const std::string document =
        BakedFilter("blur", R"("mode": "kernel", "resolution": 4, "radius": 0, "renderMode": 0)",
            fmt::format(R"("mode": "baked", "interpolation": "nearest", {})", kFullMask));
    const std::string here = At(0.1, 0.1);
    const auto with = [&here](std::string_view set) {
        return here.substr(0, here.size() - 1) + fmt::format(R"(, "set": {{{}}}}})", set);
    };
    const host::Json results = EvalJson(document, "[" + here + "," + with(R"("pre.mode": "baked")") + "," +
                                                      with(R"("pre.radius": 9, "tiles.color1": [3, 6, 12, 1.5])") +
                                                      "," + with(R"("pre.resolution": 6, "pre.radius": -9)") + "," +
                                                      with(R"("pre.resolution": 4294967295)") + "]");
    ExpectResult(results, "[0, 0, 0, 1]", 0);
    ExpectShare(results, 1.0, 1);
    ExpectShare(results, 1.0, 2);
    ExpectShare(results, 3.0, 3);
    EXPECT_EQ(Output(results, "result", 4), "net.velto.error.outofmemory");
}

} // namespace

} // namespace velto::test
