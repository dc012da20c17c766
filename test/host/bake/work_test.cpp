// How much work a document asks of one sample: what is told of it beforehand, and what nodes refuse.
#include "test/support/eval.h"

#include "host/bake/work.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace velto::test
{

namespace
{

// The node `n` looks at `c`, which looks at tiles.
std::string Document(std::string_view type, std::string_view inputs, std::string_view output = "result")
{
    return fmt::format(R"({{"version": 1, "nodes": {{"tiles": {{"type": "checkerboard"}},
        "c": {{"type": "contrast", "inputs": {{"color": {{"from": "tiles.result"}}}}}},
        "n": {{"type": "{}", "inputs": {{{}}}}}}}, "outputs": {{"o": "n.{}"}}}})",
        type, inputs, output);
}

const std::string kColor = R"("color": {"from": "c.result"})";

TEST(Work, IsEstimatedAsItIsCounted)
{
    const std::string_view kernels =
        R"({"version": 1, "nodes": {"tiles": {"type": "checkerboard"},
        "inner": {"type": "kernel", "inputs": {"color": {"from": "tiles.result"}}},
        "outer": {"type": "kernel", "inputs": {"color": {"from": "inner.result"}}}}, "outputs": {"o": "outer.result"}})";
    const std::string documents[] = {std::string(kernels), Document("kernel", kColor), Document("bump", kColor),
        Document("normalfromheight", R"("height": {"from": "c.result"})"),
        Document("blur", kColor + R"(, "mode": "kernel", "radius": 0.02, "resolution": 100)"),
        Document("blur", kColor + R"(, "mode": "kernel", "radius": -1)"),
        Document("blur", kColor + R"(, "mode": "stochastic", "samples": 20)"),
        Document("blur", kColor + R"(, "mode": "stochastic", "samples": 0)"), Document("contrast", kColor)};
    for (const std::string& document : documents)
    {
        host::Graph graph;
        ASSERT_TRUE(Load(document, graph));
        const host::WorkEstimate estimate = host::EstimateWork(*graph.program);
        const host::Json counted =
            EvalJson(document, R"([{"shadingNormal": [0, 0, 1], "tangent": [1, 0, 0], "bitangent": [0, 1, 0]}])");
        for (std::size_t i = 0; i < estimate.evaluations.size(); ++i)
        {
            const std::string& name = graph.program->nodeNames[i];
            if (name != "n" && !name.empty()) // a described blur is two nodes of that name
                EXPECT_EQ(estimate.evaluations[i], static_cast<double>(Evaluations(counted, name)))
                    << name << " in " << document;
        }
    }
}

// A pixel of a raster is a sample as well, but those of one raster are not those of one sample.
TEST(Work, OfRastersIsThatOfOnePixel)
{
    const auto sum = [](const std::string& document) {
        host::Graph graph;
        EXPECT_TRUE(Load(document, graph));
        return host::EstimateWork(*graph.program).sum;
    };
    EXPECT_LT(sum(Document("cache", kColor + R"(, "width": 4096, "height": 4096)")), 10.0);
    EXPECT_LT(sum(Document("areaaverage", kColor + R"(, "width": 4096, "height": 4096)")), 10.0);
    const std::string inner = R"({"from": "inner.result"}, "width": 8}}, "inner": {"type": "blur", "inputs":
        {"mode": "stochastic", "samples": 1000, "color": {"from": "c.result"})";
    EXPECT_GT(sum(Document("cache", R"("color": )" + inner)), 2000.0);
}

TEST(Work, BeyondTheLimitIsRefused)
{
    const struct
    {
        std::string document;
        const char* error;
    } table[] = {
        {Document("scratches", R"("layers": 9223372036854775807)"),
            "The number of layers is 9223372036854775807; the limit is 100000."},
        {Document("cells", R"("points": 1000001)", "distance"),
            "The number of points is 1000001; the limit is 1000000."},
        {Document("thinfilm", R"("spectralsamples": 100001)"),
            "The number of spectral samples is 100001; the limit is 100000."},
        {Document("blur", kColor + R"(, "mode": "stochastic", "samples": 1000001)"),
            "The number of samples is 1000001; the limit is 1000000."},
        {Document("blur", kColor + R"(, "mode": "kernel", "radius": 9.2e18)"),
            "The number of cells within the radius is 1099511627776; the limit is 2000."},
        {Document("areaaverage", kColor + R"(, "width": 2147483648, "height": 1)"),
            "The number of grid points is 2147483648; the limit is 100000000."},
        {Document("scatter", R"(}, "arguments": {"count": 1099511627776)", "mask"),
            "The number of items (count) is 1099511627776; the limit is 100000."},
        {Document("scatter", R"(}, "arguments": {"count": -1)", "mask"),
            "Illegal argument: Condition count >= 0 not fulfilled. "},
    };
    for (const auto& [document, error] : table)
    {
        const host::Json results = EvalJson(document);
        const host::Json* const failed = Entry(results).Find("error");
        ASSERT_TRUE(failed) << document;
        EXPECT_THAT(failed->Find("message")->AsString(), ::testing::StartsWith(error));
    }
}

} // namespace

} // namespace velto::test
